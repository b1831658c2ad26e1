#include "core/association.h"

#include <fcntl.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

#include "core/error_log.h"
#include "core/output_file.h"
#include "core/settings.h"
#include "core/version.h"
#include "text/text.h"

namespace tolma::core {
namespace {

constexpr const char* kTmlExtension = "tml";
constexpr const char* kOpenCommandKey = "shell\\open\\command";
constexpr const char* kDefaultGroup = "[Default Applications]";
// The length of "TOLMA_4x_Access": the check compares this many characters, whatever the name.
constexpr std::size_t kComparedLength = 15;

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A desktop or the file manager may read the file at any moment: never let it see half of it.
bool writeSharedFile(const std::filesystem::path& path, const std::string& text) {
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    if (ec) return false;
    try {
        writeFileAtomically(path, text, FileAccess::Shared);
        return true;
    } catch (const FileWriteError&) {
        return false;
    }
}

// The escapes of a string value in a desktop entry file.
std::string escapeDesktopString(const std::string& s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        switch (s[i]) {
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            case ' ':
                // A leading blank would be trimmed away.
                out += i == 0 ? "\\s" : " ";
                break;
            default:
                out += s[i];
        }
    }
    return out;
}

// --- mimeapps.list -------------------------------------------------------------------------

bool isGroupHeader(const std::string& line) {
    const std::string t = std::string(text::trimmed(line, " \t\r"));
    return !t.empty() && t.front() == '[';
}

// The line index of `mimeType`'s entry in [Default Applications], and the header's index.
struct DefaultEntry {
    std::optional<std::size_t> header, entry;
};

DefaultEntry findDefaultEntry(const std::vector<std::string>& lines, const std::string& mimeType) {
    DefaultEntry found;
    bool inGroup = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (isGroupHeader(lines[i])) {
            inGroup = std::string(text::trimmed(lines[i], " \t\r")) == kDefaultGroup;
            if (inGroup && !found.header) found.header = i;
            continue;
        }
        const auto eq = lines[i].find('=');
        if (inGroup && eq != std::string::npos &&
            std::string(text::trimmed(lines[i].substr(0, eq), " \t\r")) == mimeType) {
            found.entry = i;
            return found;
        }
    }
    return found;
}

// The first desktop id of the entry; the list may name several, the first one wins.
std::optional<std::string> defaultHandler(const std::filesystem::path& mimeapps,
                                          const std::string& mimeType) {
    const auto text = readFile(mimeapps);
    if (!text) return std::nullopt;
    const auto lines = splitLines(*text);
    const auto found = findDefaultEntry(lines, mimeType);
    if (!found.entry) return std::nullopt;
    std::istringstream ids(lines[*found.entry].substr(lines[*found.entry].find('=') + 1));
    for (std::string id; std::getline(ids, id, ';');)
        if (!std::string(text::trimmed(id, " \t\r")).empty())
            return std::string(text::trimmed(id, " \t\r"));
    return std::nullopt;
}

// Sets the default handler and keeps every other line of the user's file as it was.
bool setDefaultHandler(const std::filesystem::path& mimeapps, const std::string& mimeType,
                       const std::string& desktopFileName) {
    std::vector<std::string> lines = splitLines(readFile(mimeapps).value_or(""));
    const std::string entry = mimeType + "=" + desktopFileName + ";";
    const auto found = findDefaultEntry(lines, mimeType);
    if (found.entry) {
        lines[*found.entry] = entry;
    } else if (found.header) {
        lines.insert(lines.begin() + std::ptrdiff_t(*found.header + 1), entry);
    } else {
        if (!lines.empty() && !std::string(text::trimmed(lines.back(), " \t\r")).empty())
            lines.emplace_back();
        lines.emplace_back(kDefaultGroup);
        lines.push_back(entry);
    }
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return writeSharedFile(mimeapps, text);
}

// --- the desktop file and the MIME type ----------------------------------------------------

// The raw (still escaped) value of `key` in our desktop file.
std::optional<std::string> desktopValue(const std::filesystem::path& file, const std::string& key) {
    const auto text = readFile(file);
    if (!text) return std::nullopt;
    for (const auto& line : splitLines(*text)) {
        const auto eq = line.find('=');
        if (eq != std::string::npos &&
            std::string(text::trimmed(line.substr(0, eq), " \t\r")) == key)
            return std::string(text::trimmed(line.substr(eq + 1), " \t\r"));
    }
    return std::nullopt;
}

bool writeDesktopFile(const std::filesystem::path& file, const std::optional<std::string>& name,
                      const std::optional<std::string>& exec) {
    std::string text = "[Desktop Entry]\nType=Application\n";
    text += "Name=" + name.value_or(kProductName) + "\n";
    text += "Comment=Schnittstellenprogramm für Gewerbemeldungen\n";
    if (exec) text += "Exec=" + *exec + "\n";
    text += "Icon=tolma\nTerminal=false\n";
    text += std::string("MimeType=") + kTmlMimeType + ";\n";
    text += "Categories=Office;\n";
    return writeSharedFile(file, text);
}

std::string mimePackageText() {
    return std::string(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
               "  <mime-type type=\"") +
           kTmlMimeType +
           "\">\n"
           "    <comment>TOLMA-Transferdatei</comment>\n"
           "    <comment xml:lang=\"de\">TOLMA-Transferdatei</comment>\n"
           "    <sub-class-of type=\"text/plain\"/>\n"
           "    <icon name=\"tolma\"/>\n"
           "    <glob pattern=\"*.tml\"/>\n"
           "  </mime-type>\n"
           "</mime-info>\n";
}

// The desktop's MIME cache must learn the new type; without the tool the next login or a
// later run of it does that, so neither its absence nor its failure matters.
void refreshMimeDatabase(const std::filesystem::path& mimeDir) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = "update-mime-database";
    std::string dir = mimeDir.string();
    char* argv[] = {program.data(), dir.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv, environ) == 0) {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

enum class KeyKind { Unknown, Extension, Program };

KeyKind kindOf(const std::string& name) {
    if (equalsIgnoringCase(name, std::string(".") + kTmlExtension)) return KeyKind::Extension;
    if (equalsIgnoringCase(name, kProductName)) return KeyKind::Program;
    return KeyKind::Unknown;
}

std::filesystem::path baseDirectory(const char* variable, const char* fallbackBelowHome) {
    // Unset, empty or relative: the variable counts as not set.
    if (const char* v = std::getenv(variable); v && *v == '/') return v;
    std::filesystem::path home;
    if (const char* h = std::getenv("HOME"); h && *h) {
        home = h;
    } else if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) {
        home = pw->pw_dir;
    }
    return home / fallbackBelowHome;
}

// Adds a result to the 16-bit sum of the registration; leaving its range is an overflow.
std::int16_t addResult(std::int16_t sum, long result) {
    const long total = long(sum) + result;
    if (result < INT16_MIN || result > INT16_MAX || total < INT16_MIN || total > INT16_MAX)
        throw RuntimeError(6, "Überlauf");
    return std::int16_t(total);
}

}  // namespace

XdgDirectories XdgDirectories::fromEnvironment() {
    return {baseDirectory("XDG_DATA_HOME", ".local/share"),
            baseDirectory("XDG_CONFIG_HOME", ".config")};
}

XdgFileTypeRegistry::XdgFileTypeRegistry(XdgDirectories dirs) : dirs_(std::move(dirs)) {}

std::filesystem::path XdgFileTypeRegistry::desktopFile() const {
    return dirs_.dataHome / "applications" / (std::string(kDesktopId) + ".desktop");
}
std::filesystem::path XdgFileTypeRegistry::mimeappsList() const {
    return dirs_.configHome / "mimeapps.list";
}
std::filesystem::path XdgFileTypeRegistry::mimePackage() const {
    return dirs_.dataHome / "mime" / "packages" / "tolma-tml.xml";
}

long XdgFileTypeRegistry::RegOpenKey(const std::string& subKey, RegistryKey& key) {
    key = {subKey, false};
    std::error_code ec;
    bool exists = false;
    switch (kindOf(subKey)) {
        case KeyKind::Extension:
            exists = std::filesystem::exists(mimePackage(), ec) ||
                     defaultHandler(mimeappsList(), kTmlMimeType).has_value();
            break;
        case KeyKind::Program:
            exists = std::filesystem::exists(desktopFile(), ec);
            break;
        case KeyKind::Unknown:
            break;
    }
    key.open = exists;
    return exists ? reg::ERROR_SUCCESS : reg::ERROR_FILE_NOT_FOUND;
}

long XdgFileTypeRegistry::RegQueryValue(const RegistryKey& key, const std::string& subKey,
                                        std::string& buffer, long& length) {
    if (!key.open) return reg::ERROR_INVALID_HANDLE;
    std::optional<std::string> value;
    const KeyKind kind = kindOf(key.name);
    if (kind == KeyKind::Extension && subKey.empty()) {
        value = defaultHandler(mimeappsList(), kTmlMimeType);
        if (value) {
            if (value->ends_with(".desktop")) value->resize(value->size() - 8);
            if (*value == kDesktopId) value = kProductName;
        }
    } else if (kind == KeyKind::Program && subKey.empty()) {
        value = desktopValue(desktopFile(), "Name");
    }
    if (!value) return reg::ERROR_FILE_NOT_FOUND;
    const long needed = long(value->size()) + 1;
    if (needed > length) {
        length = needed;
        return reg::ERROR_MORE_DATA;
    }
    if (buffer.size() < std::size_t(needed)) buffer.resize(std::size_t(needed));
    buffer.replace(0, value->size() + 1, *value + '\0');
    length = needed;
    return reg::ERROR_SUCCESS;
}

long XdgFileTypeRegistry::RegCreateKey(const std::string& subKey, RegistryKey& key) {
    key = {subKey, false};
    std::error_code ec;
    switch (kindOf(subKey)) {
        case KeyKind::Extension:
            std::filesystem::create_directories(mimePackage().parent_path(), ec);
            if (!ec) std::filesystem::create_directories(dirs_.configHome, ec);
            break;
        case KeyKind::Program:
            std::filesystem::create_directories(desktopFile().parent_path(), ec);
            break;
        case KeyKind::Unknown:
            return reg::ERROR_ACCESS_DENIED;
    }
    if (ec) return reg::ERROR_ACCESS_DENIED;
    key.open = true;
    return reg::ERROR_SUCCESS;
}

long XdgFileTypeRegistry::RegSetValue(const RegistryKey& key, const std::string& subKey, int type,
                                      const std::string& data, long /*length*/) {
    if (!key.open) return reg::ERROR_INVALID_HANDLE;
    if (type != reg::REG_SZ) return reg::ERROR_INVALID_PARAMETER;
    const KeyKind kind = kindOf(key.name);
    bool written = false;
    if (kind == KeyKind::Extension && subKey.empty()) {
        const std::string id = equalsIgnoringCase(data, kProductName) ? kDesktopId : data;
        written = writeSharedFile(mimePackage(), mimePackageText()) &&
                  setDefaultHandler(mimeappsList(), kTmlMimeType, id + ".desktop");
        if (written) refreshMimeDatabase(mimePackage().parent_path().parent_path());
    } else if (kind == KeyKind::Program && subKey.empty()) {
        written = writeDesktopFile(desktopFile(), escapeDesktopString(data),
                                   desktopValue(desktopFile(), "Exec"));
    } else if (kind == KeyKind::Program && equalsIgnoringCase(subKey, kOpenCommandKey)) {
        // "<program> %1": the file placeholder of the old shell becomes the field code %f.
        std::string exec;
        if (data.ends_with(" %1"))
            exec = desktopExecLine(data.substr(0, data.size() - 3));
        else
            exec = escapeDesktopString(data);
        written = writeDesktopFile(desktopFile(), desktopValue(desktopFile(), "Name"), exec);
    } else {
        return reg::ERROR_ACCESS_DENIED;
    }
    return written ? reg::ERROR_SUCCESS : reg::ERROR_ACCESS_DENIED;
}

std::string desktopExecLine(const std::string& program) {
    // Inside double quotes the format wants ", `, $ and \ escaped by a backslash; a percent sign
    // would start a field code. The string escapes of the file come on top of that quoting.
    std::string quoted = "\"";
    for (char c : program) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        if (c == '%') quoted += '%';
        quoted += c;
    }
    quoted += '"';
    return escapeDesktopString(quoted) + " %f";
}

void A_Dateiendung_registrieren(Globals& g, FileTypeRegistry& registry,
                                const std::string& description, const std::string& command,
                                const std::string& key, const std::string& extension) {
    g.log.akt_schritt = 0;
    try {
        RegistryKey hKey;
        std::int16_t summe = 0;
        summe = addResult(summe, registry.RegCreateKey(key, hKey));
        summe = addResult(summe, registry.RegSetValue(hKey, "", reg::REG_SZ, description, 0));
        summe = addResult(summe, registry.RegCreateKey("." + extension, hKey));
        summe = addResult(summe, registry.RegSetValue(hKey, "", reg::REG_SZ, key, 0));
        summe = addResult(summe, registry.RegCreateKey(key, hKey));
        summe = addResult(summe, registry.RegSetValue(hKey, kOpenCommandKey, reg::REG_SZ,
                                                      command + " %1", 0x104));
        if (summe == 0) {
            g.settings.dateiendung_flag = -1;
            A_org_update(g);
        }
    } catch (const std::exception&) {
        // The trap only leaves: nothing is logged, and the next start tries again.
    }
}

void A_Dateiendung_pruefen(Globals& g, FileTypeRegistry& registry, const std::string& program) {
    RegistryKey hKey;
    // Its result is not looked at: a missing key shows in the query.
    registry.RegOpenKey(std::string(".") + kTmlExtension, hKey);
    // Filler that no real value begins with: after a failed query it is what gets compared.
    std::string buffer = "Gebrabbel";
    buffer.resize(255, ' ');
    long length = 100;
    const long result = registry.RegQueryValue(hKey, "", buffer, length);
    // A failed query registers here and once more below, as the filler never matches: the
    // system has always done it twice, and both runs write the same.
    if (result != reg::ERROR_SUCCESS)
        A_Dateiendung_registrieren(g, registry, kProductName, program, kProductName, kTmlExtension);
    if (buffer.substr(0, kComparedLength) != kProductName)
        A_Dateiendung_registrieren(g, registry, kProductName, program, kProductName, kTmlExtension);
}

std::function<void(Globals&)> fileAssociationCheck(std::shared_ptr<FileTypeRegistry> registry,
                                                   std::string program) {
    return [registry = std::move(registry), program = std::move(program)](Globals& g) {
        A_Dateiendung_pruefen(g, *registry, program);
    };
}

std::function<void(Globals&)> xdgFileAssociationCheck(const std::filesystem::path& program) {
    return fileAssociationCheck(std::make_shared<XdgFileTypeRegistry>(), program.string());
}

}  // namespace tolma::core
