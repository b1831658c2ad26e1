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

// Copies a whole file so that `to` is either missing or complete: into a temporary name beside
// it, synced, then renamed. A new file is readable by its owner only (stores hold personal
// data). Throws std::filesystem::filesystem_error; the temporary file is gone then.
void copyFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to);

// Why the file at `path` cannot be read as a file: "Sie ist eine benannte Pipe (FIFO), keine
// gewöhnliche Datei." for a pipe, a device or a directory; empty for a regular file or nothing
// at all. Reading a pipe or a device waits for a writer that may never come.
std::string irregularFileCause(const std::filesystem::path& path);

// Makes a directory readable by its owner only; false when it stood already.
bool createPrivateDirectory(const std::filesystem::path& dir);

// Flushes a directory's entries (a rename in it) to the disk.
void syncDirectory(const std::filesystem::path& dir);

}  // namespace tolma::core
