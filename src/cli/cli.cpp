#include "cli/cli.h"

#include <ostream>

#include "cli/options.h"
#include "core/version.h"

namespace tolma::cli {
namespace {

void usage(std::ostream& err) {
    err << "Aufruf:\n"
           "  tolma-cli [--home VERZEICHNIS] sql [--settings] ANWEISUNG\n"
           "  tolma-cli --version\n";
}

}  // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    Options options;
    size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--version") {
            out << core::kProductName << " " << core::kVersionText << "\n";
            return kExitOk;
        }
        if (a == "--home") {
            if (i + 1 >= args.size()) {
                usage(err);
                return kExitUsage;
            }
            options.home = args[++i];
        } else if (a == "--help" || a == "-h") {
            usage(out);
            return kExitOk;
        } else {
            break;
        }
    }
    if (i >= args.size()) {
        usage(err);
        return kExitUsage;
    }
    const std::string command = args[i];
    const std::vector<std::string> rest(args.begin() + static_cast<long>(i) + 1, args.end());
    if (command == "sql") return commandSql(options, rest, out, err);
    err << "Unbekannter Befehl: " << command << "\n";
    usage(err);
    return kExitUsage;
}

}  // namespace tolma::cli
