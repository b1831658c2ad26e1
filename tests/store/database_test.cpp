// Opening, sharing, locking and compacting store files.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "store/connection.h"
#include "store/dao_error.h"
#include "test_db.h"

namespace tolma::test {
namespace {

using store::DaoError;
using store::Database;

int openError(const std::filesystem::path& file, bool exclusive = false) {
    try {
        Database::OpenDatabase(file, exclusive);
    } catch (const DaoError& e) {
        return e.number();
    }
    return 0;
}

// Another program opening the store: 0 opened, 45 refused as in use.
int otherProgramOpens(const std::filesystem::path& file, bool exclusive) {
    const std::string cmd = std::string(TOLMA_LOCK_PROBE) + " '" + file.string() + "' " +
                            (exclusive ? "exclusive" : "shared");
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DatabaseTest, MissingFileOrNoDatabaseIsRefused) {
    TempDir dir;
    EXPECT_EQ(openError(dir.path() / "fehlt.mdb"), 3024);
    std::ofstream(dir.path() / "text.mdb")
        << "keine Datenbank, nur Text, aber lang genug für einen Kopf";
    EXPECT_EQ(openError(dir.path() / "text.mdb"), 3343);
}

TEST(DatabaseTest, ExclusiveOpeningKeepsASecondProcessOutAtOnce) {
    TempDir dir;
    const auto file = dir.path() / "TL_Org.mdb";
    copySettingsStore(file).Close();
    Database held = Database::OpenDatabase(file, true);
    EXPECT_EQ(otherProgramOpens(file, true), 45);
    EXPECT_EQ(otherProgramOpens(file, false), 45);
    // Inside the process every handle shares the lock.
    Database again = Database::OpenDatabase(file, true);
    EXPECT_EQ(again.OpenRecordset("gemeindekennzahlen").RecordCount(), 11004);
    held.Close();
    again.Close();
    EXPECT_EQ(otherProgramOpens(file, true), 0);
}

TEST(DatabaseTest, HandlesShareOneConnectionUntilTheLastLetsGo) {
    TempDir dir;
    const auto file = dir.path() / "tl_4x_b.mdb";
    makeSampleStore(file).Close();
    Database a = Database::OpenDatabase(file);
    store::Recordset view = Database::OpenDatabase(file).OpenRecordset("betrieb");
    EXPECT_EQ(a.connection(), Database::OpenDatabase(file).connection());
    a.Close();
    EXPECT_TRUE(store::Connection::isOpen(file));
    // A view still bound holds the file: it cannot be compacted.
    try {
        store::CompactDatabase(file, dir.path() / "DATENBANK.NEU");
        FAIL();
    } catch (const DaoError& e) {
        EXPECT_EQ(e.number(), 3356);
    }
    view.Close();
    EXPECT_FALSE(store::Connection::isOpen(file));
    store::CompactDatabase(file, dir.path() / "DATENBANK.NEU");
    EXPECT_EQ(
        Database::OpenDatabase(dir.path() / "DATENBANK.NEU").OpenRecordset("betrieb").RecordCount(),
        5);
}

// A connection beside the program's own, as the search opens one, keeps the store's log when
// the program lets go: a copy renamed over the store would take that log as its own.
TEST(DatabaseTest, CompactingRefusesAStoreThatAConnectionBesideStillHolds) {
    TempDir dir;
    const auto file = dir.path() / "tl_4x_b.mdb";
    makeSampleStore(file).Close();
    auto beside = store::Connection::openBeside(file);
    {
        Database db = Database::OpenDatabase(file);
        db.Execute("DELETE FROM betrieb_adresse WHERE [betr-nr] = '1001'");
    }
    EXPECT_FALSE(store::Connection::isOpen(file));
    try {
        store::CompactDatabase(file, dir.path() / "DATENBANK.NEU");
        FAIL();
    } catch (const DaoError& e) {
        EXPECT_EQ(e.number(), 3356);
    }
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "DATENBANK.NEU"));
    beside.reset();
    store::CompactDatabase(file, dir.path() / "DATENBANK.NEU");
    std::filesystem::rename(dir.path() / "DATENBANK.NEU", file);
    EXPECT_EQ(Database::OpenDatabase(file).OpenRecordset("betrieb_adresse").RecordCount(), 2);
}

// An open table that has counted its rows and stands on one holds no statement open: the
// table's indexes can still go, as a large import has them go.
TEST(DatabaseTest, AnOpenTableLeavesItsIndexesFreeToGo) {
    TempDir dir;
    Database db = makeSampleStore(dir.path() / "tl_4x_b.mdb");
    store::Recordset rs = db.OpenRecordset("betrieb", store::dao::dbOpenDynaset);
    EXPECT_EQ(rs.RecordCount(), 5);
    rs.MoveNext();
    EXPECT_FALSE(rs.Eof());
    db.connection()->execute("CREATE INDEX probe ON betrieb ([gem-kz])");
    EXPECT_NO_THROW(db.connection()->execute("DROP INDEX probe"));
    EXPECT_EQ(rs.RecordCount(), 5);
}

TEST(DatabaseTest, CompactingNeverOverwritesAnExistingFile) {
    TempDir dir;
    const auto file = dir.path() / "tl_4x_b.mdb";
    makeSampleStore(file).Close();
    std::ofstream(dir.path() / "DATENBANK.NEU") << "alt";
    try {
        store::CompactDatabase(file, dir.path() / "DATENBANK.NEU");
        FAIL();
    } catch (const DaoError& e) {
        EXPECT_EQ(e.number(), 3204);
    }
}

TEST(DatabaseTest, ExecuteReportsChangedRows) {
    TempDir dir;
    Database db = makeSampleStore(dir.path() / "tl_4x_b.mdb");
    EXPECT_EQ(db.Execute("DELETE FROM betrieb_adresse WHERE [betr-nr] = '1001'"), 2);
    EXPECT_EQ(db.Execute("UPDATE betrieb SET [bearb-status] = 'E' WHERE [betr-ende] Is Not Null;"),
              1);
}

TEST(DatabaseTest, ReadOnlyFileCannotBeOpenedForWriting) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may write every file";
    TempDir dir;
    const auto file = dir.path() / "tl_4x_b.mdb";
    makeSampleStore(file).Close();
    std::filesystem::permissions(file, std::filesystem::perms::owner_read);
    EXPECT_EQ(openError(file), 3051);
}

}  // namespace
}  // namespace tolma::test
