#pragma once

#include <filesystem>
#include <optional>
#include <string>

// File operations of the old platform on a file system that tells case apart.
namespace tolma::core {

// Dir(path, directory attribute): the name of the file or directory at `path`, or the empty
// text when there is none.
std::string Dir(const std::string& path);

// The entry of `dir` whose name equals `name` without regard to case.
std::optional<std::filesystem::path> findIgnoringCase(const std::filesystem::path& dir,
                                                      const std::string& name);

std::string upperCase(std::string s);

}  // namespace tolma::core
