#include "core/program_paths.h"

#include <unistd.h>

#include <cstdlib>

#include "model/default_stores.h"

namespace tolma::core {

std::filesystem::path installDataDir(const std::filesystem::path& executableDir) {
    if (std::filesystem::exists(executableDir / model::kSettingsStoreFile)) return executableDir;
    return executableDir.parent_path() / "share" / "tolma";
}

ProgramPaths resolvePaths(const std::filesystem::path& executableDir,
                          const std::optional<std::filesystem::path>& homeOverride) {
    ProgramPaths p;
    p.dataDir = installDataDir(executableDir);
    if (homeOverride) {
        p.home = std::filesystem::absolute(*homeOverride);
    } else if (p.dataDir == executableDir && ::access(executableDir.c_str(), W_OK) == 0) {
        p.home = executableDir;  // portable use: everything beside the program
    } else {
        const char* xdg = std::getenv("XDG_DATA_HOME");
        const char* userHome = std::getenv("HOME");
        std::filesystem::path base =
            xdg && *xdg ? std::filesystem::path(xdg)
                        : std::filesystem::path(userHome ? userHome : ".") / ".local" / "share";
        p.home = base / "TOLMA_4x_Access";
    }
    return p;
}

std::filesystem::path executableDir() {
    std::error_code ec;
    auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::current_path() : exe.parent_path();
}

}  // namespace tolma::core
