#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "cli/cli.h"

// tolma-cli's commands run in the test's process on a home of the test's own, every question
// answered Yes.
namespace tolma::testing {

struct CliResult {
    int code;
    std::string out, err;
};

inline CliResult cli(const std::string& home, std::vector<std::string> args) {
    args.insert(args.begin(), {"--home", home, "--yes"});
    std::ostringstream out, err;
    const int code = cli::run(args, out, err);
    return {code, out.str(), err.str()};
}

}  // namespace tolma::testing
