#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "cli/options.h"
#include "core/globals.h"

namespace tolma::cli {

// The program's start for one command: the same A_Start as the desktop program runs.
class Session {
  public:
    Session(const Options& options, std::ostream& out);
    ~Session();

    // False when the settings store could not be opened; tells why on `err`.
    bool start(std::ostream& err);
    // The start of a command that needs the data store open: false, with the cause on `err`,
    // when it is not.
    bool startWithDataStore(std::ostream& err);
    // The way down: tells where the error log is when this run wrote to it, or why it could
    // not be written.
    void finish(std::ostream& out, std::ostream& err);
    // Refuses a command's input before the start takes the settings store: the message and
    // cause on `err`, and an entry in the log when the home has its log directory already.
    void refuseBeforeStart(std::ostream& err, const std::string& procedure,
                           const std::string& message, const std::string& cause);
    // The cause of a failure in plain words: the last entry of the error log.
    std::string cause() const;

    core::Globals g;

  private:
    void tellAboutLog(std::ostream& out) const;

    const Options& options_;
    std::unique_ptr<TerminalDialogs> dialogs_;
};

}  // namespace tolma::cli
