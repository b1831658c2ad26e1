// tolma-generate-tml: writes a large transfer file for import benchmarks and prints how
// fast it was written.

#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "tml_generator.h"

namespace {

constexpr const char* kUsage =
    "Aufruf: tolma-generate-tml N DATEI [--seed S] [--struktur BETRIEBSBEZOGEN|MELDUNGSBEZOGEN]"
    " [--staende K] [--geaendert-jeder M] [--runde R]\n";

template <class Number>
bool parseNumber(std::string_view text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

int usage() {
    std::cerr << kUsage;
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    tolma::bench::GeneratorOptions options;
    std::string path;
    int positional = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--seed" && hasValue) {
            if (!parseNumber(argv[++i], options.seed)) return usage();
        } else if (arg == "--struktur" && hasValue) {
            options.structure = argv[++i];
            if (options.structure != "BETRIEBSBEZOGEN" && options.structure != "MELDUNGSBEZOGEN")
                return usage();
        } else if (arg == "--staende" && hasValue) {
            if (!parseNumber(argv[++i], options.historyStates) || options.historyStates < 1 ||
                options.historyStates > 9999)
                return usage();
        } else if (arg == "--geaendert-jeder" && hasValue) {
            if (!parseNumber(argv[++i], options.changedEvery) || options.changedEvery < 0)
                return usage();
        } else if (arg == "--runde" && hasValue) {
            if (!parseNumber(argv[++i], options.changeRound)) return usage();
        } else if (positional == 0 && !arg.starts_with("--")) {
            if (!parseNumber(arg, options.businesses) || options.businesses < 0) return usage();
            ++positional;
        } else if (positional == 1 && !arg.starts_with("--")) {
            path = arg;
            ++positional;
        } else {
            return usage();
        }
    }
    if (positional != 2) return usage();

    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        std::cerr << "Datei kann nicht geschrieben werden: " << path << "\n";
        return 1;
    }
    const auto start = std::chrono::steady_clock::now();
    try {
        tolma::bench::writeTransferFile(out, options);
        out.close();
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
    if (!out) {
        std::cerr << "Fehler beim Schreiben: " << path << "\n";
        return 1;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::ifstream written(path, std::ios::binary | std::ios::ate);
    const double megabytes = static_cast<double>(written.tellg()) / 1e6;
    std::printf("%ld Betriebe x %d Stände, %.1f MB in %.2f s: %.0f MB/s\n", options.businesses,
                options.historyStates, megabytes, seconds, megabytes / seconds);
    return 0;
}
