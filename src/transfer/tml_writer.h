#pragma once

#include <string>
#include <string_view>

#include "core/output_file.h"

namespace tolma::transfer {

// Lines of a transfer file: Windows-1252, each closed by CR LF. A character the code page
// cannot hold is written as "?"; line() counts them for the caller to report.
//
// The lines go to an OutputFile readable by its owner only: the file gets its name only when all
// of it is on the disk. A full disk or a missing right raises the old platform's file error
// (61, 70, 75, 76) instead of leaving a cut file that looks whole.
class TmlWriter {
  public:
    TmlWriter() = default;
    ~TmlWriter() = default;
    TmlWriter(const TmlWriter&) = delete;
    TmlWriter& operator=(const TmlWriter&) = delete;

    void open(const std::string& path);
    // Open from open() to commit, keepUnfinished or discard, also after a write failed.
    bool isOpen() const { return open_; }
    // Writes one line; returns the number of characters written as "?".
    int line(std::string_view utf8);
    // Puts the lines written so far into the file.
    void flush();
    // Flushes, syncs and closes the file and gives it its name.
    void commit();
    // Closes the file and gives it its name as it stands, for a run the user stopped.
    void keepUnfinished();
    // Closes and removes the unfinished file; never fails.
    void discard() noexcept;

    // The name the file gets while it is written.
    static std::string temporaryName(const std::string& path) {
        return core::OutputFile::temporaryName(path).string();
    }

  private:
    core::OutputFile file_;
    std::string buffer_;
    bool open_ = false;
};

// Removes the unfinished transfer files ("….tml.unvollstaendig") an export left in `dir` when it
// was killed; nothing else. They can be as large as a whole export and nothing else takes them.
void removeUnfinishedTransferFiles(const std::string& dir);

}  // namespace tolma::transfer
