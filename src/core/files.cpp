#include "core/files.h"

#include <cctype>

namespace tolma::core {

std::string upperCase(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Dir(const std::string& path) {
    if (path.empty()) return {};
    std::error_code ec;
    std::filesystem::path p(path);
    if (!std::filesystem::exists(p, ec)) return {};
    if (p.filename().empty()) p = p.parent_path();
    return p.filename().string();
}

std::optional<std::filesystem::path> findIgnoringCase(const std::filesystem::path& dir,
                                                      const std::string& name) {
    std::error_code ec;
    if (std::filesystem::exists(dir / name, ec)) return dir / name;
    const std::string wanted = upperCase(name);
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec))
        if (upperCase(entry.path().filename().string()) == wanted) return entry.path();
    return std::nullopt;
}

}  // namespace tolma::core
