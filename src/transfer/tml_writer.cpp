#include "transfer/tml_writer.h"

#include "model/codepage.h"

namespace tolma::transfer {

bool TmlWriter::open(const std::string& path) {
    out_.open(path, std::ios::binary | std::ios::trunc);
    return out_.is_open();
}

int TmlWriter::line(std::string_view utf8) {
    int lost = 0;
    buffer_ += model::utf8ToCp1252(utf8, &lost);
    buffer_ += "\r\n";
    // Written in pieces of a good size rather than line by line.
    if (buffer_.size() >= (1 << 16)) flush();
    return lost;
}

void TmlWriter::flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    out_.flush();
    buffer_.clear();
}

void TmlWriter::close() {
    if (!out_.is_open()) return;
    flush();
    out_.close();
}

}  // namespace tolma::transfer
