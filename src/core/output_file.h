#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "core/error_log.h"

// Every file the program writes for the user (transfer files, reports, evaluations) is written
// here: whole under its name, or not at all.
namespace tolma::core {

// Who may read a new output file. Private for anything with names, addresses or birth dates;
// Shared (as the umask allows) for counts only.
enum class FileAccess { Private, Shared };

// A file that could not be written, with the old platform's file error (61 disk full, 70 access
// denied, 76 path not found, 75 any other) and the cause in a clerk's words.
class FileWriteError : public RuntimeError {
  public:
    FileWriteError(int errnoCode, const std::string& path);
    int errnoCode() const { return errno_; }
    // "Nicht genügend Speicherplatz auf dem Datenträger", "Zugriff verweigert", ...
    std::string cause() const;

  private:
    int errno_;
};

// The file is written under a temporary name beside its target; every write, the sync and the
// close are checked, and only then does it get its name. On any failure the temporary file is
// removed and nothing stands under the name (a file that stood there before stays as it was).
// Each write is counted against the disk_space test hook.
class OutputFile {
  public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Creates the temporary file; throws FileWriteError when the directory takes no file.
    void open(const std::filesystem::path& path, FileAccess access);
    bool isOpen() const { return fd_ >= 0; }
    // Throws FileWriteError; the temporary file is gone then, and every later write and the
    // commit throw the same, so that a caller who goes on after an error never names a cut
    // file as written.
    void write(std::string_view bytes);
    // Syncs (unless told not to), closes and names the file. Throws FileWriteError.
    enum class Sync { Yes, No };
    void commit(Sync sync = Sync::Yes);
    // Closes and removes the temporary file; never fails.
    void discard() noexcept;

    const std::filesystem::path& path() const { return path_; }

    // The name a file has while it is written.
    static std::filesystem::path temporaryName(const std::filesystem::path& path) {
        return path.string() + ".unvollstaendig";
    }

  private:
    [[noreturn]] void fail(int errnoCode);

    int fd_ = -1;
    int failure_ = 0;  // the errno of the write that failed
    std::filesystem::path path_, temp_;
};

// The whole of `bytes` as the file `path`, through an OutputFile.
void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes,
                         FileAccess access);

}  // namespace tolma::core
