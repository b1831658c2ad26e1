// An import killed at random moments leaves a sound store, and importing the file again gives
// exactly the rows of a clean import.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <random>
#include <thread>
#include <tuple>

#include "../store/test_db.h"
#include "store/connection.h"
#include "store/database.h"
#include "tml_generator.h"

extern char** environ;

namespace tolma::test {
namespace {

// Runs tolma-cli import on `file` in `home`; kills it after `killAfter` unless that is zero.
int importWithCli(const std::filesystem::path& home, const std::filesystem::path& file,
                  std::chrono::milliseconds killAfter) {
    const std::string cli = TOLMA_CLI, h = home.string(), f = file.string();
    const char* argv[] = {cli.c_str(), "--home", h.c_str(), "import", "--yes", f.c_str(), nullptr};
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&pid, cli.c_str(), &actions, nullptr, const_cast<char**>(argv), environ) != 0)
        return -1;
    posix_spawn_file_actions_destroy(&actions);
    if (killAfter.count() > 0) {
        std::this_thread::sleep_for(killAfter);
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string integrity(const std::filesystem::path& store) {
    auto db = store::Database::OpenDatabase(store);
    auto rs = db.OpenRecordset("SELECT * FROM pragma_integrity_check");
    return rs.Fields(0).Value().toString();
}

// Every row of every data table, in a fixed order.
std::vector<std::string> dump(const std::filesystem::path& store) {
    std::vector<std::string> out;
    auto db = store::Database::OpenDatabase(store);
    for (const char* table :
         {"betrieb", "betrieb_adresse", "betrieb_taetigkeit", "betrieb_erlaubnis",
          "betrieb_handwerkskarte", "betrieb_meldgrundsonst", "person", "person_staatsang",
          "person_erlaubnis", "person_handwerkskarte", "beziehung_betrieb_person"}) {
        auto rs = db.OpenRecordset(std::string("SELECT * FROM ") + table);
        std::vector<std::string> rows;
        for (long r = 0; r < rs.RecordCount(); ++r) {
            std::string line = table;
            for (const auto& v : rs.rowAt(r))
                line += "|" + (v.isNull() ? std::string("<null>") : v.toString());
            rows.push_back(line);
        }
        std::sort(rows.begin(), rows.end());
        out.insert(out.end(), rows.begin(), rows.end());
    }
    return out;
}

TEST(CrashTest, KilledImportsLeaveASoundStoreAndAReimportGivesTheCleanRows) {
    TempDir dir;
    const auto file = dir.path() / "gross.tml";
    {
        std::ofstream out(file, std::ios::binary);
        bench::GeneratorOptions options;
        options.businesses = 15000;
        bench::writeTransferFile(out, options);
    }
    const auto clean = dir.path() / "sauber";
    ASSERT_EQ(importWithCli(clean, file, std::chrono::milliseconds(0)), 0);

    const auto crashed = dir.path() / "abgestuerzt";
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> moment(50, 1500);
    for (int round = 0; round < 4; ++round) {
        const int code = importWithCli(crashed, file, std::chrono::milliseconds(moment(random)));
        EXPECT_TRUE(code == -SIGKILL || code == 0) << code;
        EXPECT_EQ(integrity(crashed / "DB" / "tl_4x_b.mdb"), "ok") << "Runde " << round;
        EXPECT_EQ(integrity(crashed / "DB" / "TL_Org.mdb"), "ok") << "Runde " << round;
    }
    ASSERT_EQ(importWithCli(crashed, file, std::chrono::milliseconds(0)), 0);
    const auto expected = dump(clean / "DB" / "tl_4x_b.mdb");
    EXPECT_GT(expected.size(), 15000u);
    EXPECT_EQ(dump(crashed / "DB" / "tl_4x_b.mdb"), expected);
    EXPECT_FALSE(std::filesystem::exists(crashed / "DATENBANK.NEU"));
}

// Runs tolma-cli with `args` to its end; its exit code.
int cli(std::vector<std::string> args) {
    const std::string program = TOLMA_CLI;
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) return -1;
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(CrashTest, AKilledImportIsTakenBackToTheStateBeforeIt) {
    TempDir dir;
    const auto small = dir.path() / "klein.tml", big = dir.path() / "gross.tml";
    for (const auto& [file, n] : {std::pair{small, 800L}, std::pair{big, 15000L}}) {
        std::ofstream out(file, std::ios::binary);
        bench::GeneratorOptions options;
        options.businesses = n;
        options.seed = static_cast<unsigned>(n);
        bench::writeTransferFile(out, options);
    }
    const auto home = dir.path() / "home";
    ASSERT_EQ(importWithCli(home, small, std::chrono::milliseconds(0)), 0);
    const auto before = dump(home / "DB" / "tl_4x_b.mdb");
    ASSERT_GT(before.size(), 800u);
    // Killed as soon as its first block is committed: it replaced some of the small file's
    // businesses and added others.
    const std::string program = TOLMA_CLI, h = home.string(), f = big.string();
    const char* argv[] = {program.c_str(), "--home",  h.c_str(), "import",
                          "--yes",         f.c_str(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(
        posix_spawn(&pid, program.c_str(), nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    for (int i = 0; i < 600; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        try {
            auto db = store::Database::OpenDatabase(home / "DB" / "tl_4x_b.mdb");
            auto n = db.lookup("SELECT betriebe FROM tolma_import_lauf WHERE lauf = 2", "betriebe");
            if (n && n->toInteger() > 0) break;
        } catch (const std::exception&) {
            // not written yet, or held for a moment
        }
    }
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_NE(dump(home / "DB" / "tl_4x_b.mdb"), before)
        << "no block was committed before the kill";
    EXPECT_EQ(cli({"--home", home.string(), "undo", "--yes"}), 0);
    EXPECT_EQ(dump(home / "DB" / "tl_4x_b.mdb"), before);
    EXPECT_EQ(integrity(home / "DB" / "tl_4x_b.mdb"), "ok");
}

// Runs tolma-cli with `args`; what it printed.
std::string cliOutput(std::vector<std::string> args) {
    const std::string program = TOLMA_CLI;
    std::string command = "'" + program + "'";
    for (const auto& a : args) command += " '" + a + "'";
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
        pclose(pipe);
    }
    return out;
}

// Killed after its commit, while the search index is built anew: the next search must not
// answer from the index of the data taken back.
TEST(CrashTest, ATakingBackKilledAfterItsCommitLeavesNoStaleIndex) {
    TempDir dir;
    const auto big = dir.path() / "gross.tml", small = dir.path() / "klein.tml";
    for (const auto& [file, n, seed] :
         {std::tuple{big, 15000L, 1u}, std::tuple{small, 3000L, 7u}}) {
        std::ofstream out(file, std::ios::binary);
        bench::GeneratorOptions options;
        options.businesses = n;
        options.seed = seed;
        bench::writeTransferFile(out, options);
    }
    const auto home = dir.path() / "home", store = home / "DB" / "tl_4x_b.mdb";
    ASSERT_EQ(importWithCli(home, big, std::chrono::milliseconds(0)), 0);
    ASSERT_EQ(importWithCli(home, small, std::chrono::milliseconds(0)), 0);
    const std::vector<std::string> queries{"Petersen", "Hauptstraße", "Müller Husum"};
    for (const auto& q : queries) cliOutput({"--home", home.string(), "search", q});  // builds
    const std::string program = TOLMA_CLI, h = home.string();
    const char* argv[] = {program.c_str(), "--home", h.c_str(), "undo", "--yes", nullptr};
    pid_t pid = 0;
    ASSERT_EQ(
        posix_spawn(&pid, program.c_str(), nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    bool committed = false;
    for (int i = 0; i < 3000 && !committed; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        try {
            auto db = store::Database::OpenDatabase(store);
            auto v = db.lookup("SELECT zurueckgenommen FROM tolma_import_lauf WHERE lauf = 2",
                               "zurueckgenommen");
            committed = v && v->toInteger() == 1;
        } catch (const std::exception&) {
            // held for a moment
        }
    }
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(committed);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the taking back ended before it was killed";
    // The same store without its index file: the search builds one from nothing.
    const auto fresh = dir.path() / "frisch";
    std::filesystem::create_directories(fresh / "DB");
    for (const char* part : {"", "-wal"})
        if (std::filesystem::exists(store.string() + part))
            std::filesystem::copy_file(store.string() + part,
                                       (fresh / "DB" / "tl_4x_b.mdb").string() + part);
    ASSERT_FALSE(
        std::filesystem::exists(store::Connection::indexFileOf(fresh / "DB" / "tl_4x_b.mdb")));
    for (const auto& q : queries) {
        const std::string hits =
            cliOutput({"--home", home.string(), "search", "--limit", "500", q});
        EXPECT_GT(hits.size(), 100u) << q;
        EXPECT_EQ(hits, cliOutput({"--home", fresh.string(), "search", "--limit", "500", q})) << q;
    }
}

}  // namespace
}  // namespace tolma::test
