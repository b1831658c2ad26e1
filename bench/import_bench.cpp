// Imports a generated transfer file of N businesses into an empty store, then the same file
// again into the filled store, and prints businesses/s, MB/s and the peak memory.
//   tolma-import-bench [N] [--keep DIR]
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "core/globals.h"
#include "core/start.h"
#include "tml_generator.h"
#include "transfer/import_driver.h"

namespace {

class AlwaysYes : public tolma::core::Dialogs {
public:
    int MsgBox(const std::string& text, int style, const std::string& title) override {
        if (!tolma::core::msg::hasYesNo(style)) std::cout << "  " << title << ": " << text << "\n";
        return tolma::core::msg::hasYesNo(style) ? tolma::core::msg::vbYes : tolma::core::msg::vbOK;
    }
    void openInViewer(const std::string& path) override { std::cout << "  Fehlerprotokoll: " << path << "\n"; }
};

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

}  // namespace

int main(int argc, char** argv) {
    long n = argc > 1 ? std::atol(argv[1]) : 100000;
    std::filesystem::path dir = std::filesystem::temp_directory_path() / "tolma-import-bench";
    if (argc > 3 && std::string(argv[2]) == "--keep") dir = argv[3];
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const auto file = dir / "bench.tml";
    {
        std::ofstream out(file, std::ios::binary);
        tolma::bench::GeneratorOptions options;
        options.businesses = n;
        tolma::bench::writeTransferFile(out, options);
    }
    const double megabytes = static_cast<double>(std::filesystem::file_size(file)) / 1e6;
    std::cout << "Transferdatei: " << n << " Betriebe, " << megabytes << " MB\n";

    AlwaysYes dialogs;
    tolma::core::Globals g;
    g.dialogs = &dialogs;
    g.dataDir = TOLMA_STORE_DIR;
    tolma::core::A_Start(g, dir / "home");
    if (!g.db_daten.isSet()) {
        std::cerr << "Die Datenbank konnte nicht geöffnet werden.\n";
        return 1;
    }
    for (const char* run : {"leere Datenbank", "gefüllte Datenbank (Ersetzen)"}) {
        const auto start = std::chrono::steady_clock::now();
        tolma::transfer::Upd_1_Start(g, file.string());
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::cout << "Import in " << run << ": " << seconds << " s, " << static_cast<long>(n / seconds)
                  << " Betriebe/s, " << megabytes / seconds << " MB/s\n";
    }
    std::cout << "Datenbank: " << std::filesystem::file_size(g.db_pfad_aktuell) / 1000000 << " MB, "
              << "Spitze des Speichers: " << peakMegabytes() << " MB\n";
    return 0;
}
