#include <ostream>

#include "cli/cli.h"

namespace tolma::cli {

int commandOptions(const Options&, const std::vector<std::string>&, std::ostream&, std::ostream& err) {
    err << "Die Optionen sind in dieser Fassung noch nicht verfügbar.\n";
    return kExitUsage;
}

}  // namespace tolma::cli
