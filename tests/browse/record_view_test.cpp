// Loading a business into the record view's data controls, and what their handlers show.
#include <gtest/gtest.h>

#include "../transfer/import_fixture.h"
#include "browse/record_view.h"

namespace tolma::test {
namespace {

struct RecordViewFixture : ImportFixture {
    RecordViewFixture() {
        dialogs.answers = {core::msg::vbYes};
        transfer::Upd_1_Start(
            g(), (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
    }
    void load(const std::string& betrNr) {
        const auto row =
            rows("SELECT [gem-kz], [betr-hist-nr] FROM betrieb WHERE [betr-nr] = '" + betrNr + "'")
                .at(0);
        const auto bar = row.find('|');
        browse::DB_Load_DATA(g(), row.substr(0, bar), betrNr, row.substr(bar + 1), "");
    }
    std::string field(browse::DataControl& c, const std::string& name) { return c.fieldText(name); }
    void sql(const std::string& statement) { g().stores.db_daten.Execute(statement); }
};

const std::string kBau = "010540001074";    // a GmbH with two representatives
const std::string kFisch = "010540001407";  // an OHG with two partners
const std::string kBaeckerei = "010540001037";

TEST(RecordViewTest, LoadedBusinessFillsItsDataControls) {
    RecordViewFixture f;
    f.load(kBau);
    auto& d = browse::dataControls(f.g());
    EXPECT_EQ(f.field(d.DATA_BETR, "b-eintr-name"), "Nordsee Bau GmbH");
    EXPECT_EQ(f.field(d.DATA_ORG, "gem-name"), f.g().forms.startView.Text_136);
    EXPECT_NE(f.g().forms.startView.Text_136, "");
    EXPECT_EQ(d.DATA_ADR.Caption,
              "Satz 1 von " + std::to_string(d.DATA_ADR.Recordset().RecordCount()));
    // Only the legal person itself stands among the persons: its representatives hang under it.
    EXPECT_EQ(d.DATA_PERS.Recordset().RecordCount(), 1);
    EXPECT_EQ(f.field(d.DATA_PERS, "p-art"), "JP");
    EXPECT_EQ(d.DATA_PERS.Caption, "Satz 1 von 1");
    EXPECT_FALSE(f.g().forms.startView.TextPers_8.empty());
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();
}

TEST(RecordViewTest, SubTableWithoutRowsShowsZeroAndEmptyFields) {
    RecordViewFixture f;
    f.sql("DELETE FROM betrieb_handwerkskarte WHERE [betr-nr] = '" + kBaeckerei + "'");
    f.load(kBaeckerei);
    auto& d = browse::dataControls(f.g());
    EXPECT_EQ(d.DATA_BETRHwk.Caption, "0");
    EXPECT_EQ(f.field(d.DATA_BETRHwk, "b-hwk-art"), "");
    EXPECT_EQ(d.DATA_PERSErl.Caption, "0");
}

TEST(RecordViewTest, MovingThePersonsRequeriesTheirTabs) {
    RecordViewFixture f;
    f.sql("UPDATE beziehung_betrieb_person SET [p-funktion] = '2x' WHERE [bez-betr-nr] = '" +
          kFisch + "'");
    f.load(kFisch);
    auto& d = browse::dataControls(f.g());
    ASSERT_EQ(d.DATA_PERS.Recordset().RecordCount(), 2);
    const std::string first = f.field(d.DATA_PERS, "pers-nr");
    EXPECT_EQ(f.field(d.DATA_Bez_Betr_Pers, "bez-pers-nr"), first);
    EXPECT_EQ(f.g().forms.startView.TextPers_8, "Geschäftsführender Gesellschafter");
    f.sql("UPDATE beziehung_betrieb_person SET [p-funktion] = 'x' WHERE [bez-betr-nr] = '" +
          kFisch + "'");
    d.DATA_PERS.Recordset().MoveNext();
    EXPECT_EQ(d.DATA_PERS.Caption, "Satz 2 von 2");
    EXPECT_NE(f.field(d.DATA_PERS, "pers-nr"), first);
    EXPECT_EQ(f.field(d.DATA_Bez_Betr_Pers, "bez-pers-nr"), f.field(d.DATA_PERS, "pers-nr"));
    EXPECT_EQ(f.g().forms.startView.TextPers_8, "");
}

TEST(RecordViewTest, DecodedTextsCarryOverWhereTheCodeHasNoMeaning) {
    RecordViewFixture f;
    f.sql("UPDATE betrieb SET [korr-meld] = '3' WHERE [betr-nr] = '" + kBau + "'");
    f.sql(
        "UPDATE betrieb_taetigkeit SET [tk-schwerp] = '1', [tk-ummeldung] = '2' WHERE [betr-nr] = "
        "'" +
        kBau + "'");
    f.sql("DELETE FROM betrieb_taetigkeit WHERE [betr-nr] = '" + kFisch + "'");
    f.sql("UPDATE betrieb SET [korr-meld] = '9' WHERE [betr-nr] = '" + kFisch + "'");
    auto& v = f.g().forms.startView;
    EXPECT_EQ(v.Text_Schwerpunkt, "Schwerpunkt");  // the design's words until a first activity
    f.load(kBau);
    EXPECT_EQ(v.Text_Korrekturmeldung, "Eintritt gesetzl. Vertr. bei KapG");
    EXPECT_EQ(v.Text_Schwerpunkt, "ja");
    EXPECT_EQ(v.Text_Ummeldung, "Tätigkeit wird weiterhin ausgeübt");
    f.load(kFisch);
    EXPECT_EQ(v.Text_Korrekturmeldung, "Eintritt gesetzl. Vertr. bei KapG");
    EXPECT_EQ(v.Text_Schwerpunkt, "ja");
    EXPECT_EQ(browse::dataControls(f.g()).DATA_TAET.Caption, "0");
    f.sql(
        "UPDATE betrieb_taetigkeit SET [tk-schwerp] = '0', [tk-ummeldung] = ' 2' WHERE [betr-nr] = "
        "'" +
        kBau + "'");
    f.load(kBau);
    EXPECT_EQ(v.Text_Schwerpunkt, "nein");
    EXPECT_EQ(v.Text_Ummeldung, "Tätigkeit wird weiterhin ausgeübt");
}

TEST(RecordViewTest, UnknownOrHostileKeysLeaveTheOtherControlsAsTheyWere) {
    RecordViewFixture f;
    f.load(kBau);
    auto& d = browse::dataControls(f.g());
    const std::string caption = d.DATA_ADR.Caption;
    browse::DB_Load_DATA(f.g(), "01054056", "x' OR 'a'='a", "1", "");
    EXPECT_EQ(d.DATA_BETR.Recordset().RecordCount(), 0);
    EXPECT_EQ(f.field(d.DATA_BETR, "b-eintr-name"), "");
    EXPECT_EQ(d.DATA_ADR.Caption, caption);
    EXPECT_FALSE(f.g().log.fehler_vorhanden);
}

TEST(RecordViewTest, TabClickSetsTheLabelAndThePersonFrame) {
    RecordViewFixture f;
    browse::SSTab1_Click(f.g(), 3);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Personendaten (nat. und jur. Person)");
    EXPECT_TRUE(f.g().forms.startView.Frame_AnzahlVisible);
    EXPECT_TRUE(f.g().forms.startView.DATA_PERSVisible);
    browse::SSTab1_Click(f.g(), 2);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Tätigkeiten/Handwerkskarten");
    EXPECT_FALSE(f.g().forms.startView.Frame_AnzahlVisible);
    browse::SSTab1_Click(f.g(), 7);
    EXPECT_EQ(f.g().forms.startView.SSTab1Tab, 2);
    browse::Form_KeyPress(f.g(), 27);
    EXPECT_EQ(f.g().view.taste, 27);
}

}  // namespace
}  // namespace tolma::test
