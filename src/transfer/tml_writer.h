#pragma once

#include <fstream>
#include <string>
#include <string_view>

namespace tolma::transfer {

// Lines of a transfer file: Windows-1252, each closed by CR LF. A character the code page
// cannot hold is written as "?"; lostCharacters() counts them for the caller to report.
class TmlWriter {
public:
    bool open(const std::string& path);
    bool isOpen() const { return out_.is_open(); }
    // Writes one line; returns the number of characters written as "?".
    int line(std::string_view utf8);
    // Puts the lines written so far into the file.
    void flush();
    void close();

private:
    std::ofstream out_;
    std::string buffer_;
};

}  // namespace tolma::transfer
