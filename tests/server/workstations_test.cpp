// Several workstations on one server store: one import at a time, rights by role, notice of
// changes, a connection that breaks, a text that names two servers.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <thread>

#include "cli/cli.h"
#include "cli/options.h"
#include "cli/session.h"
#include "home_cli.h"
#include "options/options_form.h"
#include "pg_cluster.h"
#include "store/connection.h"
#include "store/server_session.h"
#include "store/server_work.h"
#include "tml_generator.h"
#include "transfer/import_driver.h"
#include "transfer/import_listener.h"

namespace tolma {
namespace {

using testing::PgCluster;

using testing::cli;

std::string count(const std::string& home, const std::string& table) {
    return cli(home, {"sql", "SELECT Count(*) AS n FROM " + table}).out;
}

// A login of the cluster in one of the set-up's roles; the cluster trusts its socket.
std::string loginAs(const std::string& database, const std::string& user, const std::string& role) {
    auto& cluster = PgCluster::get();
    auto admin = store::ServerSession::connect(cluster.connectionText("postgres"));
    if (admin->query("SELECT 1 FROM pg_roles WHERE rolname = $1", {user}).rows.empty())
        admin->execute("CREATE ROLE " + user + " LOGIN IN ROLE " + role);
    return cluster.connectionText(database, user);
}

class Workstations : public ::testing::Test {
  protected:
    const std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                      ("tolma-workstations-" + std::to_string(::getpid()));
    const std::string home = (dir / "a").string(), other = (dir / "b").string();
    std::string server;

    void SetUp() override {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        server = PgCluster::get().createDatabase("tolma_arbeitsplaetze");
        ASSERT_EQ(cli(home, {"server", "einrichten", server}).code, 0);
        ASSERT_EQ(cli(home, {"options", "--db-betriebsbezogen", server}).code, 0);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    std::string generated(long businesses) {
        const std::string path = (dir / ("gen" + std::to_string(businesses) + ".tml")).string();
        std::ofstream out(path, std::ios::binary);
        bench::GeneratorOptions o;
        o.businesses = businesses;
        bench::writeTransferFile(out, o);
        return path;
    }

    // Empties the store through the options' command, as the clerk does; returns what it said.
    std::string emptyStore(const std::string& at) {
        testing::HomeSession s(at);
        EXPECT_TRUE(s.open()) << s.err.str();
        options::OptionsForm form;
        options::Form_Activate(s.session.g, form);
        options::Command4_Click(s.session.g, form, 0);
        return s.out.str();
    }
};

TEST_F(Workstations, OneImportAtATimeAndTheOtherIsToldWhoSinceWhen) {
    const std::string file = generated(2500);
    {
        // Another workstation holds the lock: refused at once, the store untouched.
        auto c = store::Connection::openReader(server);
        const auto held = store::WorkLock::take(*c, store::StoreWork::Import);
        const auto refused = cli(home, {"import", file});
        EXPECT_EQ(refused.code, 1);
        EXPECT_NE(refused.out.find("Ein anderer Arbeitsplatz ("), std::string::npos) << refused.out;
        EXPECT_NE(refused.out.find(" Uhr Daten ein. Bitte versuchen Sie es später erneut."),
                  std::string::npos)
            << refused.out;
        EXPECT_EQ(count(home, "betrieb"), "n\n0\n");
        EXPECT_EQ(cli(home, {"imports"}).out.find("gen2500"), std::string::npos);
        // Taking back and emptying wait for it as well; a check needs no lock.
        EXPECT_NE(emptyStore(home).find("liest seit"), std::string::npos);
        EXPECT_EQ(cli(home, {"import", "--check", file}).code, 0);
        std::ifstream log(home + "/Log/ERROR.LOG", std::ios::binary);
        std::stringstream logged;
        logged << log.rdbuf();
        EXPECT_NE(logged.str().find("Daten ein"), std::string::npos);
    }
    // Two workstations start the same file together: one reads it, the other is refused.
    ASSERT_EQ(cli(other, {"options", "--db-betriebsbezogen", server}).code, 0);
    const std::string cliPath = TOLMA_CLI;
    pid_t pids[2];
    for (int i = 0; i < 2; ++i) {
        pids[i] = ::fork();
        if (pids[i] == 0) {
            const std::string at = i == 0 ? home : other;
            const std::string log = at + "/import.out";
            FILE* f = std::freopen(log.c_str(), "w", stdout);
            (void)f;
            ::execl(cliPath.c_str(), cliPath.c_str(), "--home", at.c_str(), "--yes", "import",
                    file.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
    }
    int codes[2];
    for (int i = 0; i < 2; ++i) {
        int status = 0;
        ::waitpid(pids[i], &status, 0);
        codes[i] = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    EXPECT_EQ(std::min(codes[0], codes[1]), 0);
    EXPECT_EQ(std::max(codes[0], codes[1]), 1);
    EXPECT_EQ(count(home, "betrieb"), "n\n2500\n");
    const auto runs = cli(home, {"imports"}).out;
    EXPECT_EQ(std::count(runs.begin(), runs.end(), '\n'), 2) << runs;  // the head and one run
}

// Persons per business, as another workstation reads them.
std::map<std::string, std::string> personsPerBusiness(store::ServerSession& s) {
    std::map<std::string, std::string> out;
    for (const auto& row :
         s.query("SELECT b.\"betr-nr\", count(l.\"bez-pers-nr\") FROM betrieb b LEFT JOIN "
                 "beziehung_betrieb_person l ON l.\"bez-betr-nr\" = b.\"betr-nr\" GROUP BY 1")
             .rows)
        out[row.at(0).value_or("")] = row.at(1).value_or("");
    return out;
}

TEST_F(Workstations, AReaderSeesOnlyWholeBlocksWhileAFileIsReadInAndReplaced) {
    const std::string file = generated(5000);  // blocks of some two thousand businesses
    std::vector<std::map<std::string, std::string>> seen;
    for (int round = 0; round < 2; ++round) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            FILE* f = std::freopen("/dev/null", "w", stdout);
            (void)f;
            const std::string cliPath = TOLMA_CLI;
            ::execl(cliPath.c_str(), cliPath.c_str(), "--home", home.c_str(), "--yes", "import",
                    file.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        auto reader = store::ServerSession::connect(server);
        int status = 0;
        while (::waitpid(pid, &status, WNOHANG) == 0) seen.push_back(personsPerBusiness(*reader));
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    auto reader = store::ServerSession::connect(server);
    const auto whole = personsPerBusiness(*reader);
    ASSERT_EQ(whole.size(), 5000u);
    size_t partial = 0;
    for (const auto& view : seen) {
        if (view.size() != 0 && view.size() != whole.size()) ++partial;
        for (const auto& [nr, persons] : view) {
            ASSERT_EQ(persons, whole.at(nr)) << "Betrieb " << nr;
        }
    }
    EXPECT_GT(partial, 0u);  // it did look between two blocks
}

TEST_F(Workstations, AReadingLoginReadsAndIsRefusedEveryChangeUpFront) {
    ASSERT_EQ(cli(home, {"import", TOLMA_SOURCE_DIR "/data/beispiel.tml"}).code, 0);
    ASSERT_EQ(cli(other, {"options", "--db-betriebsbezogen",
                          loginAs("tolma_arbeitsplaetze", "lena_lesen", "tolma_lesen")})
                  .code,
              0);
    // Reading, searching, exporting and evaluating work.
    EXPECT_EQ(count(other, "betrieb"), "n\n52\n");
    EXPECT_NE(cli(other, {"search", "petersen"}).out.find("Petersen"), std::string::npos);
    const auto exported = cli(other, {"export"});
    EXPECT_EQ(exported.code, 0) << exported.out << exported.err;
    EXPECT_EQ(cli(other, {"auswertung", "--von", "2000-01", "--bis", "2026-12"}).code, 0);
    const auto disclosed = cli(other, {"auskunft", "--name", "Petersen", "--vornamen", "Jens",
                                       "--csv", (dir / "auskunft.csv").string()});
    EXPECT_EQ(disclosed.code, 0) << disclosed.out << disclosed.err;
    EXPECT_NE(cli(other, {"protokoll"}).out.find("Auskunft"), std::string::npos);
    // Every change is refused with the reason, and nothing changes.
    const auto import = cli(other, {"import", TOLMA_SOURCE_DIR "/data/beispiel.tml"});
    EXPECT_EQ(import.code, 1);
    EXPECT_NE(import.out.find("lena_lesen"), std::string::npos) << import.out;
    EXPECT_NE(import.out.find("nur lesen"), std::string::npos);
    EXPECT_EQ(cli(other, {"undo"}).code, 1);
    EXPECT_EQ(cli(other, {"loeschen", "--abgemeldet-vor", "2030-01-01"}).code, 1);
    const auto deleted = cli(other, {"sql", "DELETE FROM beziehung_betrieb_person"});
    EXPECT_EQ(deleted.code, 1);
    EXPECT_NE(deleted.err.find("nur lesen"), std::string::npos);
    EXPECT_NE(emptyStore(other).find("nur lesen"), std::string::npos);
    EXPECT_EQ(count(home, "beziehung_betrieb_person"), "n\n75\n");
    EXPECT_EQ(count(home, "betrieb"), "n\n52\n");
    const auto runs = cli(home, {"imports"}).out;
    EXPECT_NE(runs.find("\tnein\tnein"), std::string::npos) << runs;
}

TEST_F(Workstations, AnImportLoginDoesAllTheWorkWithoutOwningATable) {
    ASSERT_EQ(cli(other, {"options", "--db-betriebsbezogen",
                          loginAs("tolma_arbeitsplaetze", "ina_import", "tolma_import")})
                  .code,
              0);
    const std::string file = TOLMA_SOURCE_DIR "/data/beispiel.tml";
    const auto check = cli(other, {"import", "--check", file});
    EXPECT_EQ(check.code, 0) << check.out << check.err;
    const auto first = cli(other, {"import", file});
    ASSERT_EQ(first.code, 0) << first.out << first.err;
    EXPECT_EQ(cli(other, {"import", file}).code, 0);  // a replace, with its record
    EXPECT_NE(cli(other, {"search", "petersen"}).out.find("Petersen"), std::string::npos);
    const auto undo = cli(other, {"undo"});
    EXPECT_EQ(undo.code, 0) << undo.out << undo.err;
    EXPECT_EQ(count(other, "betrieb"), "n\n52\n");
    const auto deleted = cli(other, {"loeschen", "--abgemeldet-vor", "2030-01-01"});
    EXPECT_EQ(deleted.code, 0) << deleted.out << deleted.err;
    EXPECT_NE(deleted.out.find("Gelöscht: "), std::string::npos) << deleted.out;
    EXPECT_NE(deleted.out.find("VACUUM FULL"), std::string::npos) << deleted.out;
    EXPECT_NE(emptyStore(other).find("gelöscht und ersetzt"), std::string::npos);
    EXPECT_EQ(count(other, "betrieb"), "n\n0\n");
    EXPECT_NE(cli(other, {"import", file}).out.find("neu: 52"), std::string::npos);
}

TEST_F(Workstations, AnIdleWorkstationHearsOfEachChangeAndAStandbyTakesNone) {
    auto idle = store::Connection::openReader(server);
    store::listenForChanges(*idle);
    const auto heardWithin = [&](std::chrono::seconds limit) {
        const auto until = std::chrono::steady_clock::now() + limit;
        std::vector<store::StoreWork> heard;
        while (heard.empty() && std::chrono::steady_clock::now() < until) {
            heard = store::changesHeard(*idle);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return heard;
    };
    ASSERT_EQ(cli(home, {"import", TOLMA_SOURCE_DIR "/data/beispiel.tml"}).code, 0);
    EXPECT_EQ(heardWithin(std::chrono::seconds(2)),
              std::vector<store::StoreWork>{store::StoreWork::Import});
    ASSERT_EQ(cli(home, {"undo"}).code, 0);
    EXPECT_EQ(heardWithin(std::chrono::seconds(2)),
              std::vector<store::StoreWork>{store::StoreWork::TakeBack});
    // A server that takes no writes, as a standby: the import is refused and nobody hears.
    store::ServerSession::connect(PgCluster::get().connectionText("postgres"))
        ->execute("ALTER DATABASE tolma_arbeitsplaetze SET default_transaction_read_only = on");
    const auto standby = cli((dir / "c").string(), {"options", "--db-betriebsbezogen", server});
    const auto onStandby =
        cli((dir / "c").string(), {"import", TOLMA_SOURCE_DIR "/data/beispiel.tml"});
    EXPECT_EQ(onStandby.code, 1);
    EXPECT_NE(onStandby.out.find("nimmt keine Änderungen an"), std::string::npos)
        << standby.out << onStandby.out;
    EXPECT_TRUE(heardWithin(std::chrono::seconds(1)).empty());
    store::ServerSession::connect(PgCluster::get().connectionText("postgres"))
        ->execute("ALTER DATABASE tolma_arbeitsplaetze RESET default_transaction_read_only");
}

TEST_F(Workstations, AConnectionTextWithAClosedFirstServerReachesTheSecond) {
    ASSERT_EQ(cli(home, {"import", TOLMA_SOURCE_DIR "/data/beispiel.tml"}).code, 0);
    std::string twoHosts = server;
    const std::string hostKey = "?host=";
    twoHosts.insert(twoHosts.find(hostKey) + hostKey.size(), "/nonexistent/tolma,");
    const auto set = cli(other, {"options", "--db-betriebsbezogen", twoHosts});
    ASSERT_EQ(set.code, 0) << set.out << set.err;
    EXPECT_EQ(count(other, "betrieb"), "n\n52\n");
}

// Hears the blocks' commits.
struct Commits : transfer::ImportListener {
    std::vector<std::string> events;
    void blockBegins(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("begins " + std::to_string(b.number));
    }
    void blockCommitting(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("committing " + std::to_string(b.number));
    }
    void blockCommitted(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("committed " + std::to_string(b.number) + " of " +
                         std::to_string(b.elements.size()) + ", records " +
                         std::to_string(b.records));
    }
    void blocksDone(store::Connection*, long records) override {
        events.push_back("done " + std::to_string(records));
    }
};

// On a server each block is told as committed once, in order, after the next block began and
// before its commit; the last before the blocks are done.
TEST_F(Workstations, EachBlockIsToldAsCommittedOnceTheServerHasCommittedIt) {
    const std::string file = generated(6000);
    testing::HomeSession at(home);
    ASSERT_TRUE(at.open()) << at.err.str();
    Commits commits;
    transfer::StartViewScreen screen(at.session.g);
    transfer::ImportListener* const listeners[] = {&commits};
    ASSERT_EQ(transfer::runImport(at.session.g, file, screen, listeners),
              transfer::ImportOutcome::Finished);
    // Blocks of some 1,500 businesses: several of them.
    std::vector<std::string> expected = {"begins 1", "committing 1"};
    for (int n = 2; n <= 4; ++n)
        for (const std::string& line :
             {"begins " + std::to_string(n), "committed " + std::to_string(n - 1) + " of ",
              "committing " + std::to_string(n)})
            expected.push_back(line);
    const auto& e = commits.events;
    ASSERT_GE(e.size(), expected.size() + 2) << ::testing::PrintToString(e);
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(e[i].rfind(expected[i], 0), 0u) << i << ": " << e[i];
    EXPECT_NE(e[e.size() - 2].find(", records 6000"), std::string::npos) << e[e.size() - 2];
    EXPECT_EQ(e.back(), "done 6000");
    EXPECT_EQ(std::count_if(e.begin(), e.end(),
                            [](const std::string& l) { return l.rfind("committed ", 0) == 0; }),
              std::count_if(e.begin(), e.end(),
                            [](const std::string& l) { return l.rfind("begins ", 0) == 0; }));
    EXPECT_EQ(count(home, "betrieb"), "n\n6000\n");
}

// A block's commit goes behind its rows while the next block is worked out; one the server
// refuses fails the run there, and the run's record counts only the blocks committed before.
TEST_F(Workstations, ACommitTheServerRefusesStopsTheImportAfterTheBlocksBefore) {
    const std::string file = generated(6000);  // three blocks
    std::string refused, first;
    {
        std::ifstream in(file, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        const size_t nr = text.find("<betr-nr>") + std::strlen("<betr-nr>");
        first = text.substr(nr, text.find('<', nr) - nr);
        size_t at = 0;
        for (int n = 0; n < 2500; ++n) at = text.find("<betrieb>", at) + 1;
        at = text.find("<betr-nr>", at) + std::strlen("<betr-nr>");
        refused = text.substr(at, text.find('<', at) - at);
    }
    auto admin = store::ServerSession::connect(server);
    admin->execute(
        "CREATE FUNCTION nicht_diesen() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN IF "
        "NEW.\"betr-nr\" = '" +
        refused + "' THEN RAISE EXCEPTION 'Betrieb gesperrt'; END IF; RETURN NULL; END$$");
    admin->execute(
        "CREATE CONSTRAINT TRIGGER nicht_diesen AFTER INSERT ON betrieb DEFERRABLE INITIALLY "
        "DEFERRED FOR EACH ROW EXECUTE FUNCTION nicht_diesen()");
    ASSERT_EQ(cli(home, {"search", first}).code, 0);  // the store has its search index
    const auto run = cli(home, {"import", file});
    EXPECT_EQ(run.code, 1) << run.out << run.err;
    EXPECT_NE(run.err.find("Betrieb gesperrt"), std::string::npos) << run.err;
    const auto stored = admin->query("SELECT count(*) FROM betrieb").rows.at(0).at(0);
    const auto counted = admin->query("SELECT betriebe FROM tolma_import_lauf").rows.at(0).at(0);
    EXPECT_EQ(stored, counted);
    EXPECT_GT(std::stol(stored.value_or("0")), 0);
    EXPECT_LT(std::stol(stored.value_or("0")), 2500);
    // The search finds what the blocks before stored, and nothing of the refused one.
    EXPECT_NE(cli(home, {"search", first}).out.find("Betrieb\t" + first), std::string::npos);
    EXPECT_EQ(cli(home, {"search", refused}).out.find("Betrieb\t" + refused), std::string::npos);
    EXPECT_EQ(cli(home, {"undo"}).code, 0);
    EXPECT_EQ(count(home, "betrieb"), "n\n0\n");
}

TEST_F(Workstations, ABrokenConnectionStopsTheImportAndKeepsTheCommittedBlocks) {
    const std::string file = generated(6000);  // three blocks
    std::atomic<bool> done{false};
    std::thread cutter([&] {
        auto watcher = store::ServerSession::connect(server);
        while (!done) {
            if (watcher->query("SELECT count(*) > 0 FROM betrieb").rows.at(0).at(0) == "t") {
                watcher->query(
                    "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = "
                    "current_database() AND pid <> pg_backend_pid()");
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const auto cut = cli(home, {"import", file});
    done = true;
    cutter.join();
    EXPECT_EQ(cut.code, 1) << cut.out << cut.err;
    EXPECT_NE(cut.err.find("Der Import ist gescheitert: Der Datenbankserver ist nicht erreichbar"),
              std::string::npos)
        << cut.err;
    EXPECT_NE(cut.err.find("„tolma-cli undo“ nimmt den Lauf zurück"), std::string::npos);
    // The blocks committed before stay, whole, and are taken back as a run.
    const std::string kept = count(home, "betrieb");
    EXPECT_NE(kept, "n\n0\n");
    EXPECT_NE(kept, "n\n6000\n");
    const auto undo = cli(home, {"undo"});
    EXPECT_EQ(undo.code, 0) << undo.out << undo.err;
    EXPECT_EQ(count(home, "betrieb"), "n\n0\n");
}

}  // namespace
}  // namespace tolma
