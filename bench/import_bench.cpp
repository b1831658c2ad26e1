// Imports a generated transfer file of N businesses into an empty store, then the same file
// again into the filled store, and prints businesses/s, MB/s and the peak memory.
//   tolma-import-bench [N]
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

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
    long n = argc > 1 ? std::atol(argv[1]) : 100000;
    const auto dir = tolma::bench::freshDirectory("tolma-import-bench");
    const auto file = dir / "bench.tml";
    const double megabytes = tolma::bench::writeFile(file, n);
    std::cout << "Transferdatei: " << n << " Betriebe, " << megabytes << " MB\n";

    tolma::bench::AnswerYes dialogs;
    dialogs.echo = true;
    tolma::core::Globals g;
    tolma::bench::startProgram(g, dialogs, dir / "home");
    if (!g.db_daten.isSet()) {
        std::cerr << "Die Datenbank konnte nicht geöffnet werden.\n";
        return 1;
    }
    for (const char* run : {"leere Datenbank", "gefüllte Datenbank (Ersetzen)"}) {
        const auto start = std::chrono::steady_clock::now();
        tolma::transfer::Upd_1_Start(g, file.string());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::cout << "Import in " << run << ": " << seconds << " s, "
                  << static_cast<long>(n / seconds) << " Betriebe/s, " << megabytes / seconds
                  << " MB/s\n";
    }
    std::cout << "Datenbank: " << std::filesystem::file_size(g.db_pfad_aktuell) / 1000000 << " MB, "
              << "Spitze des Speichers: " << peakMegabytes() << " MB\n";
    return 0;
}
