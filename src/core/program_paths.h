#pragma once

#include <filesystem>
#include <optional>

// Where the program's files live: the writable home with "Log", "Dat" and "DB", and the
// install data directory that holds the default stores and the help page.
namespace tolma::core {

struct ProgramPaths {
    std::filesystem::path home;     // pfad_app
    std::filesystem::path dataDir;  // default stores, "hilfe.htm"

    std::filesystem::path logDir() const { return home / "Log"; }
    std::filesystem::path datDir() const { return home / "Dat"; }
    std::filesystem::path dbDir() const { return home / "DB"; }
};

// Beside the executable in the build tree or a portable copy, "share/tolma" when installed.
std::filesystem::path installDataDir(const std::filesystem::path& executableDir);

// The executable's directory when it is writable and holds the default stores, else
// "$XDG_DATA_HOME/TOLMA_4x_Access"; `homeOverride` (the CLI's --home) wins over both.
ProgramPaths resolvePaths(const std::filesystem::path& executableDir,
                          const std::optional<std::filesystem::path>& homeOverride);

// The directory of the running executable.
std::filesystem::path executableDir();

}  // namespace tolma::core
