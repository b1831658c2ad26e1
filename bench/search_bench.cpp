// Builds the search index of a store of N generated businesses and times queries in it.
//   tolma-search-bench [N]
#include <chrono>
#include <cstdlib>
#include <iostream>

#include "bench_store.h"
#include "core/globals.h"
#include "search/search_index.h"
#include "store/connection.h"

int main(int argc, char** argv) {
    const long n = argc > 1 ? std::atol(argv[1]) : 100000;
    tolma::bench::AnswerYes dialogs;
    tolma::core::Globals g;
    tolma::bench::startWithBusinesses(g, dialogs, "tolma-search-bench", n);
    auto& c = *g.db_daten.connection();
    auto start = std::chrono::steady_clock::now();
    tolma::search::buildIndex(c);
    const double build =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << "Suchindex für " << n << " Betriebe aufgebaut in " << build << " s\n";
    double worst = 0, sum = 0;
    const char* queries[] = {"Meyer",   "Mueller Bau", "Hauptstrasse", "Schmitt", "Bäckerei Husum",
                             "Petersn", "Ha"};
    for (const char* q : queries) {
        start = std::chrono::steady_clock::now();
        const auto hits = tolma::search::find(c, q, tolma::search::Kind::Both, 50);
        const double ms =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
        worst = std::max(worst, ms);
        sum += ms;
        std::cout << "  Suche '" << q << "': " << ms << " ms, " << hits.size() << " Treffer\n";
    }
    std::cout << "Suche: im Mittel " << sum / std::size(queries) << " ms, höchstens " << worst
              << " ms\n";
    return 0;
}
