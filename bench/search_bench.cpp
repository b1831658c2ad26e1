// The search index on N generated businesses: what keeping it adds to an import, how long
// building it takes, and how fast a query answers. Each figure is given as wall time and as the
// process's CPU time, which another program on the machine does not inflate.
//   tolma-search-bench [N]
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>

#include "bench_store.h"
#include "core/globals.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "transfer/import_driver.h"

namespace {

struct Time {
    double wall = 0, cpu = 0;  // seconds
};

Time timed(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t cpuStart = std::clock();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC};
}

std::ostream& operator<<(std::ostream& out, const Time& t) {
    return out << t.wall << " s (CPU " << t.cpu << " s)";
}

// The imports of the import benchmark, into a store that has the index or not: the whole file
// into the empty store, the same file again, and a tenth of it into the filled store.
struct Imports {
    Time empty, replace, tenth;
};

Imports importInto(const std::string& name, bool withIndex, const std::filesystem::path& file,
                   const std::filesystem::path& tenth) {
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startProgram(g, dialogs, tolma::bench::freshDirectory(name) / "home");
    // The index of a store that was searched once: created while the store is still empty.
    if (withIndex) tolma::search::buildIndex(*g.stores.db_daten.connection());
    Imports t;
    t.empty = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    t.replace = timed([&] { tolma::transfer::Upd_1_Start(g, file.string()); });
    t.tenth = timed([&] { tolma::transfer::Upd_1_Start(g, tenth.string()); });
    return t;
}

void compare(const char* run, const Time& without, const Time& with) {
    std::cout << "  " << run << ": ohne Index " << without << ", mit Index " << with
              << ", Mehraufwand " << (with.wall / without.wall - 1) * 100 << " % (CPU "
              << (with.cpu / without.cpu - 1) * 100 << " %)\n";
}

}  // namespace

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    const auto dir = tolma::bench::freshDirectory("tolma-search-bench");
    const auto file = dir / "bench.tml", tenth = dir / "zehntel.tml";
    tolma::bench::writeFile(file, n);
    tolma::bench::writeFile(tenth, n / 10);  // the first tenth of the same businesses

    const Imports without = importInto("tolma-search-bench-ohne", false, file, tenth);
    const Imports with = importInto("tolma-search-bench-mit", true, file, tenth);
    std::cout << "Import von " << n << " Betrieben mit und ohne Suchindex:\n";
    compare("leere Datenbank", without.empty, with.empty);
    compare("gefüllte Datenbank (Ersetzen)", without.replace, with.replace);
    compare("ein Zehntel in die gefüllte Datenbank", without.tenth, with.tenth);

    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startProgram(g, dialogs, dir / "home");
    tolma::transfer::Upd_1_Start(g, file.string());
    auto& c = *g.stores.db_daten.connection();
    std::cout << "Suchindex für " << n << " Betriebe aufgebaut in "
              << timed([&] { tolma::search::buildIndex(c); }) << "\n";
    double worst = 0, sum = 0;
    const char* queries[] = {"Meyer",   "Mueller Bau", "Hauptstrasse", "Schmitt", "Bäckerei Husum",
                             "Petersn", "Ha"};
    for (const char* q : queries) {
        size_t found = 0;
        const Time t =
            timed([&] { found = tolma::search::find(c, q, tolma::search::Kind::Both, 50).size(); });
        worst = std::max(worst, t.wall * 1000);
        sum += t.wall * 1000;
        std::cout << "  Suche '" << q << "': " << t.wall * 1000 << " ms (CPU " << t.cpu * 1000
                  << " ms), " << found << " Treffer\n";
    }
    std::cout << "Suche: im Mittel " << sum / std::size(queries) << " ms, höchstens " << worst
              << " ms\n";
    return 0;
}
