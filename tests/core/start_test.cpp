// The program's start in a home of its own.
#include <gtest/gtest.h>
#include <stdio.h>

#include <chrono>
#include <thread>

#include "core/error_log.h"
#include "core_fixture.h"

namespace tolma::test {
namespace {

// Entries of a directory; beside a store that is open its journal files may stand.
int countEntries(const std::filesystem::path& dir) {
    int n = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        if (!name.ends_with("-wal") && !name.ends_with("-shm") && !name.ends_with("-journal")) ++n;
    }
    return n;
}

TEST(StartTest, FirstStartMakesDirectoriesCopiesStoresAndCreatesTheOptionsRow) {
    CoreFixture f;
    f.start();
    EXPECT_EQ(countEntries(f.home()), 3);
    for (const char* d : {"Log", "Dat", "DB"})
        EXPECT_TRUE(std::filesystem::is_directory(f.home() / d)) << d;
    EXPECT_EQ(countEntries(f.home() / "DB"), 3);
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
    EXPECT_EQ(f.g().paths.pfad_db, (f.home() / "DB").string() + "/");

    auto rs = f.g().stores.db_org.OpenRecordset("Optionen");
    ASSERT_EQ(rs.RecordCount(), 1);
    EXPECT_EQ(rs.Fields("datenart").Value().toString(), "BETRIEBSBEZOGEN");
    EXPECT_EQ(rs.Fields("db_betriebsbezogen").Value().toString(),
              f.g().paths.pfad_db + "tl_4x_b.mdb");
    EXPECT_EQ(rs.Fields("db_meldungsbezogen").Value().toString(),
              f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(rs.Fields("filter_aktiv").Value().toInteger(), 0);
    EXPECT_TRUE(rs.Fields("exportdatenbank").Value().isNull());
    EXPECT_EQ(f.g().settings.db_pfad_aktuell, f.g().paths.pfad_db + "tl_4x_b.mdb");
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (betriebsbezogene Daten)");
    EXPECT_TRUE(f.dialogs.shown.empty());

    // The empty record view.
    EXPECT_TRUE(f.g().forms.startView.Image1Visible);
    EXPECT_TRUE(f.g().forms.startView.Image2Visible);
    EXPECT_FALSE(f.g().forms.startView.SSTab1Visible);
    EXPECT_FALSE(f.g().forms.startView.Frame_AnzahlVisible);
    EXPECT_FALSE(f.g().forms.startView.Frame_UeberschriftVisible);

    // The connection stands: handles and bound controls.
    EXPECT_EQ(f.g().stores.rs_betrieb.Name(), "betrieb");
    EXPECT_EQ(f.g().stores.rs_person_staatsang.Name(), "person_staatsang");
    EXPECT_EQ(browse::dataControls(f.g()).DATA_GEMEINDE.Recordset().Name(), "aktuelleGemeinde");
    EXPECT_EQ(browse::dataControls(f.g()).DATA_BETR.RecordSource, "betrieb");
    EXPECT_FALSE(browse::dataControls(f.g()).DATA_BETR.holdsFile());
}

TEST(StartTest, SecondStartCopiesNothingAndKeepsChangedStoresAndDirectoriesOfAnyCase) {
    CoreFixture f;
    std::filesystem::create_directories(f.home() / "LOG");
    std::filesystem::create_directories(f.home() / "db");
    f.start();
    EXPECT_EQ(countEntries(f.home()), 3);  // "LOG" and "db" count as Log and DB
    EXPECT_EQ(f.g().paths.pfad_log, (f.home() / "LOG").string() + "/");
    f.g().stores.db_daten.Execute("INSERT INTO betrieb ([betr-nr]) VALUES ('4711')");

    f.newRun();
    f.start();
    EXPECT_EQ(f.g().stores.db_daten.OpenRecordset("betrieb").RecordCount(), 1);
    EXPECT_EQ(f.g().stores.db_org.OpenRecordset("Optionen").RecordCount(), 1);
    EXPECT_EQ(countEntries(f.home()), 3);
    EXPECT_FALSE(f.g().log.fehler_vorhanden);
}

TEST(StartTest, MissingDefaultStoreEndsTheStartWithAnEntry) {
    CoreFixture f;
    f.g().paths.dataDir = f.dir.path() / "leer";
    f.start();
    EXPECT_FALSE(f.g().stores.db_org.isSet());
    EXPECT_NE(f.logText().find("Fehler in Sub/Function: A_Start\r\n"), std::string::npos);
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (betriebsbezogene Daten)");
    EXPECT_TRUE(f.g().settings.datenart_wert.empty());
}

TEST(StartTest, SecondProcessHoldingTheSettingsStoreMakesTheStartFailAtOpening) {
    CoreFixture first;
    first.start();
    const auto store = first.home() / "DB" / "TL_Org.mdb";
    first.newRun();  // the first run lets go
    const auto marker = first.dir.path() / "gesperrt";
    FILE* holder = ::popen(
        (std::string(TOLMA_LOCK_PROBE) + " '" + store.string() + "' hold '" + marker.string() + "'")
            .c_str(),
        "w");
    ASSERT_NE(holder, nullptr);
    for (int i = 0; i < 200 && !std::filesystem::exists(marker); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(std::filesystem::exists(marker));

    first.start();  // the second instance
    ::pclose(holder);
    EXPECT_FALSE(first.g().stores.db_org.isSet());
    EXPECT_FALSE(first.g().stores.db_daten.isSet());
    const std::string log = first.logText();
    EXPECT_NE(log.find("Fehler in Sub/Function: A_Start\r\nFehler-Source:          "
                       "DAO.DBEngine\r\nFehlernummer:           3045\r\n"),
              std::string::npos)
        << log;
}

TEST(StartTest, CommandLineGoesToTheImportWithTheWindowDisabled) {
    CoreFixture f;
    f.g().commandLine = "\"/tmp/eine datei.tml\"";
    f.g().forms.marks.menue_extras_optionen = true;
    std::string handed;
    bool enabledDuring = true;
    f.start({{}, [&](core::Globals& g, const std::string& path) {
                 handed = path;
                 enabledDuring = g.forms.startView.MDIForm1Enabled;
                 EXPECT_TRUE(g.forms.marks.menue_import_datenbank);
             }});
    EXPECT_EQ(handed, "\"/tmp/eine datei.tml\"");
    EXPECT_FALSE(enabledDuring);
    EXPECT_TRUE(f.g().forms.startView.MDIForm1Enabled);
    EXPECT_EQ(f.shell.unloaded, (std::vector<std::string>{"Frm_Optionen"}));
    EXPECT_FALSE(f.g().forms.marks.menue_extras_optionen);
}

TEST(StartTest, FileAssociationIsNotCheckedInAWoDrexDirectory) {
    for (const char* name : {"WoDrex", "wodrex"}) {
        CoreFixture f;
        bool checked = false;
        core::A_Start(f.g(), f.dir.path() / name, {[&](core::Globals&) { checked = true; }, {}});
        EXPECT_EQ(checked, std::string(name) != "WoDrex") << name;
    }
}

}  // namespace
}  // namespace tolma::test
