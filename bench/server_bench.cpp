// The store on a server beside the store file, in one sitting: a throwaway PostgreSQL cluster
// of its own (socket in a temporary directory, no TCP port), N generated businesses read in,
// read in again, exported, listed, searched and evaluated on each kind of store.
//   tolma-server-bench [N]
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <vector>

#include "bench_store.h"
#include "browse/list_form.h"
#include "core/globals.h"
#include "evaluation/evaluation.h"
#include "model/server_schema.h"
#include "options/options_form.h"
#include "pg_cluster.h"
#include "search/search_index.h"
#include "transfer/export_form.h"
#include "transfer/import_driver.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

template <typename Work>
double timed(Work&& work) {
    const auto start = Clock::now();
    work();
    return since(start);
}

// The figures of one kind of store, by name.
using Figures = std::map<std::string, double>;

Figures measure(const std::string& kind, const std::filesystem::path& file, long n) {
    Figures f;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    const auto dir = tolma::bench::freshDirectory("tolma-server-bench-" + kind);
    tolma::bench::startProgram(g, dialogs, dir / "home");
    if (kind == "Server") {
        const std::string text = tolma::testing::PgCluster::get().createDatabase("tolma_bench");
        tolma::model::setUpServerStore(text);
        tolma::options::OptionsForm form;
        tolma::options::Form_Activate(g, form);
        if (!tolma::options::changeStorePath(g, form, 0, text)) std::exit(1);
        tolma::options::Form_Unload(g);
    }
    f["import"] = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    f["replace"] = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    f["export"] = timed([&] {
        auto form = tolma::transfer::Frm_Verwaltungsblock_Load(g);
        tolma::transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
    });

    tolma::browse::ListForm list(false);
    f["list"] = timed([&] {
        tolma::browse::menue_suchen_betrieb(g, list);
        for (long r = 0; r < 30 && r < list.data.Recordset().RecordCount(); ++r)
            list.data.Recordset().rowAt(r);
    });
    double keys = 0;
    int count = 0;
    for (const auto& [box, text] : std::vector<std::pair<int, std::string>>{
             {3, "W"}, {3, "We"}, {3, "Weber"}, {1, "00000500"}, {3, "Mü"}, {3, "Müller"}}) {
        list.Text1[static_cast<size_t>(box)] = text;
        keys += timed([&] { tolma::browse::Text1_Change(g, list, box); });
        ++count;
    }
    f["keystroke"] = keys / count;

    auto& c = *g.stores.db_daten.connection();
    f["index"] = timed([&] { tolma::search::buildIndex(c); });
    double searches = 0;
    const char* queries[] = {"Müller", "Weber Berlin", "Schmidt", "Bäck", "Meier Hamburg"};
    for (const char* q : queries)
        searches += timed([&] { tolma::search::find(c, q, tolma::search::Kind::Both, 50); });
    f["search"] = searches / 5;

    const auto sections =
        tolma::evaluation::loadSections(g.paths.dataDir / "wz2008_abschnitte.csv");
    tolma::evaluation::Query query;
    query.from = {1900, 1};
    query.to = {2100, 12};
    f["evaluation"] = timed([&] { tolma::evaluation::evaluate(g, query, sections); });
    (void)n;
    return f;
}

}  // namespace

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    const auto dir = tolma::bench::freshDirectory("tolma-server-bench");
    const auto file = dir / "bench.tml";
    tolma::bench::writeFile(file, n);
    const Figures file_ = measure("Datei", file, n);
    const Figures server = measure("Server", file, n);
    std::cout << std::fixed << std::setprecision(1) << n << " Betriebe\t"
              << "Datei\tServer\n";
    auto perSecond = [&](const Figures& f, const char* k) { return n / (f.at(k) / 1000.0); };
    std::cout << "Import (Betriebe/s)\t" << perSecond(file_, "import") << "\t"
              << perSecond(server, "import") << "\n"
              << "Ersetzen (× Import)\t" << file_.at("replace") / file_.at("import") << "\t"
              << server.at("replace") / server.at("import") << "\n"
              << "Export (Betriebe/s)\t" << perSecond(file_, "export") << "\t"
              << perSecond(server, "export") << "\n";
    for (const auto& [key, name] : {std::pair{"list", "Betriebsliste öffnen (ms)"},
                                    {"keystroke", "Tastendruck (ms, Mittel)"},
                                    {"index", "Suchindex aufbauen (ms)"},
                                    {"search", "Suche (ms je Anfrage)"},
                                    {"evaluation", "Auswertung (ms)"}})
        std::cout << name << "\t" << file_.at(key) << "\t" << server.at(key) << "\n";
    return 0;
}
