// The store on a server beside the store file, in one sitting: a throwaway PostgreSQL cluster
// of its own (socket in a temporary directory, no TCP port), N generated businesses read in,
// read in again, exported, listed, searched and evaluated on each kind of store.
// Then several workstations on the server store: the same file read in alone, and again while
// five reading workstations (processes of their own) open the list, type and search; and how
// soon an idle workstation hears of the import's commit.
//   tolma-server-bench [N] [--nur-arbeitsplaetze | --nur-server | --nur-liste]
// --nur-server measures the server store alone, without the store file and the workstations;
// --nur-liste only reads the file into the server store and opens the list and types there.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <numeric>
#include <thread>
#include <vector>

#include "bench_store.h"
#include "browse/list_form.h"
#include "core/globals.h"
#include "evaluation/evaluation.h"
#include "model/server_schema.h"
#include "options/options_form.h"
#include "pg_cluster.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/server_work.h"
#include "transfer/element_fingerprint.h"
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

// A database set up as `server einrichten` sets it up, with the tables of the program's own
// that only the set-up makes.
void setUp(const std::string& text) {
    tolma::model::setUpServerStore(text);
    {
        auto c = tolma::store::Connection::open(text, tolma::store::Connection::Kind::Shared);
        c->beginBatch();
        tolma::transfer::createFingerprintTable(*c);
        c->commitBatch();
    }
    tolma::model::grantServerRights(text);
}

Figures measure(const std::string& kind, const std::filesystem::path& file, bool listOnly) {
    Figures f;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    const auto dir = tolma::bench::freshDirectory("tolma-server-bench-" + kind);
    tolma::bench::startProgram(g, dialogs, dir / "home");
    if (kind == "Server") {
        const std::string text = tolma::testing::PgCluster::get().createDatabase("tolma_bench");
        setUp(text);
        tolma::options::OptionsForm form;
        tolma::options::Form_Activate(g, form);
        if (!tolma::options::changeStorePath(g, form, 0, text)) std::exit(1);
        tolma::options::Form_Unload(g);
    }
    f["import"] = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    if (!listOnly) {
        f["replace"] = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
        f["export"] = timed([&] {
            auto form = tolma::transfer::Frm_Verwaltungsblock_Load(g);
            tolma::transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
        });
    }

    // Open as the clerk sees it: the first screen; a long list reads its rest behind it. The
    // keystrokes then go to the whole list.
    tolma::browse::ListForm list(false);
    f["list"] = timed([&] {
        tolma::browse::menue_suchen_betrieb(g, list);
        for (long r = 0; r < 30 && r < list.data.Recordset().KnownCount(); ++r)
            list.data.Recordset().rowAt(r);
    });
    f["whole"] = f["list"] + timed([&] { list.data.Recordset().RecordCount(); });
    double keys = 0;
    int count = 0;
    for (const auto& [box, text] : std::vector<std::pair<int, std::string>>{
             {3, "W"}, {3, "We"}, {3, "Weber"}, {1, "00000500"}, {3, "Mü"}, {3, "Müller"}}) {
        list.Text1[static_cast<size_t>(box)] = text;
        keys += timed([&] { tolma::browse::Text1_Change(g, list, box); });
        ++count;
    }
    f["keystroke"] = keys / count;
    if (listOnly) return f;

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
    return f;
}

// A program started on a home of its own whose store is the server's database `text`.
void startOnServer(tolma::core::Globals& g, tolma::bench::AnswerYes& dialogs,
                   const std::filesystem::path& home, const std::string& text) {
    tolma::bench::startProgram(g, dialogs, home);
    tolma::options::OptionsForm form;
    tolma::options::Form_Activate(g, form);
    if (!tolma::options::changeStorePath(g, form, 0, text)) std::exit(1);
    tolma::options::Form_Unload(g);
}

// One reading workstation: until the file `stop` appears, it opens the business list, types a
// name into its name box, reads, searches and reads again, at the pace of a quick clerk (a key
// every 150 ms, three seconds on a screen, a round every five seconds or so); each keystroke's
// time goes into `out`, one per line.
int reader(const std::string& home, const std::string& text, const std::string& stop,
           const std::string& out) {
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    startOnServer(g, dialogs, home, text);
    std::ofstream times(out);
    const char* typed[] = {"M", "Mü", "Müller", "W", "We", "Weber"};
    for (int round = 0; !std::filesystem::exists(stop); ++round) {
        tolma::browse::ListForm list(false);
        // An empty store opens no list: the reader looks again a moment later.
        if (!tolma::browse::menue_suchen_betrieb(g, list) || !list.data.Recordset().isSet()) {
            tolma::browse::Form_Unload(g, list);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        for (const char* t : typed) {
            list.Text1[3] = t;
            times << timed([&] { tolma::browse::Text1_Change(g, list, 3); }) << "\n";
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
        }
        std::this_thread::sleep_for(std::chrono::seconds(3));
        tolma::search::find(*g.stores.db_daten.connection(), typed[round % 6],
                            tolma::search::Kind::Both, 50);
        tolma::browse::Form_Unload(g, list);
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return 0;
}

struct Workstations {
    double alone = 0, withReaders = 0;  // ms of the import
    std::vector<double> keystrokes;
    double notice = -1;  // ms from the import's return to the idle workstation's hearing
    int failedReaders = 0;
};

Workstations measureWorkstations(const char* self, const std::filesystem::path& file) {
    Workstations w;
    const auto dir = tolma::bench::freshDirectory("tolma-server-bench-arbeitsplaetze");
    auto& cluster = tolma::testing::PgCluster::get();
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    {
        const std::string text = cluster.createDatabase("tolma_allein");
        setUp(text);
        startOnServer(g, dialogs, dir / "allein", text);
        w.alone = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    }
    const std::string text = cluster.createDatabase("tolma_gemeinsam");
    setUp(text);
    tolma::search::prepareIndexTables(*tolma::store::Connection::openReader(text));
    const auto stop = dir / "halt";
    std::vector<pid_t> readers;
    for (int i = 0; i < 5; ++i) {
        const std::string home = (dir / ("leser" + std::to_string(i))).string();
        const std::string out = (dir / ("leser" + std::to_string(i) + ".txt")).string();
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::execl(self, self, "--leser", home.c_str(), text.c_str(), stop.c_str(), out.c_str(),
                    static_cast<char*>(nullptr));
            ::_exit(127);
        }
        readers.push_back(pid);
    }
    // The idle workstation listens on a connection of its own, as the window's timer asks.
    std::atomic<bool> listening{false}, heard{false};
    Clock::time_point heardAt;
    std::thread idle([&] {
        auto c = tolma::store::Connection::openReader(text);
        tolma::store::listenForChanges(*c);
        listening = true;
        const auto until = Clock::now() + std::chrono::hours(1);
        while (Clock::now() < until && tolma::store::changesHeard(*c).empty())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        heardAt = Clock::now();
        heard = true;
    });
    while (!listening) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    tolma::core::Globals importer;
    tolma::bench::AnswerYes importerDialogs;
    startOnServer(importer, importerDialogs, dir / "import", text);
    std::this_thread::sleep_for(std::chrono::seconds(2));  // the readers have their lists open
    const auto start = Clock::now();
    tolma::transfer::Upd_1_Start(importer, file.string());
    const auto returned = Clock::now();
    w.withReaders = std::chrono::duration<double, std::milli>(returned - start).count();
    idle.join();
    w.notice = std::chrono::duration<double, std::milli>(heardAt - returned).count();
    std::ofstream(stop).put('\n');
    for (size_t i = 0; i < readers.size(); ++i) {
        int status = 0;
        ::waitpid(readers[i], &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++w.failedReaders;
        std::ifstream in(dir / ("leser" + std::to_string(i) + ".txt"));
        for (double ms; in >> ms;) w.keystrokes.push_back(ms);
    }
    return w;
}

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())))];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::string(argv[1]) == "--leser")
        return reader(argv[2], argv[3], argv[4], argv[5]);
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    const bool onlyWorkstations = argc > 2 && std::string(argv[2]) == "--nur-arbeitsplaetze";
    const bool onlyServer = argc > 2 && std::string(argv[2]) == "--nur-server";
    const bool onlyList = argc > 2 && std::string(argv[2]) == "--nur-liste";
    const auto dir = tolma::bench::freshDirectory("tolma-server-bench");
    const auto file = dir / "bench.tml";
    tolma::bench::writeFile(file, n);
    const auto workstations = [&] {
        const Workstations w = measureWorkstations(argv[0], file);
        std::cout << std::fixed << std::setprecision(1) << "Mehrere Arbeitsplätze (Server)\n"
                  << "Import allein (Betriebe/s)\t" << n / (w.alone / 1000.0) << "\n"
                  << "Import neben 5 Lesern (Betriebe/s)\t" << n / (w.withReaders / 1000.0)
                  << "\t(+" << (w.withReaders / w.alone - 1) * 100 << " %)\n"
                  << "Tastendruck der Leser (ms, Mittel / 95 %)\t"
                  << (w.keystrokes.empty()
                          ? 0
                          : std::accumulate(w.keystrokes.begin(), w.keystrokes.end(), 0.0) /
                                static_cast<double>(w.keystrokes.size()))
                  << "\t" << percentile(w.keystrokes, 0.95) << "\t(" << w.keystrokes.size()
                  << " Tastendrücke)\n"
                  << "Nachricht an einen ruhenden Arbeitsplatz (ms nach dem Ende)\t" << w.notice
                  << "\n";
        if (w.failedReaders > 0) std::cout << "Leser gescheitert: " << w.failedReaders << "\n";
    };
    if (onlyWorkstations) {
        workstations();
        return 0;
    }
    // The file store's figures stand beside the server's; without it its column stays empty.
    if (onlyList) {
        const Figures f = measure("Server", file, true);
        std::cout << std::fixed << std::setprecision(1) << n << " Betriebe auf dem Server\n"
                  << "Betriebsliste öffnen (ms)\t" << f.at("list") << "\n"
                  << "Betriebsliste ganz gelesen (ms)\t" << f.at("whole") << "\n"
                  << "Tastendruck (ms, Mittel)\t" << f.at("keystroke") << "\n";
        return 0;
    }
    const Figures file_ = onlyServer ? Figures{} : measure("Datei", file, false);
    const Figures server = measure("Server", file, false);
    const auto of = [&](const Figures& f, const char* k) {
        return f.count(k) ? f.at(k) : std::nan("");
    };
    std::cout << std::fixed << std::setprecision(1) << n << " Betriebe\t"
              << "Datei\tServer\n";
    auto perSecond = [&](const Figures& f, const char* k) { return n / (of(f, k) / 1000.0); };
    std::cout << "Import (Betriebe/s)\t" << perSecond(file_, "import") << "\t"
              << perSecond(server, "import") << "\n"
              << "Ersetzen (× Import)\t" << of(file_, "replace") / of(file_, "import") << "\t"
              << server.at("replace") / server.at("import") << "\n"
              << "Export (Betriebe/s)\t" << perSecond(file_, "export") << "\t"
              << perSecond(server, "export") << "\n";
    for (const auto& [key, name] : {std::pair{"list", "Betriebsliste öffnen (ms)"},
                                    {"whole", "Betriebsliste ganz gelesen (ms)"},
                                    {"keystroke", "Tastendruck (ms, Mittel)"},
                                    {"index", "Suchindex aufbauen (ms)"},
                                    {"search", "Suche (ms je Anfrage)"},
                                    {"evaluation", "Auswertung (ms)"}})
        std::cout << name << "\t" << of(file_, key) << "\t" << server.at(key) << "\n";
    if (!onlyServer) workstations();
    return 0;
}
