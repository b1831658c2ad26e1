#include "core/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <vector>

#include "core/output_file.h"
#include "text/text.h"

namespace tolma::core {

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
    const std::string wanted = text::upperAscii(name);
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec))
        if (text::upperAscii(entry.path().filename().string()) == wanted) return entry.path();
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
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) failCopy(from, errno);
    try {
        OutputFile out;
        out.open(to, FileAccess::Private);
        std::vector<char> buffer(1 << 20);
        for (;;) {
            const ssize_t got = ::read(in, buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) failCopy(from, errno);
            if (got == 0) break;
            out.write(std::string_view(buffer.data(), static_cast<size_t>(got)));
        }
        out.commit();
    } catch (const FileWriteError& e) {
        ::close(in);
        failCopy(to, e.errnoCode());
    } catch (...) {
        ::close(in);
        throw;
    }
    ::close(in);
}

std::string irregularFileCause(const std::filesystem::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return {};
    const char* kind = S_ISFIFO(st.st_mode)                         ? "eine benannte Pipe (FIFO)"
                       : S_ISDIR(st.st_mode)                        ? "ein Verzeichnis"
                       : S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) ? "ein Gerät"
                       : S_ISSOCK(st.st_mode)                       ? "ein Socket"
                                                                    : nullptr;
    return kind ? std::string("Sie ist ") + kind + ", keine gewöhnliche Datei."
                : "Sie ist keine gewöhnliche Datei.";
}

bool createPrivateDirectory(const std::filesystem::path& dir) {
    if (::mkdir(dir.c_str(), 0700) == 0) return true;
    if (errno == EEXIST) return false;
    failCopy(dir, errno);
}

}  // namespace tolma::core
