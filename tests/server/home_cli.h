#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/options.h"
#include "cli/session.h"

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

// The program started on a home as a command starts it, every question answered Yes; open()
// opens its data store, with the cause in `err` where it cannot.
struct HomeSession {
    explicit HomeSession(const std::string& home) : options(yesOn(home)), session(options, out) {}
    bool open() { return session.startWithDataStore(err); }

    static cli::Options yesOn(const std::string& home) {
        cli::Options o;
        o.home = home;
        o.answers = cli::TerminalDialogs::Mode::Yes;
        return o;
    }

    cli::Options options;
    std::ostringstream out, err;
    cli::Session session;
};

}  // namespace tolma::testing
