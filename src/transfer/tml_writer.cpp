#include "transfer/tml_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "core/error_log.h"
#include "model/codepage.h"
#include "store/disk_space.h"

namespace tolma::transfer {
namespace {

void syncDirectoryOf(const std::string& path) {
    const std::string dir = std::filesystem::path(path).parent_path().string();
    const int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

TmlWriter::~TmlWriter() {
    discard();
}

void TmlWriter::fail(int errnoCode) const {
    const std::string& shown = path_;
    switch (errnoCode) {
        case ENOSPC:
        case EDQUOT:
            throw core::RuntimeError(core::kDiskFullError, "Datenträger voll: '" + shown + "'");
        case EACCES:
        case EPERM:
        case EROFS:
            throw core::RuntimeError(core::kAccessDeniedError,
                                     "Zugriff verweigert: '" + shown + "'");
        case ENOENT:
        case ENOTDIR:
            throw core::RuntimeError(core::kPathNotFoundError,
                                     "Pfad nicht gefunden: '" + shown + "'");
        default:
            throw core::RuntimeError(75, "Fehler beim Zugriff auf Pfad/Datei: '" + shown + "' (" +
                                             core::writeFailure(errnoCode) + ")");
    }
}

void TmlWriter::open(const std::string& path) {
    discard();
    path_ = path;
    temp_ = temporaryName(path);
    // Transfer files hold personal data: readable by their owner only.
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd_ < 0) fail(errno);
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
    if (fd_ < 0) return;
    size_t done = 0;
    while (done < buffer_.size()) {
        const size_t n = buffer_.size() - done;
        if (!store::disk_space::take(n)) fail(ENOSPC);
        const ssize_t w = ::write(fd_, buffer_.data() + done, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            fail(errno);
        }
        done += static_cast<size_t>(w);
    }
    buffer_.clear();
}

void TmlWriter::closeFile() {
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) fail(errno);
}

void TmlWriter::commit() {
    if (fd_ < 0) return;
    flush();
    if (::fsync(fd_) != 0) fail(errno);
    closeFile();
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) fail(errno);
    syncDirectoryOf(path_);
    temp_.clear();
}

void TmlWriter::keepUnfinished() {
    if (fd_ < 0) return;
    flush();
    closeFile();
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) fail(errno);
    temp_.clear();
}

void TmlWriter::discard() noexcept {
    buffer_.clear();
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!temp_.empty()) ::unlink(temp_.c_str());
    temp_.clear();
}

}  // namespace tolma::transfer
