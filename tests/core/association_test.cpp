// The file association at start-up, on a desktop home of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "core/association.h"
#include "core_fixture.h"

namespace tolma::test {
namespace {

std::string readText(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeText(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "");
    for (std::string dir; std::getline(dirs, dir, ':');)
        if (!dir.empty() && ::access((std::filesystem::path(dir) / program).c_str(), X_OK) == 0)
            return true;
    return false;
}

// Passes every call on and records the writes; a write may be made to fail or to throw.
class RecordingRegistry : public core::FileTypeRegistry {
  public:
    explicit RecordingRegistry(core::XdgDirectories dirs) : xdg(std::move(dirs)) {}

    core::XdgFileTypeRegistry xdg;
    std::vector<std::string> writes;  // "create KEY", "set KEY|SUBKEY=DATA"
    int failingWrite = -1;            // index into writes
    bool throwOnFailingWrite = false;

    long RegOpenKey(const std::string& subKey, core::RegistryKey& key) override {
        return xdg.RegOpenKey(subKey, key);
    }
    long RegQueryValue(const core::RegistryKey& key, const std::string& subKey, std::string& buffer,
                       long& length) override {
        return xdg.RegQueryValue(key, subKey, buffer, length);
    }
    long RegCreateKey(const std::string& subKey, core::RegistryKey& key) override {
        if (failing("create " + subKey)) {
            key = {subKey, false};
            return core::reg::ERROR_ACCESS_DENIED;
        }
        return xdg.RegCreateKey(subKey, key);
    }
    long RegSetValue(const core::RegistryKey& key, const std::string& subKey, int type,
                     const std::string& data, long length) override {
        if (failing("set " + key.name + "|" + subKey + "=" + data))
            return core::reg::ERROR_ACCESS_DENIED;
        return xdg.RegSetValue(key, subKey, type, data, length);
    }

  private:
    bool failing(const std::string& write) {
        writes.push_back(write);
        if (int(writes.size()) - 1 != failingWrite) return false;
        if (throwOnFailingWrite) throw std::runtime_error("Registrierung gestört");
        return true;
    }
};

const std::string kProgram = "/opt/gewerbeamt/bin/tolma";

// A started program whose desktop lives in the test's own directory.
class AssociationTest : public ::testing::Test {
  protected:
    CoreFixture f;
    core::XdgDirectories dirs{f.dir.path() / "xdg-data", f.dir.path() / "xdg-config"};
    std::shared_ptr<RecordingRegistry> registry;

    // A new run of the program with a fresh record of writes.
    void start(const std::string& program = kProgram) {
        f.newRun();
        registry = std::make_shared<RecordingRegistry>(dirs);
        f.start({core::fileAssociationCheck(registry, program), {}});
    }
    std::filesystem::path desktopFile() const {
        return dirs.dataHome / "applications" / "tolma.desktop";
    }
    std::filesystem::path mimeapps() const { return dirs.configHome / "mimeapps.list"; }
    std::filesystem::path mimePackage() const {
        return dirs.dataHome / "mime" / "packages" / "tolma-tml.xml";
    }
    // What the check reads: the value of ".tml" as the query returns it.
    std::string tmlValue() {
        core::XdgFileTypeRegistry reader(dirs);
        core::RegistryKey key;
        reader.RegOpenKey(".tml", key);
        std::string buffer(255, ' ');
        long length = 255;
        if (reader.RegQueryValue(key, "", buffer, length) != 0) return "<keiner>";
        return buffer.substr(0, std::size_t(length) - 1);
    }
    long fieldDateiendungRegistriert() {
        auto rs = f.g().stores.db_org.OpenRecordset("Optionen");
        return rs.Fields("Dateiendung_registriert").Value().toInteger();
    }
    // The six writes of one registration.
    static std::vector<std::string> oneRegistration(const std::string& program = kProgram) {
        return {"create TOLMA_4x_Access",
                "set TOLMA_4x_Access|=TOLMA_4x_Access",
                "create .tml",
                "set .tml|=TOLMA_4x_Access",
                "create TOLMA_4x_Access",
                "set TOLMA_4x_Access|shell\\open\\command=" + program + " %1"};
    }
    static std::vector<std::string> twice(std::vector<std::string> writes) {
        auto copy = writes;
        writes.insert(writes.end(), copy.begin(), copy.end());
        return writes;
    }
};

TEST_F(AssociationTest, MissingExtensionRegistersTwiceAndWritesTheDesktopFiles) {
    start();
    EXPECT_EQ(registry->writes, twice(oneRegistration()));

    EXPECT_EQ(readText(desktopFile()),
              "[Desktop Entry]\n"
              "Type=Application\n"
              "Name=TOLMA_4x_Access\n"
              "Comment=Schnittstellenprogramm für Gewerbemeldungen\n"
              "Exec=\"/opt/gewerbeamt/bin/tolma\" %f\n"
              "Icon=tolma\n"
              "Terminal=false\n"
              "MimeType=application/x-tolma-tml;\n"
              "Categories=Office;\n");
    EXPECT_EQ(readText(mimeapps()),
              "[Default Applications]\napplication/x-tolma-tml=tolma.desktop;\n");
    const std::string xml = readText(mimePackage());
    EXPECT_NE(xml.find("<mime-type type=\"application/x-tolma-tml\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<glob pattern=\"*.tml\"/>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<comment>TOLMA-Transferdatei</comment>"), std::string::npos) << xml;
    if (onPath("update-mime-database")) {
        // The cache of the user's MIME types now knows the pattern.
        EXPECT_NE(readText(dirs.dataHome / "mime" / "globs2").find("application/x-tolma-tml:*.tml"),
                  std::string::npos);
    }
    EXPECT_EQ(tmlValue(), "TOLMA_4x_Access");

    // Recorded as a success, and the settings read back intact.
    EXPECT_EQ(f.g().settings.dateiendung_flag, -1);
    EXPECT_EQ(fieldDateiendungRegistriert(), -1);
    EXPECT_EQ(f.g().settings.db_pfad_aktuell, f.g().paths.pfad_db + "tl_4x_b.mdb");
    EXPECT_EQ(f.g().settings.datenart_wert, "BETRIEBSBEZOGEN");
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
    EXPECT_TRUE(f.dialogs.shown.empty());
}

TEST_F(AssociationTest, RegisteredSystemIsFoundAtTheNextStartAndNothingIsWritten) {
    start();
    const auto before = std::filesystem::last_write_time(mimeapps());
    const std::string desktop = readText(desktopFile());
    start();
    EXPECT_TRUE(registry->writes.empty());
    EXPECT_EQ(std::filesystem::last_write_time(mimeapps()), before);
    EXPECT_EQ(readText(desktopFile()), desktop);
    EXPECT_EQ(f.g().settings.dateiendung_flag, -1);  // as read from the settings
}

// The handler named in mimeapps.list before the start, and how often the start registers.
struct HandlerCase {
    std::string handler;
    int registrations;
};

TEST_F(AssociationTest, OnlyTheFirstFifteenCharactersOfTheValueAreCompared) {
    const std::string tooLong(120, 'x');  // longer than the 100 characters the check has room for
    for (const HandlerCase& c : std::vector<HandlerCase>{
             {"TOLMA_4x_Access_alt.desktop", 0},   // begins with the product name and goes on
             {"tolma.desktop", 0},                 // our own entry
             {"TOLMA_4x_Acces.desktop", 1},        // one character short
             {"tolma_4x_access_neu.desktop", 1},   // the comparison tells case apart
             {"org.gnome.TextEditor.desktop", 1},  // another program's
             {tooLong + ".desktop", 2},            // the query fails for want of room
         }) {
        const std::string preset =
            "[Default Applications]\napplication/x-tolma-tml=" + c.handler + ";\n";
        writeText(mimeapps(), preset);
        start();
        std::vector<std::string> expected;
        for (int i = 0; i < c.registrations; ++i) {
            const auto one = oneRegistration();
            expected.insert(expected.end(), one.begin(), one.end());
        }
        EXPECT_EQ(registry->writes, expected) << c.handler;
        if (c.registrations == 0)
            EXPECT_EQ(readText(mimeapps()), preset) << c.handler;
        else
            EXPECT_EQ(tmlValue(), "TOLMA_4x_Access") << c.handler;
    }
}

TEST_F(AssociationTest, AnotherProgramsHandlerIsTakenOverSilentlyAndTheRestOfTheFileKept) {
    writeText(mimeapps(),
              "[Added Associations]\n"
              "text/plain=org.gnome.TextEditor.desktop;\n"
              "\n"
              "[Default Applications]\n"
              "text/html=firefox-esr.desktop;\n"
              "application/x-tolma-tml=org.gnome.TextEditor.desktop;mousepad.desktop;\n"
              "image/png=eog.desktop;\n");
    EXPECT_EQ(tmlValue(), "org.gnome.TextEditor");
    start();
    EXPECT_EQ(readText(mimeapps()),
              "[Added Associations]\n"
              "text/plain=org.gnome.TextEditor.desktop;\n"
              "\n"
              "[Default Applications]\n"
              "text/html=firefox-esr.desktop;\n"
              "application/x-tolma-tml=tolma.desktop;\n"
              "image/png=eog.desktop;\n");
    EXPECT_TRUE(f.dialogs.shown.empty());
    EXPECT_EQ(f.g().settings.dateiendung_flag, -1);
}

TEST_F(AssociationTest, EntryIsAddedToAnExistingGroupOrAfterTheOthers) {
    writeText(mimeapps(), "[Default Applications]\ntext/html=firefox-esr.desktop;\n");
    start();
    EXPECT_EQ(
        readText(mimeapps()),
        "[Default "
        "Applications]\napplication/x-tolma-tml=tolma.desktop;\ntext/html=firefox-esr.desktop;\n");

    writeText(mimeapps(), "[Added Associations]\ntext/plain=mousepad.desktop;\n");
    start();
    EXPECT_EQ(readText(mimeapps()),
              "[Added Associations]\ntext/plain=mousepad.desktop;\n\n"
              "[Default Applications]\napplication/x-tolma-tml=tolma.desktop;\n");
}

TEST_F(AssociationTest, ProgramPathStaysOneArgumentWhateverItHolds) {
    struct Case {
        std::string program, exec;
    };
    for (const Case& c : std::vector<Case>{
             {"/home/amt/Gewerbe Amt/tolma", "Exec=\"/home/amt/Gewerbe Amt/tolma\" %f"},
             // Inside the quotes ", `, $ and \ take a backslash, and the file's own escapes
             // double every backslash; a percent sign is doubled.
             {"/opt/100% \"neu\"/tolma", "Exec=\"/opt/100%% \\\\\"neu\\\\\"/tolma\" %f"},
             {"/opt/$HOME`x`/a\\b/tolma", "Exec=\"/opt/\\\\$HOME\\\\`x\\\\`/a\\\\\\\\b/tolma\" %f"},
         }) {
        std::filesystem::remove(mimeapps());
        start(c.program);
        EXPECT_NE(readText(desktopFile()).find("\n" + c.exec + "\n"), std::string::npos)
            << c.program << "\n"
            << readText(desktopFile());
    }
}

TEST_F(AssociationTest, RegisteredFilesAgreeWithTheInstalledOnes) {
    start();
    EXPECT_EQ(readText(mimePackage()),
              readText(std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "tolma-tml.xml"));
    // The user's entry replaces the installed one of the same name: it differs in Exec alone.
    std::istringstream installed(
        readText(std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "tolma.desktop"));
    std::istringstream registered(readText(desktopFile()));
    std::string a, b;
    int lines = 0;
    while (std::getline(installed, a)) {
        ASSERT_TRUE(std::getline(registered, b));
        if (a.starts_with("Exec="))
            EXPECT_EQ(b, "Exec=\"/opt/gewerbeamt/bin/tolma\" %f");
        else
            EXPECT_EQ(a, b);
        ++lines;
    }
    EXPECT_FALSE(std::getline(registered, b)) << b;
    EXPECT_EQ(lines, 9);
}

TEST_F(AssociationTest, NoFileIsWrittenUnderAWoDrexHome) {
    f.newRun();
    registry = std::make_shared<RecordingRegistry>(dirs);
    core::A_Start(f.g(), f.dir.path() / "WoDrex",
                  {core::fileAssociationCheck(registry, kProgram), {}});
    EXPECT_TRUE(f.g().stores.db_org.isSet());
    EXPECT_TRUE(registry->writes.empty());
    EXPECT_FALSE(std::filesystem::exists(dirs.dataHome));
    EXPECT_FALSE(std::filesystem::exists(dirs.configHome));
}

TEST_F(AssociationTest, AnyFailedStepOfARegistrationLeavesTheFlagAndLogsNothing) {
    f.start();  // without the check
    for (int failing = 0; failing < 6; ++failing) {
        for (bool throwing : {false, true}) {
            const std::string which = std::to_string(failing) + (throwing ? " wirft" : "");
            registry = std::make_shared<RecordingRegistry>(dirs);
            registry->failingWrite = failing;
            registry->throwOnFailingWrite = throwing;
            core::A_Dateiendung_registrieren(f.g(), *registry, "TOLMA_4x_Access", kProgram,
                                             "TOLMA_4x_Access", "tml");
            // A failed call does not stop the others; an error leaves the routine at once.
            EXPECT_EQ(registry->writes.size(), throwing ? std::size_t(failing) + 1 : 6u) << which;
            EXPECT_EQ(f.g().settings.dateiendung_flag, 0) << which;
            EXPECT_EQ(fieldDateiendungRegistriert(), 0) << which;
            EXPECT_FALSE(f.g().log.fehler_vorhanden) << which << f.logText();
            EXPECT_TRUE(f.dialogs.shown.empty()) << which;
        }
    }
}

TEST_F(AssociationTest, ErrorInTheFirstRegistrationOfAStartLeavesItToTheSecond) {
    f.newRun();
    registry = std::make_shared<RecordingRegistry>(dirs);
    registry->failingWrite = 3;
    registry->throwOnFailingWrite = true;
    f.start({core::fileAssociationCheck(registry, kProgram), {}});
    EXPECT_EQ(registry->writes.size(), 4u + 6u);
    EXPECT_EQ(f.g().settings.dateiendung_flag, -1);
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
    EXPECT_TRUE(f.g().forms.startView.shown);  // the start went on
    EXPECT_EQ(tmlValue(), "TOLMA_4x_Access");
}

TEST_F(AssociationTest, RegistryThatCannotWriteLeavesTheFlagAtZeroEveryStart) {
    // A file where the desktop's data directory belongs: nothing can be created below it.
    writeText(dirs.dataHome, "kein Verzeichnis");
    for (int run = 0; run < 2; ++run) {
        start();
        EXPECT_EQ(registry->writes, twice(oneRegistration()));
        EXPECT_EQ(f.g().settings.dateiendung_flag, 0);
        EXPECT_EQ(fieldDateiendungRegistriert(), 0);
        EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
        EXPECT_FALSE(std::filesystem::exists(f.home() / "Log" / "ERROR.LOG"));
        EXPECT_TRUE(f.dialogs.shown.empty());
    }
}

TEST(XdgDirectoriesTest, EnvironmentOrTheUsualPlacesBelowHome) {
    const auto keep = [](const char* name) {
        const char* v = std::getenv(name);
        return v ? std::optional<std::string>(v) : std::nullopt;
    };
    const auto data = keep("XDG_DATA_HOME"), config = keep("XDG_CONFIG_HOME"), home = keep("HOME");
    ::setenv("HOME", "/home/amt", 1);
    ::setenv("XDG_DATA_HOME", "/srv/daten", 1);
    ::setenv("XDG_CONFIG_HOME", "relativ/zaehlt/nicht", 1);
    auto dirs = core::XdgDirectories::fromEnvironment();
    EXPECT_EQ(dirs.dataHome, "/srv/daten");
    EXPECT_EQ(dirs.configHome, "/home/amt/.config");
    ::unsetenv("XDG_DATA_HOME");
    ::setenv("XDG_CONFIG_HOME", "", 1);
    dirs = core::XdgDirectories::fromEnvironment();
    EXPECT_EQ(dirs.dataHome, "/home/amt/.local/share");
    EXPECT_EQ(dirs.configHome, "/home/amt/.config");
    const auto restore = [](const char* name, const std::optional<std::string>& v) {
        if (v)
            ::setenv(name, v->c_str(), 1);
        else
            ::unsetenv(name);
    };
    restore("XDG_DATA_HOME", data);
    restore("XDG_CONFIG_HOME", config);
    restore("HOME", home);
}

}  // namespace
}  // namespace tolma::test
