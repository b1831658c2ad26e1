#include <ostream>

#include "cli/cli.h"

namespace tolma::cli {

int commandPrint(const Options&, const std::vector<std::string>&, std::ostream&, std::ostream& err) {
    err << "Drucken ist in dieser Fassung noch nicht verfügbar.\n";
    return kExitUsage;
}

}  // namespace tolma::cli
