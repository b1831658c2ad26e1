// Exports a store of N generated businesses (imported first) and prints businesses/s.
//   tolma-export-bench [N]
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "bench_store.h"
#include "core/globals.h"
#include "transfer/export_form.h"

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startWithBusinesses(g, dialogs, "tolma-export-bench", n);

    // CPU time beside wall time: on a shared machine the wall time says little alone.
    auto cpuSeconds = [] {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
               static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    };
    const double cpuStart = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    tolma::transfer::VerwaltungsblockForm form = tolma::transfer::Frm_Verwaltungsblock_Load(g);
    const auto result = tolma::transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double cpu = cpuSeconds() - cpuStart;
    if (result.files.empty()) {
        std::cerr << "Es wurde keine Datei geschrieben.\n";
        return 1;
    }
    const double megabytes = static_cast<double>(std::filesystem::file_size(result.files[0])) / 1e6;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << "Export von " << n << " Betrieben: " << seconds << " s, "
              << static_cast<long>(n / seconds) << " Betriebe/s, " << megabytes / seconds
              << " MB/s, CPU-Zeit " << cpu << " s (" << static_cast<long>(n / cpu)
              << " Betriebe/s), Spitze des Speichers: " << usage.ru_maxrss / 1024 << " MB\n";
    return 0;
}
