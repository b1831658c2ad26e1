// Reading and repairing the settings row.
#include <gtest/gtest.h>

#include "core/settings.h"
#include "core_fixture.h"

namespace tolma::test {
namespace {

// A started program whose Optionen row is then set as a test needs and read again.
class SettingsTest : public ::testing::Test {
  protected:
    CoreFixture f;
    void SetUp() override { f.start(); }
    void setRow(const std::string& field, const store::Variant& value) {
        auto& rs = f.g().stores.rs_optionen;
        rs.MoveFirst();
        rs.Edit();
        rs.Fields(field).setValue(value);
        rs.Update();
    }
    std::string rowValue(const std::string& field) {
        f.g().stores.rs_optionen.MoveFirst();
        return f.g().stores.rs_optionen.Fields(field).Value().toString();
    }
};

TEST_F(SettingsTest, NullPathIsRepairedSilently) {
    setRow("db_betriebsbezogen", store::Variant());
    core::A_org_lesen(f.g());
    EXPECT_EQ(rowValue("db_betriebsbezogen"), f.g().paths.pfad_db + "tl_4x_b.mdb");
    EXPECT_TRUE(f.dialogs.shown.empty());
}

TEST_F(SettingsTest, PathToAFileOfAnotherNameGivesTheMessageAndTheDefault) {
    const auto other = f.dir.path() / "andere.mdb";
    std::filesystem::copy_file(f.home() / "DB" / "tl_4x_m.mdb", other);
    setRow("db_meldungsbezogen", other.string());
    core::A_org_lesen(f.g());
    ASSERT_EQ(f.dialogs.shown.size(), 1u);
    EXPECT_EQ(f.dialogs.shown[0].title, "Datenbank-Fehler!");
    EXPECT_EQ(f.dialogs.shown[0].style, 16);
    EXPECT_EQ(f.dialogs.shown[0].text,
              "\nDie Datenbank wurde am angegebenen Ort nicht gefunden,\n\ndeshalb verwendet das "
              "Programm die Default-Datenbank!\n\n");
    EXPECT_EQ(rowValue("db_meldungsbezogen"), f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(f.g().settings.db_meld_pfad, f.g().paths.pfad_db + "tl_4x_m.mdb");
}

TEST_F(SettingsTest, StoreOfTheDefaultNameElsewhereIsAccepted) {
    const auto elsewhere = f.dir.path() / "anderswo";
    std::filesystem::create_directories(elsewhere);
    std::filesystem::copy_file(f.home() / "DB" / "tl_4x_b.mdb", elsewhere / "TL_4X_B.MDB");
    setRow("db_betriebsbezogen", (elsewhere / "TL_4X_B.MDB").string());
    core::A_org_lesen(f.g());
    EXPECT_TRUE(f.dialogs.shown.empty());
    EXPECT_EQ(f.g().settings.db_pfad_aktuell, (elsewhere / "TL_4X_B.MDB").string());
}

TEST_F(SettingsTest, DataKindWithATrailingBlankCountsAsNotificationRelated) {
    setRow("datenart", "BETRIEBSBEZOGEN ");
    core::A_org_lesen(f.g());
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (meldungsbezogene Daten)");
    EXPECT_EQ(f.g().settings.db_pfad_aktuell, f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(f.g().settings.db_kurzname, "tl_4x_m");
    EXPECT_EQ(rowValue("datenart"), "BETRIEBSBEZOGEN ");

    setRow("datenart", "   ");
    core::A_org_lesen(f.g());
    EXPECT_EQ(rowValue("datenart"), "BETRIEBSBEZOGEN");
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (betriebsbezogene Daten)");
}

TEST_F(SettingsTest, NullFlagEndsTheReadingThroughItsTrap) {
    setRow("filter_aktiv", store::Variant());
    core::Globals& g = f.g();
    g.settings.datenart_wert.clear();
    core::A_org_lesen(g);
    EXPECT_TRUE(g.settings.datenart_wert.empty());
    EXPECT_NE(f.logText().find("Fehler in Sub/Function: A_org_lesen\r\n"), std::string::npos);
    EXPECT_NE(
        f.logText().find("Fehlerortung:           Fehlerortung: \r\nOrtungs-Nummer/BetrNr:  2\r\n"),
        std::string::npos);
}

TEST_F(SettingsTest, FlagsAreReadAsZeroAndMinusOne) {
    setRow("filter_aktiv", store::Variant::boolean(true));
    core::A_org_lesen(f.g());
    EXPECT_EQ(f.g().settings.filter_aktiv_flag, -1);
    EXPECT_EQ(f.g().settings.dateiendung_flag, 0);
}

TEST_F(SettingsTest, UpdateWritesTheFormAndTheKindThenReadsBack) {
    core::Globals& g = f.g();
    g.settings.datenart_wert = "MELDUNGSBEZOGEN";
    g.settings.filter_aktiv_flag = -1;
    g.forms.optionen.Text6[1] = g.paths.pfad_db + "tl_4x_m.mdb";
    core::A_org_update(g);
    EXPECT_EQ(rowValue("datenart"), "MELDUNGSBEZOGEN");
    EXPECT_EQ(f.g().stores.rs_optionen.Fields("filter_aktiv").Value().toInteger(), -1);
    EXPECT_EQ(g.settings.caption, "TOLMA_4x_Access (meldungsbezogene Daten)");
    EXPECT_EQ(g.settings.db_pfad_aktuell, g.paths.pfad_db + "tl_4x_m.mdb");
    // Both boxes empty: the paths stay, and the row's path is read back.
    g.settings.datenart_wert = "BETRIEBSBEZOGEN";
    g.forms.optionen.Text6[0].clear();
    g.forms.optionen.Text6[1].clear();
    core::A_org_update(g);
    EXPECT_EQ(g.settings.db_pfad_aktuell, g.paths.pfad_db + "tl_4x_b.mdb");
    EXPECT_EQ(rowValue("db_meldungsbezogen"), g.paths.pfad_db + "tl_4x_m.mdb");
}

}  // namespace
}  // namespace tolma::test
