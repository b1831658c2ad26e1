// tolma-cli where the environment fails: a real full disk (a small tmpfs), a store on a
// read-only share, a store that is no store or is held by another program, a log that cannot
// be written. Each run must end with exit 1, a German line naming the cause, and no success.
//
// The mounts are made in a user and mount namespace of their own (unshare -rm), which needs no
// rights on the machine and vanishes with the test; where the kernel does not allow that, the
// cases that need it are skipped (the full-disk paths are also covered through the write hook).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "cli/cli.h"
#include "tml_generator.h"

namespace tolma::cli {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    int code = -1;
    std::string out;  // stdout and stderr together
};

// A word for sh, quoted so that it may hold quotes itself.
std::string sq(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell script; its last line of output is "rc=N" with tolma-cli's exit code.
Outcome shell(const std::string& script) {
    Outcome r;
    FILE* p = ::popen(("sh -c " + sq(script) + " 2>&1").c_str(), "r");
    if (!p) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
    ::pclose(p);
    const size_t at = r.out.rfind("rc=");
    if (at != std::string::npos) {
        r.code = std::atoi(r.out.c_str() + at + 3);
        r.out.erase(at);
    }
    return r;
}

bool namespacesWork() {
    static const bool works =
        shell("unshare -rm sh -c \"mount -t tmpfs tmpfs /mnt && echo rc=0\"").code == 0;
    return works;
}

class EnvironmentTest : public ::testing::Test {
  protected:
    fs::path dir = fs::temp_directory_path() / ("tolma-env-" + std::to_string(::getpid()));
    std::string home = (dir / "home").string();
    std::string cli = TOLMA_CLI;
    std::string sample = (fs::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();

    void SetUp() override {
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    // A home with the sample imported, made in-process.
    void prepareHome() {
        std::ostringstream out, err;
        ASSERT_EQ(run({"--home", home, "import", "--yes", sample}, out, err), 0) << err.str();
    }
    Outcome import(const std::string& prelude = "") {
        return shell(prelude + cli + " --home " + sq(home) + " import --yes " + sq(sample) +
                     "; echo rc=$?");
    }
    // Runs `script` with a read-only bind mount of `path` in a namespace of its own.
    Outcome readOnly(const std::string& path, const std::string& script) {
        return shell("unshare -rm sh -c " +
                     sq("mount --bind " + path + " " + path + " && mount -o remount,ro,bind " +
                        path + " " + path + " && " + script));
    }
};

TEST_F(EnvironmentTest, FullDiskFailsImportAndExportWithoutAbortOrCompleteLookingFile) {
    if (!namespacesWork()) GTEST_SKIP() << "no user and mount namespaces here";
    const std::string file = (dir / "gross.tml").string();
    {
        std::ofstream out(file, std::ios::binary);
        bench::GeneratorOptions options;
        options.businesses = 2000;
        bench::writeTransferFile(out, options);
    }
    const std::string mnt = (dir / "mnt").string();
    fs::create_directories(mnt);
    // The import of 2,000 businesses into a home on 3 MB.
    Outcome r = shell("unshare -rm sh -c " +
                      sq("mount -t tmpfs -o size=3m tmpfs " + mnt + " && { " + cli + " --home " +
                         mnt + "/home import --yes " + file + "; rc=$?; grep -c Speicherplatz " +
                         mnt + "/home/Log/ERROR.LOG; echo rc=$rc; }"));
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_EQ(r.out.substr(r.out.size() - 2), "1\n") << "one log entry: " << r.out;
    EXPECT_NE(r.out.find("Der Import ist gescheitert: Nicht genügend Speicherplatz"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find("übertragen!"), std::string::npos) << r.out;

    // The export of the sample into a Dat with 60 KB left.
    prepareHome();
    r = shell("unshare -rm sh -c " +
              sq("mount -t tmpfs -o size=60k tmpfs " + home + "/Dat && { " + cli + " --home " +
                 home + " export; rc=$?; echo Dat:; ls -A " + home + "/Dat; echo rc=$rc; }"));
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("Der Export ist gescheitert: Nicht genügend Speicherplatz"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find("erstellt!"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.substr(r.out.size() - 5), "Dat:\n") << "no file is left in Dat: " << r.out;
}

TEST_F(EnvironmentTest, UnusableDataStoreFailsTheImportAndNamesTheCause) {
    prepareHome();
    const std::string store = home + "/DB/tl_4x_b.mdb";
    const std::string saved = (dir / "saved.mdb").string();
    fs::copy_file(store, saved);
    auto restore = [&] {
        fs::remove(store + "-wal");
        fs::remove(store + "-shm");
        fs::copy_file(saved, store, fs::copy_options::overwrite_existing);
    };

    std::string garbage(100000, '\0');
    std::mt19937 random(3);
    for (auto& c : garbage) c = static_cast<char>(random());
    std::ofstream(store, std::ios::binary | std::ios::trunc) << garbage;
    Outcome r = import();
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("nicht vollständig gespeichert: Nicht erkanntes Datenbankformat"),
              std::string::npos)
        << r.out;

    std::ofstream(store, std::ios::binary | std::ios::trunc).close();
    r = import();
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("(die Datei ist leer)"), std::string::npos) << r.out;

    // Held by another program (or by a second home whose options name the same file).
    restore();
    const std::string marker = (dir / "gesperrt").string();
    r = import("{ sleep 3 | " + std::string(TOLMA_LOCK_PROBE) + " " + sq(store) + " hold " +
               sq(marker) + "; } >/dev/null 2>&1 & while [ ! -e " + sq(marker) +
               " ]; do sleep 0.05; done; ");
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("gespeichert: Die Datei '" + store + "' wird bereits verwendet"),
              std::string::npos)
        << r.out;

    if (!namespacesWork()) GTEST_SKIP() << "no user and mount namespaces here";
    restore();
    for (const std::string& path : {store, home + "/DB"}) {
        r = readOnly(path, cli + " --home " + home + " import --yes " + sample + "; echo rc=$?");
        EXPECT_EQ(r.code, 1) << path << ": " << r.out;
        EXPECT_NE(r.out.find("schreibgeschützt"), std::string::npos) << path << ": " << r.out;
        EXPECT_EQ(r.out.find("Nicht erkanntes Datenbankformat"), std::string::npos) << r.out;
    }
}

TEST_F(EnvironmentTest, UnwritableDatAndLogAreNamedAsSuch) {
    prepareHome();
    if (namespacesWork()) {
        Outcome r = readOnly(home + "/Dat", cli + " --home " + home + " export; echo rc=$?");
        EXPECT_EQ(r.code, 1) << r.out;
        EXPECT_NE(r.out.find("Der Export ist gescheitert: Zugriff verweigert"), std::string::npos)
            << r.out;
        EXPECT_EQ(r.out.find("Pfad nicht gefunden"), std::string::npos) << r.out;
    }
    // A log that cannot be written is not named as if it held the entries.
    fs::remove(home + "/Log/ERROR.LOG");
    fs::create_directory(home + "/Log/ERROR.LOG");
    std::ofstream(home + "/DB/tl_4x_b.mdb", std::ios::binary | std::ios::trunc).close();
    Outcome r = import();
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("Das Fehlerprotokoll " + home +
                         "/Log/ERROR.LOG konnte nicht geschrieben werden (an seiner Stelle "
                         "steht ein Verzeichnis)"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("der letzte Fehler: Nicht erkanntes Datenbankformat"), std::string::npos)
        << r.out;
}

// A pipe given as the file to import would be waited on for ever with the settings store held,
// and every other command of the home refused; it is refused at once instead.
TEST_F(EnvironmentTest, ImportOfAPipeIsRefusedAtOnce) {
    prepareHome();
    const std::string pipe = (dir / "rohr.tml").string();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const char* import : {" import --yes ", " import --check "}) {
        const Outcome r =
            shell("timeout 20 " + cli + " --home " + sq(home) + import + sq(pipe) + "; echo rc=$?");
        EXPECT_EQ(r.code, 1) << import << r.out;  // timeout's 124 when it waited
        EXPECT_NE(r.out.find("Die Datei ''" + pipe +
                             "'' kann nicht gelesen werden.\nSie ist eine "
                             "benannte Pipe (FIFO), keine gewöhnliche Datei.\n"),
                  std::string::npos)
            << r.out;
    }
    std::ifstream log(home + "/Log/ERROR.LOG", std::ios::binary);
    std::stringstream text;
    text << log.rdbuf();
    EXPECT_NE(text.str().find("Fehler in Sub/Function: Upd_1_Start\r\n"), std::string::npos);
}

TEST_F(EnvironmentTest, NewFilesAreTheOwnersAloneAndExistingOnesKeepTheirRights) {
    prepareHome();
    const auto rights = [](const fs::path& p) {
        return fs::status(p).permissions() & fs::perms::all;
    };
    const auto mine = fs::perms::owner_read | fs::perms::owner_write;
    for (const char* d : {"", "/DB", "/Dat", "/Log"})
        EXPECT_EQ(rights(home + d), fs::perms::owner_all) << d;
    for (const char* f : {"/DB/TL_Org.mdb", "/DB/tl_4x_b.mdb", "/DB/tl_4x_m.mdb"})
        EXPECT_EQ(rights(home + f), mine) << f;

    // A store the administrator opened to a group keeps that through the import's compaction.
    const std::string store = home + "/DB/tl_4x_b.mdb";
    fs::permissions(store, mine | fs::perms::group_read);
    Outcome r = import();
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_EQ(rights(store), mine | fs::perms::group_read);

    r = shell(cli + " --home " + sq(home) + " export; echo rc=$?");
    ASSERT_EQ(r.code, 0) << r.out;
    const std::string exported =
        r.out.substr(r.out.rfind(home + "/Dat/"));  // the line naming the file
    EXPECT_EQ(rights(exported.substr(0, exported.find('\n'))), mine) << r.out;
}

}  // namespace
}  // namespace tolma::cli
