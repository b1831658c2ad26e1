#include "transfer/tml_writer.h"

#include <filesystem>

#include "model/codepage.h"

namespace tolma::transfer {

void TmlWriter::open(const std::string& path) {
    discard();
    // Transfer files hold personal data: readable by their owner only.
    file_.open(path, core::FileAccess::Private);
    open_ = true;
}

int TmlWriter::line(std::string_view utf8) {
    int lost = 0;
    model::appendUtf8AsCp1252(buffer_, utf8, &lost);
    buffer_ += "\r\n";
    // Written in pieces of a good size rather than line by line.
    if (buffer_.size() >= (1 << 16)) flush();
    return lost;
}

void TmlWriter::flush() {
    if (!open_) return;
    // The buffer keeps its room for the next lines, which would grow it anew from nothing each
    // time; what failed to be written is not tried again.
    try {
        file_.write(buffer_);
    } catch (...) {
        buffer_.clear();
        throw;
    }
    buffer_.clear();
}

void TmlWriter::commit() {
    if (!open_) return;
    flush();
    open_ = false;
    file_.commit();
}

void TmlWriter::keepUnfinished() {
    if (!open_) return;
    flush();
    open_ = false;
    file_.commit(core::OutputFile::Sync::No);
}

void TmlWriter::discard() noexcept {
    buffer_.clear();
    open_ = false;
    file_.discard();
}

void removeUnfinishedTransferFiles(const std::string& dir) {
    const std::string suffix = TmlWriter::temporaryName(".tml");
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir.empty() ? "." : dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= suffix.size() ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            continue;
        if (entry.is_regular_file(ec) || entry.is_symlink(ec))
            std::filesystem::remove(entry.path(), ec);
    }
}

}  // namespace tolma::transfer
