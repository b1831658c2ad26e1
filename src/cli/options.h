#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "cli/terminal_dialogs.h"

namespace tolma::cli {

// What stands around the command: the home, and how questions are answered.
struct Options {
    std::optional<std::filesystem::path> home;
    TerminalDialogs::Mode answers = TerminalDialogs::Mode::Ask;
    std::string answerScript;
    std::istream* in = nullptr;
    bool interactive = false;
};

}  // namespace tolma::cli
