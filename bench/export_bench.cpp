// Exports a store of N generated businesses (imported first) and prints businesses/s.
//   tolma-export-bench [N]
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "core/globals.h"
#include "core/start.h"
#include "tml_generator.h"
#include "transfer/export_form.h"
#include "transfer/import_driver.h"

namespace {

class Quiet : public tolma::core::Dialogs {
public:
    int MsgBox(const std::string&, int style, const std::string&) override {
        return tolma::core::msg::hasYesNo(style) ? tolma::core::msg::vbYes : tolma::core::msg::vbOK;
    }
    void openInViewer(const std::string& path) override { std::cout << "  Fehlerprotokoll: " << path << "\n"; }
};

}  // namespace

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    const auto dir = std::filesystem::temp_directory_path() / "tolma-export-bench";
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const auto file = dir / "bench.tml";
    {
        std::ofstream out(file, std::ios::binary);
        tolma::bench::GeneratorOptions options;
        options.businesses = n;
        tolma::bench::writeTransferFile(out, options);
    }
    Quiet dialogs;
    tolma::core::Globals g;
    g.dialogs = &dialogs;
    g.dataDir = TOLMA_STORE_DIR;
    tolma::core::A_Start(g, dir / "home");
    tolma::transfer::Upd_1_Start(g, file.string());
    std::filesystem::remove(file);

    const auto start = std::chrono::steady_clock::now();
    tolma::transfer::VerwaltungsblockForm form = tolma::transfer::Frm_Verwaltungsblock_Load(g);
    const auto result = tolma::transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (result.files.empty()) {
        std::cerr << "Es wurde keine Datei geschrieben.\n";
        return 1;
    }
    const double megabytes = static_cast<double>(std::filesystem::file_size(result.files[0])) / 1e6;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << "Export von " << n << " Betrieben: " << seconds << " s, " << static_cast<long>(n / seconds)
              << " Betriebe/s, " << megabytes / seconds << " MB/s, Spitze des Speichers: " << usage.ru_maxrss / 1024
              << " MB\n";
    return 0;
}
