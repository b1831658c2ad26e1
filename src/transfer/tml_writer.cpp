#include "transfer/tml_writer.h"

#include "model/codepage.h"

namespace tolma::transfer {

bool TmlWriter::open(const std::string& path) {
    out_.open(path, std::ios::binary | std::ios::trunc);
    return out_.is_open();
}

int TmlWriter::line(std::string_view utf8) {
    int lost = 0;
    buffer_ = model::utf8ToCp1252(utf8, &lost);
    buffer_ += "\r\n";
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    return lost;
}

void TmlWriter::close() {
    if (out_.is_open()) out_.close();
}

}  // namespace tolma::transfer
