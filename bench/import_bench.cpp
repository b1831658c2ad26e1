// Imports a generated transfer file of N businesses into an empty store, then the same file
// again into the filled store, then a version with a tenth of the businesses changed, then one
// with every business changed against that; prints businesses/s, MB/s, each replace's time
// against the first import's, and the peak memory. Without recording, the runs keep no record for
// taking them back: the difference is what recording costs.
//   tolma-import-bench [N] [--ohne-aufzeichnung]
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "bench_store.h"
#include "core/globals.h"
#include "transfer/import_driver.h"

namespace {

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

}  // namespace

int main(int argc, char** argv) {
    long n = 100000;
    bool record = true;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--ohne-aufzeichnung")
            record = false;
        else
            n = std::atol(argv[i]);
    }
    const auto dir = tolma::bench::freshDirectory("tolma-import-bench");
    const auto file = dir / "bench.tml";
    const double megabytes = tolma::bench::writeFile(file, n);
    std::cout << "Transferdatei: " << n << " Betriebe, " << megabytes << " MB\n";
    const auto tenth = dir / "zehntel.tml", all = dir / "alle.tml";
    tolma::bench::writeFile(tenth, n, 10, 1);
    tolma::bench::writeFile(all, n, 1, 2);

    tolma::bench::AnswerYes dialogs;
    dialogs.echo = true;
    tolma::core::Globals g;
    g.recordImportRuns = record;
    tolma::bench::startProgram(g, dialogs, dir / "home");
    if (!g.stores.db_daten.isSet()) {
        std::cerr << "Die Datenbank konnte nicht geöffnet werden.\n";
        return 1;
    }
    std::cout << (record ? "mit" : "ohne") << " Aufzeichnung der Importläufe\n";
    struct Run {
        const char* name;
        std::filesystem::path file;
    };
    const Run runs[] = {
        {"leere Datenbank", file},
        {"gefüllte Datenbank (Ersetzen)", file},
        {"gefüllte Datenbank, ein Zehntel geändert", tenth},
        {"gefüllte Datenbank, jeder Betrieb geändert", all},
    };
    std::vector<double> times;
    for (const auto& [run, path] : runs) {
        const auto start = std::chrono::steady_clock::now();
        tolma::transfer::Upd_1_Start(g, path.string());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::cout << "Import in " << run << ": " << seconds << " s, "
                  << static_cast<long>(n / seconds) << " Betriebe/s, " << megabytes / seconds
                  << " MB/s\n";
        times.push_back(seconds);
    }
    std::cout << "Ersetzen gegen ersten Import: " << times[1] / times[0] << "-fach\n";
    std::cout << "Ein Zehntel geändert gegen ersten Import: " << times[2] / times[0] << "-fach\n";
    std::cout << "Jeder Betrieb geändert gegen ersten Import: " << times[3] / times[0] << "-fach\n";
    std::cout << "Datenbank: " << std::filesystem::file_size(g.settings.db_pfad_aktuell) / 1000000
              << " MB, "
              << "Spitze des Speichers: " << peakMegabytes() << " MB\n";
    return 0;
}
