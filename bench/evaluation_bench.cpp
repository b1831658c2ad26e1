// Evaluates a store of N generated businesses (imported first) with each grouping, over the
// whole time span, and prints the time of each.
//   tolma-evaluation-bench [N]
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "bench_store.h"
#include "core/globals.h"
#include "evaluation/evaluation.h"

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startWithBusinesses(g, dialogs, "tolma-evaluation-bench", n);
    const auto sections =
        tolma::evaluation::loadSections(g.paths.dataDir / "wz2008_abschnitte.csv");
    using tolma::evaluation::Grouping;
    for (const auto& [grouping, name] : {std::pair{Grouping::Section, "Wirtschaftsabschnitt"},
                                         std::pair{Grouping::Municipality, "Gemeinde"},
                                         std::pair{Grouping::LegalForm, "Rechtsform"},
                                         std::pair{Grouping::Reason, "Meldegrund"}}) {
        tolma::evaluation::Query query;
        query.from = {1900, 1};
        query.to = {2100, 12};
        query.grouping = grouping;
        const auto start = std::chrono::steady_clock::now();
        const std::clock_t cpuStart = std::clock();
        const auto result = tolma::evaluation::evaluate(g, query, sections);
        const double ms =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
        // The process's CPU time as well: another program on the machine does not inflate it.
        const double cpuMs = 1000.0 * static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
        std::cout << "Auswertung von " << n << " Betrieben nach " << name << ": " << ms
                  << " ms (CPU " << cpuMs << " ms), "
                  << result.sum.anmeldungen + result.sum.ummeldungen + result.sum.abmeldungen
                  << " Meldungen gezählt\n";
    }
    return 0;
}
