#include "core/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/files.h"
#include "store/disk_space.h"

namespace tolma::core {
namespace {

long errorNumber(int code) {
    switch (code) {
        case ENOSPC:
        case EDQUOT:
            return kDiskFullError;
        case EACCES:
        case EPERM:
        case EROFS:
            return kAccessDeniedError;
        case ENOENT:
        case ENOTDIR:
            return kPathNotFoundError;
        default:
            return 75;
    }
}

std::string errorText(int code, const std::string& path) {
    switch (errorNumber(code)) {
        case kDiskFullError:
            // In the words the stores use for a full disk, so a clerk reads one cause.
            return "Nicht genügend Speicherplatz auf dem Datenträger für die Datei '" + path + "'.";
        case kAccessDeniedError:
            return "Zugriff verweigert: '" + path + "'";
        case kPathNotFoundError:
            return "Pfad nicht gefunden: '" + path + "'";
        default:
            return "Fehler beim Zugriff auf Pfad/Datei: '" + path + "' (" + writeFailure(code) +
                   ")";
    }
}

}  // namespace

FileWriteError::FileWriteError(int errnoCode, const std::string& path)
    : RuntimeError(errorNumber(errnoCode), errorText(errnoCode, path)), errno_(errnoCode) {}

std::string FileWriteError::cause() const {
    switch (number()) {
        case kDiskFullError:
            return "Nicht genügend Speicherplatz auf dem Datenträger";
        case kAccessDeniedError:
            return "Zugriff verweigert";
        case kPathNotFoundError:
            return "Pfad nicht gefunden";
        default:
            return writeFailure(errno_);
    }
}

OutputFile::~OutputFile() {
    discard();
}

void OutputFile::fail(int errnoCode) {
    discard();
    failure_ = errnoCode;
    throw FileWriteError(errnoCode, path_.string());
}

void OutputFile::open(const std::filesystem::path& path, FileAccess access) {
    discard();
    failure_ = 0;
    path_ = path;
    temp_ = temporaryName(path);
    // A temporary file left by a killed run may carry other rights: made anew, never reused.
    ::unlink(temp_.c_str());
    const mode_t mode = access == FileAccess::Private ? 0600 : 0666;
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd_ < 0) {
        const int code = errno;
        temp_.clear();  // not ours to remove
        fail(code);
    }
}

void OutputFile::write(std::string_view bytes) {
    if (fd_ < 0) fail(failure_ ? failure_ : EBADF);
    size_t done = 0;
    while (done < bytes.size()) {
        const size_t n = bytes.size() - done;
        if (!store::disk_space::take(n)) fail(ENOSPC);
        const ssize_t w = ::write(fd_, bytes.data() + done, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            fail(errno);
        }
        done += static_cast<size_t>(w);
    }
}

void OutputFile::commit(Sync sync) {
    if (fd_ < 0) fail(failure_ ? failure_ : EBADF);
    if (sync == Sync::Yes && ::fsync(fd_) != 0) fail(errno);
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) fail(errno);
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) fail(errno);
    temp_.clear();
    if (sync == Sync::Yes) syncDirectory(path_.parent_path());
}

void OutputFile::discard() noexcept {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!temp_.empty()) ::unlink(temp_.c_str());
    temp_.clear();
}

void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes,
                         FileAccess access) {
    OutputFile file;
    file.open(path, access);
    file.write(bytes);
    file.commit();
}

}  // namespace tolma::core
