// Opening, letting go of and compacting the data store.
#include <gtest/gtest.h>

#include "core/db_connection.h"
#include "core/menu.h"
#include "core_fixture.h"
#include "model/default_stores.h"
#include "model/schema.h"
#include "store/connection.h"

namespace tolma::test {
namespace {

long rows(const store::Database& db, const std::string& table) {
    return db.OpenRecordset(table).RecordCount();
}

void fillAndThinOut(core::Globals& g, int n) {
    auto& c = *g.stores.db_daten.connection();
    c.beginBatch();
    for (int i = 0; i < n; ++i)
        c.execute(
            "INSERT INTO betrieb ([betr-nr], [betr-hist-nr], [b-bemerkung]) VALUES (?1, '1', ?2)",
            {store::Variant(std::to_string(i)), store::Variant(std::string(500, 'x'))});
    c.commitBatch();
    g.stores.db_daten.Execute(
        "DELETE FROM betrieb WHERE [betr-hist-nr] = '1' AND Val([betr-nr]) >= 10");
}

TEST(ConnectionTest, LoadTwiceLeavesAUsableConnection) {
    CoreFixture f;
    f.start();
    core::DB_Load(f.g());
    core::DB_Load(f.g());
    f.g().stores.rs_betrieb.AddNew();
    f.g().stores.rs_betrieb.Fields("betr-nr").setValue("1");
    f.g().stores.rs_betrieb.Update();
    EXPECT_EQ(rows(f.g().stores.db_daten, "betrieb"), 1);
    EXPECT_FALSE(f.g().log.fehler_vorhanden);
}

TEST(ConnectionTest, CompactionKeepsEveryRowAndLeavesNoTemporaryFile) {
    CoreFixture f;
    f.start();
    fillAndThinOut(f.g(), 2000);
    const auto store = f.home() / "DB" / "tl_4x_b.mdb";
    std::ofstream(f.home() / "DATENBANK.NEU") << "Rest eines abgebrochenen Laufs";
    core::DB_Komprimieren(f.g());
    EXPECT_FALSE(std::filesystem::exists(f.home() / "DATENBANK.NEU"));
    EXPECT_LT(std::filesystem::file_size(store), 300000u);  // the 2000 rows took about 1 MB
    EXPECT_EQ(rows(f.g().stores.db_daten, "betrieb"), 10);
    EXPECT_EQ(f.g().stores.rs_betrieb.RecordCount(), 10);
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
}

TEST(ConnectionTest, StoreElsewhereIsCompactedThroughTheProgramDirectoryAndPutBack) {
    CoreFixture f;
    f.start();
    const auto elsewhere = f.dir.path() / "anderswo";
    std::filesystem::create_directories(elsewhere);
    std::filesystem::copy_file(f.home() / "DB" / "tl_4x_b.mdb", elsewhere / "tl_4x_b.mdb");
    core::Globals& g = f.g();
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    g.settings.db_pfad_aktuell = (elsewhere / "tl_4x_b.mdb").string();
    core::DB_Load(g);
    fillAndThinOut(g, 1000);
    core::DB_Komprimieren(g);
    EXPECT_EQ(rows(g.stores.db_daten, "betrieb"), 10);
    EXPECT_EQ(g.stores.db_daten.Name(), elsewhere / "tl_4x_b.mdb");
    EXPECT_FALSE(std::filesystem::exists(f.home() / "DATENBANK.NEU"));
}

TEST(ConnectionTest, DetachedStoreCanBeReplacedAndIsShownAfterLoad) {
    CoreFixture f;
    f.start();
    core::Globals& g = f.g();
    browse::dataControls(g).DATA_BETR.Refresh();
    EXPECT_TRUE(browse::dataControls(g).DATA_BETR.holdsFile());
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    EXPECT_FALSE(browse::dataControls(g).DATA_BETR.holdsFile());
    EXPECT_FALSE(browse::dataControls(g).DATA_PERSStaat.holdsFile());
    EXPECT_TRUE(
        browse::dataControls(g).DATA_GEMEINDE.holdsFile());  // the settings store stays bound

    // Another store takes the file's place.
    const auto replacement = f.dir.path() / "neu.mdb";
    store::Database other = makeSampleStore(replacement);
    other.Close();
    std::filesystem::rename(replacement, g.settings.db_pfad_aktuell);
    core::DB_Load(g);
    EXPECT_EQ(g.stores.rs_betrieb.RecordCount(), 5);
    browse::dataControls(g).DATA_BETR.Refresh();
    EXPECT_EQ(browse::dataControls(g).DATA_BETR.Recordset().RecordCount(), 5);
}

TEST(ConnectionTest, StoreWithoutATableOrMissingEndsTheLoadWithAnEntry) {
    CoreFixture f;
    f.start();
    core::Globals& g = f.g();
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    g.settings.db_pfad_aktuell = (f.dir.path() / "fehlt" / "tl_4x_b.mdb").string();
    core::DB_Load(g);
    EXPECT_FALSE(g.stores.db_daten.isSet());
    EXPECT_NE(f.logText().find("Fehler in Sub/Function: DB_Load\r\nFehler-Source:          "
                               "DAO.DBEngine\r\nFehlernummer:           3024\r\n"),
              std::string::npos);

    auto tables = model::dataTables();
    tables.pop_back();
    const auto partial = f.dir.path() / "tl_4x_b.mdb";
    model::writeEmptyStore(partial, tables);
    g.settings.db_pfad_aktuell = partial.string();
    core::DB_Load(g);
    EXPECT_NE(f.logText().find("Fehlernummer:           3078"), std::string::npos);
    EXPECT_TRUE(g.stores.rs_taetigkeit.isSet());  // opened before the missing table
    EXPECT_FALSE(g.stores.rs_person.isSet());
}

TEST(ConnectionTest, FailedCompactionIsLoggedUnderItsOwnName) {
    CoreFixture f;
    f.start();
    core::Globals& g = f.g();
    // A handle kept open elsewhere holds the file.
    store::Recordset held = g.stores.db_daten.OpenRecordset("betrieb");
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    EXPECT_EQ(core::A_Kompress(g, g.settings.db_pfad_aktuell, ""), 0);
    EXPECT_NE(f.logText().find("Fehler in Sub/Function: A_Kompress\r\n"), std::string::npos);
    EXPECT_NE(f.logText().find("Ortungs-Nummer/BetrNr:  Fehler bei Komprimierung von '" +
                               g.settings.db_pfad_aktuell + "'\r\n"),
              std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(g.settings.db_pfad_aktuell));
}

TEST(MenuTest, ClosingGoesThroughTheMarksInTheirOrder) {
    core::Globals g;
    ScriptedShell shell;
    g.shell = &shell;
    g.forms.marks.menue_export_textdatei = true;
    g.forms.marks.menue_import_datenbank = true;
    g.forms.marks.menue_suchen_person = true;
    core::A_Fenster_schliessen(g);
    EXPECT_EQ(shell.unloaded,
              (std::vector<std::string>{"Frm_Auswahl_Pers", "Frm_Verwaltungsblock"}));
    EXPECT_FALSE(g.forms.marks.menue_import_datenbank);
    EXPECT_FALSE(g.forms.marks.menue_export_textdatei);
}

}  // namespace
}  // namespace tolma::test
