#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "core/globals.h"

// The file association: at each start the program makes itself the handler of transfer files,
// so that a ".tml" opened in the file manager starts it with the file on its command line.
namespace tolma::core {

// Results and the one value type of the four registry operations.
namespace reg {
inline constexpr long ERROR_SUCCESS = 0;
inline constexpr long ERROR_FILE_NOT_FOUND = 2;
inline constexpr long ERROR_ACCESS_DENIED = 5;
inline constexpr long ERROR_INVALID_HANDLE = 6;
inline constexpr long ERROR_INVALID_PARAMETER = 87;
inline constexpr long ERROR_MORE_DATA = 234;
inline constexpr int REG_SZ = 1;
}  // namespace reg

// A key below the root of the file types as the operations hand it on. A key that could not be
// opened or created stays closed, and every operation on it fails.
struct RegistryKey {
    std::string name;
    bool open = false;
};

// The four operations the association runs on; each returns 0 on success, else an error code.
class FileTypeRegistry {
  public:
    virtual ~FileTypeRegistry() = default;
    virtual long RegOpenKey(const std::string& subKey, RegistryKey& key) = 0;
    // The default value of `subKey` below `key` (the empty sub-key: of `key` itself), written
    // with a closing NUL over the start of `buffer`. `length` is the room on entry and the size
    // with the NUL on return; a value without room fails with ERROR_MORE_DATA, buffer untouched.
    virtual long RegQueryValue(const RegistryKey& key, const std::string& subKey,
                               std::string& buffer, long& length) = 0;
    virtual long RegCreateKey(const std::string& subKey, RegistryKey& key) = 0;
    // `length` is ignored for REG_SZ: the text's own length counts.
    virtual long RegSetValue(const RegistryKey& key, const std::string& subKey, int type,
                             const std::string& data, long length) = 0;
};

// The per-user base directories of the desktop: data (applications, MIME types) and
// configuration (the default handlers).
struct XdgDirectories {
    std::filesystem::path dataHome;
    std::filesystem::path configHome;

    // $XDG_DATA_HOME or ~/.local/share, $XDG_CONFIG_HOME or ~/.config.
    static XdgDirectories fromEnvironment();
};

inline constexpr const char* kTmlMimeType = "application/x-tolma-tml";
inline constexpr const char* kDesktopId = "tolma";

// The registry's keys on a freedesktop.org desktop:
//   ".tml"                                   the default handler of kTmlMimeType in
//                                            "mimeapps.list", with the MIME type's definition
//                                            in "mime/packages/tolma-tml.xml"
//   "TOLMA_4x_Access"                        "applications/tolma.desktop", its Name
//   "TOLMA_4x_Access" "shell\open\command"   the same file's Exec: "<program> %1" becomes the
//                                            quoted program and %f
// A handler "tolma.desktop" reads back as "TOLMA_4x_Access", any other as its desktop id
// without ".desktop". No other key can be created.
class XdgFileTypeRegistry : public FileTypeRegistry {
  public:
    explicit XdgFileTypeRegistry(XdgDirectories dirs = XdgDirectories::fromEnvironment());

    long RegOpenKey(const std::string& subKey, RegistryKey& key) override;
    long RegQueryValue(const RegistryKey& key, const std::string& subKey, std::string& buffer,
                       long& length) override;
    long RegCreateKey(const std::string& subKey, RegistryKey& key) override;
    long RegSetValue(const RegistryKey& key, const std::string& subKey, int type,
                     const std::string& data, long length) override;

    std::filesystem::path desktopFile() const;
    std::filesystem::path mimeappsList() const;
    std::filesystem::path mimePackage() const;

  private:
    XdgDirectories dirs_;
};

// The Exec value of a desktop file that starts `program` with one file: the program quoted as
// the desktop entry format wants, so that blanks and special characters stay in one argument.
std::string desktopExecLine(const std::string& program);

// Writes the three keys of the association: the program's key with `description`, the key of
// the extension pointing at it, and the program's open command (`command` and " %1"). All six
// operations succeeded: dateiendung_flag becomes true and is stored. A failure is not reported.
void A_Dateiendung_registrieren(Globals& g, FileTypeRegistry& registry,
                                const std::string& description, const std::string& command,
                                const std::string& key, const std::string& extension);

// The check at start-up: registers `program` as the handler of ".tml" unless the extension's
// value begins with the product name.
void A_Dateiendung_pruefen(Globals& g, FileTypeRegistry& registry, const std::string& program);

// The check for A_Start (StartHooks) on `registry` with `program` as the handler.
std::function<void(Globals&)> fileAssociationCheck(std::shared_ptr<FileTypeRegistry> registry,
                                                   std::string program);
// The same on the user's desktop directories.
std::function<void(Globals&)> xdgFileAssociationCheck(const std::filesystem::path& program);

}  // namespace tolma::core
