// The options: stores of both kinds, the error log, and the municipality filter.
#include <gtest/gtest.h>

#include "../transfer/import_fixture.h"
#include "core/error_log.h"
#include "options/options_form.h"
#include "search/search_index.h"
#include "store/connection.h"

namespace tolma::test {
namespace {

struct OptionsFixture : ImportFixture {
    options::OptionsForm form;
    void mark(const std::string& kz, const std::string& name) {
        insert(g().stores.db_org, "aktuelleGemeinde",
               {{"gem-kz", kz}, {"gem-name", name}, {"markiert", store::Variant::boolean(true)}});
    }
    Strings marked() {
        Strings out;
        auto rs =
            g().stores.db_org.OpenRecordset("SELECT * FROM aktuelleGemeinde ORDER BY [gem-kz]");
        for (long i = 0; i < rs.RecordCount(); ++i)
            out.push_back(rs.rowAt(i)[0].toString() + "|" + rs.rowAt(i)[1].toString());
        return out;
    }
};

TEST(OptionsTest, ActivationShowsTheActiveKindAndTheMarkedMunicipalities) {
    OptionsFixture f;
    f.mark("01001000", "Flensburg, Stadt");
    options::Form_Activate(f.g(), f.form);
    EXPECT_TRUE(f.form.frameEnabled[0]);
    EXPECT_FALSE(f.form.frameEnabled[1]);
    EXPECT_EQ(f.g().forms.optionen.Text6[1], f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(f.form.List1, (Strings{"01001000  Flensburg, Stadt"}));
    EXPECT_TRUE(f.form.selected[0]);
    EXPECT_FALSE(f.form.Check1);
    EXPECT_FALSE(f.form.filterControlsEnabled);
    options::Check1_Click(f.g(), f.form, true);
    EXPECT_EQ(f.g().settings.filter_aktiv_flag, -1);
    EXPECT_TRUE(f.form.filterControlsEnabled);
}

TEST(OptionsTest, DataKindChangeAnsweredNoChangesNothingYesSwitchesTheStore) {
    OptionsFixture f;
    options::Form_Activate(f.g(), f.form);
    f.dialogs.answers = {core::msg::vbNo};
    options::Command12_Click(f.g(), f.form, 0);
    EXPECT_EQ(f.g().settings.datenart_wert, "BETRIEBSBEZOGEN");
    EXPECT_TRUE(f.form.frameEnabled[0]);
    // The record view keeps its picture: the store changes under it.
    f.g().forms.startView.Image2Visible = false;
    f.g().forms.startView.SSTab1Visible = true;
    f.dialogs.answers = {core::msg::vbYes};
    options::Command12_Click(f.g(), f.form, 0);
    EXPECT_FALSE(f.g().forms.startView.Image2Visible);
    EXPECT_TRUE(f.g().forms.startView.SSTab1Visible);
    EXPECT_EQ(f.g().settings.datenart_wert, "MELDUNGSBEZOGEN");
    EXPECT_FALSE(f.form.frameEnabled[0]);
    EXPECT_TRUE(f.form.frameEnabled[1]);
    EXPECT_EQ(f.g().stores.db_name_daten, f.g().paths.pfad_db + "tl_4x_m.mdb");
    EXPECT_EQ(f.g().settings.caption, "TOLMA_4x_Access (meldungsbezogene Daten)");
    EXPECT_EQ(f.lastMessage(),
              "Der Daten-Art wurde geändert!\nNeue Daten-Art: ''MELDUNGSBEZOGEN''");
    EXPECT_TRUE(f.g().stores.rs_betrieb.isSet());
}

class ChosenFile : public FakeDialogs {
  public:
    std::string file;
    std::string chooseFile(const std::string&, const std::string& filter, int) override {
        seenFilter = filter;
        return file;
    }
    std::string seenFilter;
};

TEST(OptionsTest, PathChangeNeedsAnExistingFileAndReopensTheStore) {
    OptionsFixture f;
    ChosenFile dialogs;
    f.g().dialogs = &dialogs;
    options::Form_Activate(f.g(), f.form);
    const std::string before = f.g().stores.db_name_daten;
    dialogs.answers = {core::msg::vbYes};
    dialogs.file = (f.dir.path() / "fehlt" / "tl_4x_b.mdb").string();
    options::Command11_Click(f.g(), f.form, 0);
    EXPECT_EQ(dialogs.seenFilter, "tl_4x_b.mdb|tl_4x_b.mdb|");
    EXPECT_EQ(dialogs.shown.back().text, "Die Datenbank wurde unter diesem Pfad nicht gefunden!");
    EXPECT_EQ(dialogs.shown.back().style, 48);
    EXPECT_EQ(f.g().stores.db_name_daten, before);

    const auto elsewhere = f.dir.path() / "anderswo";
    std::filesystem::create_directories(elsewhere);
    std::filesystem::copy_file(std::filesystem::path(TOLMA_STORE_DIR) / "tl_4x_b.mdb",
                               elsewhere / "tl_4x_b.mdb");
    f.g().forms.startView.Image2Visible = false;
    f.g().forms.startView.SSTab1Visible = true;
    dialogs.answers = {core::msg::vbYes};
    dialogs.file = (elsewhere / "tl_4x_b.mdb").string();
    options::Command11_Click(f.g(), f.form, 0);
    EXPECT_FALSE(f.g().forms.startView.Image2Visible);  // the record view keeps its picture
    EXPECT_TRUE(f.g().forms.startView.SSTab1Visible);
    EXPECT_EQ(f.g().stores.db_name_daten, dialogs.file);
    EXPECT_EQ(f.g().settings.db_betr_pfad, dialogs.file);
    ASSERT_GE(dialogs.shown.size(), 2u);
    EXPECT_EQ(dialogs.shown[dialogs.shown.size() - 2].text,
              "Der Datenbankpfad wurde geändert!\nNeuer Pfad: ''" + dialogs.file + "''");
    EXPECT_EQ(dialogs.shown.back().title, "Änderung des Datenbankpfades!");
}

TEST(OptionsTest, EmptyingReplacesTheActiveStoreByAnEmptyOne) {
    OptionsFixture f;
    f.dialogs.answers = {core::msg::vbYes};
    transfer::Upd_1_Start(
        f.g(), (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
    ASSERT_GT(f.count("betrieb"), 0);
    search::buildIndex(*f.g().stores.db_daten.connection());
    const auto index = store::Connection::indexFileOf(f.g().stores.db_name_daten);
    ASSERT_TRUE(std::filesystem::exists(index));
    options::Form_Activate(f.g(), f.form);
    f.dialogs.answers = {core::msg::vbNo};
    options::Command4_Click(f.g(), f.form, 0);
    EXPECT_GT(f.count("betrieb"), 0);
    // The record view keeps what it shows: the store changed under it, not its picture.
    f.g().forms.startView.Image2Visible = false;
    f.g().forms.startView.SSTab1Visible = true;
    f.dialogs.answers = {core::msg::vbYes};
    options::Command4_Click(f.g(), f.form, 0);
    EXPECT_EQ(f.count("betrieb"), 0);
    EXPECT_FALSE(std::filesystem::exists(index));  // its names and addresses go with it
    EXPECT_EQ(f.lastMessage(), "Die Datenbank wurde gelöscht und ersetzt!");
    EXPECT_EQ(f.dialogs.shown[f.dialogs.shown.size() - 2].style, 20);
    EXPECT_FALSE(f.g().forms.startView.Image2Visible);
    EXPECT_TRUE(f.g().forms.startView.SSTab1Visible);
}

TEST(OptionsTest, EmptyingWithoutTheEmptyStoreKeepsTheOldOneAndLogsTheRunTimeError) {
    OptionsFixture f;
    f.dialogs.answers = {core::msg::vbYes};
    transfer::Upd_1_Start(
        f.g(), (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
    const long stored = f.count("betrieb");
    ASSERT_GT(stored, 0);
    f.g().paths.dataDir = f.dir.path() / "ohne-vorlagen";
    f.dialogs.answers = {core::msg::vbYes};
    options::Command4_Click(f.g(), f.form, 0);
    EXPECT_EQ(f.count("betrieb"), stored);
    EXPECT_EQ(f.entries("Command4_Click"), 1);
    EXPECT_EQ(f.dialogs.shown.back().style, core::msg::vbCritical);
    EXPECT_EQ(f.lastMessage().rfind("Laufzeitfehler '53':\n\nDatei nicht gefunden", 0), 0u)
        << f.lastMessage();
    for (const auto& m : f.dialogs.shown)
        EXPECT_EQ(m.text.find("leere Datenbank wurde nicht gefunden"), std::string::npos);
}

TEST(OptionsTest, EmptyingAStoreWhoseFileIsGoneEndsSilentlyAfterTheQuestion) {
    OptionsFixture f;
    options::Form_Activate(f.g(), f.form);
    std::filesystem::remove(f.g().stores.db_name_daten);
    const size_t shown = f.dialogs.shown.size();
    f.dialogs.answers = {core::msg::vbYes};
    options::Command4_Click(f.g(), f.form, 0);
    EXPECT_EQ(f.dialogs.shown.size(), shown + 1);  // the question, nothing after it
    EXPECT_FALSE(std::filesystem::exists(f.g().stores.db_name_daten));  // no empty store put there
    EXPECT_TRUE(f.g().stores.db_daten.isSet());                         // the connection stays open
    EXPECT_TRUE(f.g().stores.rs_betrieb.isSet());
}

TEST(OptionsTest, ErrorLogShownOrDeleted) {
    OptionsFixture f;
    options::Command2_Click(f.g(), f.form, 1);
    EXPECT_EQ(f.dialogs.shown.back().title, "Löschen der Error-Log-Datei");
    EXPECT_EQ(f.lastMessage(), "Es wurde keine Error-Log-Datei gefunden!");
    core::A_Error_Log(f.g(), "x", "", "0", "", "", "");
    options::Command2_Click(f.g(), f.form, 0);
    EXPECT_EQ(f.dialogs.viewed.size(), 1u);
    options::Command2_Click(f.g(), f.form, 1);
    EXPECT_EQ(f.lastMessage(), "Die Error-Log-Datei wurde gelöscht!");
    EXPECT_FALSE(std::filesystem::exists(core::errorLogPath(f.g().paths)));
}

TEST(OptionsTest, ShowAllKeepsTheSelectionsOnTheirPositions) {
    OptionsFixture f;
    f.mark("09162000", "München, Landeshauptstadt");
    f.mark("11000000", "Berlin, Stadt");
    options::Form_Activate(f.g(), f.form);
    ASSERT_EQ(f.form.selected, (std::vector<bool>{true, true}));
    f.dialogs.answers = {core::msg::vbYes};
    options::Command6_Click(f.g(), f.form);
    ASSERT_EQ(f.form.List1.size(), 11004u);
    EXPECT_EQ(f.form.List1[0], "01001000  Flensburg, Stadt");
    EXPECT_TRUE(f.form.selected[0] && f.form.selected[1] && !f.form.selected[2]);
    options::Command3_Click(f.g(), f.form, 1);
    EXPECT_EQ(f.marked(),
              (Strings{"01001000|Flensburg, Stadt", "01002000|Kiel, Landeshauptstadt"}));
}

TEST(OptionsTest, KeyFilterShowsMatchesUnselectedAndBackWritesOnlyTheSelection) {
    OptionsFixture f;
    f.mark("01001000", "Flensburg, Stadt");
    options::Form_Activate(f.g(), f.form);
    f.form.Text7 = "99";
    options::Command8_Click(f.g(), f.form);
    EXPECT_EQ(f.lastMessage(), "Kennzahl wurde nicht gefunden!");
    EXPECT_EQ(f.form.List1.size(), 1u);
    f.form.Text7 = "0105";
    options::Command8_Click(f.g(), f.form);
    EXPECT_GT(f.form.List1.size(), 100u);
    EXPECT_EQ(std::count(f.form.selected.begin(), f.form.selected.end(), true), 0);
    f.form.Text7 = "o'";
    options::Command8_Click(f.g(), f.form);  // an apostrophe breaks nothing
    EXPECT_FALSE(f.g().log.fehler_vorhanden);

    options::Check1_Click(f.g(), f.form, true);
    EXPECT_TRUE(options::Command3_Click(f.g(), f.form, 1));
    EXPECT_TRUE(f.marked().empty());  // nothing selected: the table is empty
    EXPECT_EQ(f.g().stores.rs_optionen.Fields("filter_aktiv").Value().toInteger(), -1);
    EXPECT_TRUE(f.g().forms.startView.Image2Visible);
}

}  // namespace
}  // namespace tolma::test
