#pragma once

#include <filesystem>
#include <optional>

namespace tolma::cli {

// What precedes the command: where the program's home is.
struct Options {
    std::optional<std::filesystem::path> home;
};

}  // namespace tolma::cli
