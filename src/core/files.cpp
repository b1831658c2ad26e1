#include "core/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "store/disk_space.h"

namespace tolma::core {

std::string upperCase(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Dir(const std::string& path) {
    if (path.empty()) return {};
    std::error_code ec;
    std::filesystem::path p(path);
    if (!std::filesystem::exists(p, ec)) return {};
    if (p.filename().empty()) p = p.parent_path();
    return p.filename().string();
}

std::optional<std::filesystem::path> findIgnoringCase(const std::filesystem::path& dir,
                                                      const std::string& name) {
    std::error_code ec;
    if (std::filesystem::exists(dir / name, ec)) return dir / name;
    const std::string wanted = upperCase(name);
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec))
        if (upperCase(entry.path().filename().string()) == wanted) return entry.path();
    return std::nullopt;
}

namespace {

[[noreturn]] void failCopy(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("FileCopy", path,
                                            std::error_code(code, std::generic_category()));
}

}  // namespace

void syncDirectory(const std::filesystem::path& dir) {
    const int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

void copyFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to) {
    const std::filesystem::path temp = to.string() + ".unvollstaendig";
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) failCopy(from, errno);
    const int out = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) {
        const int code = errno;
        ::close(in);
        failCopy(to, code);
    }
    int code = 0;
    std::vector<char> buffer(1 << 20);
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            if (got < 0) code = errno;
            break;
        }
        for (ssize_t done = 0; done < got && code == 0;) {
            if (!store::disk_space::take(static_cast<size_t>(got - done))) {
                code = ENOSPC;
                break;
            }
            const ssize_t w = ::write(out, buffer.data() + done, static_cast<size_t>(got - done));
            if (w < 0 && errno != EINTR) code = errno;
            if (w > 0) done += w;
        }
        if (code) break;
    }
    if (code == 0 && ::fsync(out) != 0) code = errno;
    if (::close(out) != 0 && code == 0) code = errno;
    ::close(in);
    if (code == 0 && std::rename(temp.c_str(), to.c_str()) != 0) code = errno;
    if (code != 0) {
        ::unlink(temp.c_str());
        failCopy(to, code);
    }
    syncDirectory(to.parent_path());
}

bool createPrivateDirectory(const std::filesystem::path& dir) {
    if (::mkdir(dir.c_str(), 0700) == 0) return true;
    if (errno == EEXIST) return false;
    failCopy(dir, errno);
}

}  // namespace tolma::core
