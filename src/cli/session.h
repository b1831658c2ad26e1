#pragma once

#include <iosfwd>
#include <memory>

#include "cli/options.h"
#include "core/globals.h"

namespace tolma::cli {

// The program's start for one command: the same A_Start as the desktop program runs.
class Session {
public:
    Session(const Options& options, std::ostream& out);
    ~Session();

    // False when the settings store could not be opened; the reason is in the error log.
    bool start(std::ostream& err);
    // The way down: tells where the error log is when this run wrote to it.
    void finish(std::ostream& out);

    core::Globals g;

private:
    const Options& options_;
    std::unique_ptr<TerminalDialogs> dialogs_;
};

}  // namespace tolma::cli
