#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "transfer/element_fingerprint.h"

namespace tolma::transfer {

// One <betrieb> element cut into its trimmed lines, with the keys found in them: the first
// half of Upd_2_Read, which needs no store and so runs ahead on a thread of its own.
struct ReadElement {
    std::vector<std::string_view> lines;  // views into the chunk's text
    std::string betrNr, betrHistNr, bRechtsform;
    long removals = 0;                        // <meld-art> 03
    std::vector<std::string> municipalities;  // <gem-kz>
    std::vector<std::string> persNrs;         // <pers-nr>: the persons the element writes
    // What cutting the element raised; Upd_2_Read's trap reports it with the keys found so far.
    std::exception_ptr failure;
    Fingerprint fingerprint;  // of the lines, worked out here on the reading thread
};

// Cuts one element; never throws, a failure is kept in the result.
ReadElement readElement(std::string_view element);

// One block of the file: the text not consumed by the blocks before and the block itself, in
// UTF-8, and the complete elements in it.
struct ReadChunk {
    long block = 0;  // counted from 1
    // Held by pointer: the elements' lines are views into it, which a move must not upset.
    std::unique_ptr<std::string> text;
    bool holdsBetrieb = false;  // "<betrieb>" somewhere in the text
    std::vector<ReadElement> elements;
    // A closing tag ahead of its opening one, behind the elements: the driver gives up there.
    bool broken = false;
};

// Reads a transfer file block by block on a thread of its own: the raw blocks, the code page
// (Windows-1252 or UTF-8, decided on the first block), the elements and their lines. The thread
// that stores the elements takes the chunks in order and does nothing else; the reader keeps at
// most one chunk ahead of it, so memory stays bounded at any file size.
class ElementReader {
  public:
    // A pipe, a device or a directory is refused here (RuntimeError 75) rather than waited on.
    ElementReader(const std::string& path, size_t blockSize);
    ~ElementReader();
    ElementReader(const ElementReader&) = delete;
    ElementReader& operator=(const ElementReader&) = delete;

    // The next chunk; none at the end of the file. Rethrows what failed on the reading thread.
    std::optional<ReadChunk> next();

  private:
    void run();
    void cut(ReadChunk& chunk);
    void put(ReadChunk chunk);

    std::ifstream file_;
    size_t blockSize_;
    int encoding_ = 0;  // 0 not yet known, 1 Windows-1252, 2 UTF-8
    std::string carry_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<ReadChunk> ready_;
    bool done_ = false, stop_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

}  // namespace tolma::transfer
