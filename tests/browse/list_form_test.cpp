// The selection lists: their query texts, opening, typing, sorting, OK, and the walk.
#include <gtest/gtest.h>

#include "../transfer/import_fixture.h"
#include "browse/list_form.h"
#include "browse/record_view.h"
#include "store/connection.h"
#include "store/german_text.h"
#include "store/jet_sql.h"

namespace tolma::test {
namespace {

using browse::BusinessQuery;

TEST(ListQueryTest, BusinessListTextsAsComposed) {
    const std::string A =
        "SELECT betrieb.*, betrieb_adresse.* FROM betrieb INNER JOIN betrieb_adresse ON "
        "(betrieb.[betr-hist-nr] = betrieb_adresse.[betr-hist-nr]) ";
    const std::string D = "AND (betrieb.[betr-nr] = betrieb_adresse.[betr-nr]) ";
    const std::string E = "WHERE betrieb_adresse.[b-adr-art] = '1' ";
    const std::string k = " or [gem-kz] = '01054056' ";
    struct Case {
        BusinessQuery which;
        bool filter;
        std::string text;
    } cases[] = {
        {BusinessQuery::Menu, false,
         A + D + E + "AND [meld-art] <> '999' ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Menu, true,
         A + D + E + "AND ([gem-kz] = ''" + k +
             ")AND [meld-art] <> '999' ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Alle, false, A + D + E + "ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Alle, true,
         A + D + E + "AND [gem-kz] = ''" + k + "ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Aktuelle, false,
         A + "AND betrieb.[betr-nr] = betrieb_adresse.[betr-nr] WHERE [betr-ende] Is Null AND "
             "betrieb_adresse.[b-adr-art] = "
             "'1'ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Aktuelle, true,
         A + D + E + "AND [gem-kz] = ''" + k +
             "AND [betr-ende] Is Null ORDER BY betrieb.[betr-nr]"},
        {BusinessQuery::Abgemeldete, false,
         A + D +
             "WHERE [betr-ende] Is NOT Null AND betrieb_adresse.[b-adr-art] = '1' ORDER BY "
             "betrieb.[betr-nr]"},
        {BusinessQuery::Abgemeldete, true,
         A + D + E + "AND [gem-kz] = ''" + k +
             "AND [betr-ende] Is NOT Null ORDER BY betrieb.[betr-nr]"},
    };
    for (const auto& c : cases) EXPECT_EQ(browse::businessListQuery(c.which, c.filter, k), c.text);
    EXPECT_EQ(browse::personListQuery(" where betrieb.[gem-kz] = ''", "person.[fam-name] DESC"),
              "SELECT person.[pers-nr], person.[p-eintr-name], person.[fam-name], "
              "betrieb.[betr-nr], betrieb.[betr-hist-nr], "
              "betrieb.[gem-kz], betrieb.[b-eintr-name],beziehung_betrieb_person.[pers-nr-jp]  "
              "FROM (betrieb  INNER JOIN "
              "beziehung_betrieb_person  ON (beziehung_betrieb_person.[bez-betr-hist-nr] = "
              "betrieb.[betr-hist-nr])  AND "
              "(betrieb.[betr-nr] = beziehung_betrieb_person.[bez-betr-nr])) INNER JOIN person ON "
              "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr]  where betrieb.[gem-kz] = "
              "'' ORDER BY "
              "person.[fam-name] DESC;");
}

struct ListFixture : ImportFixture {
    browse::ListForm betr{false}, pers{true};
    ListFixture() {
        dialogs.answers = {core::msg::vbYes};
        transfer::Upd_1_Start(
            g(), (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
    }
    std::string current(browse::ListForm& f, const char* field) { return f.data.fieldText(field); }
    void mark(const std::string& gemKz) {
        insert(g().stores.db_org, "aktuelleGemeinde",
               {{"gem-kz", gemKz}, {"gem-name", "x"}, {"markiert", store::Variant::boolean(true)}});
    }
};

// SQLite's plan for a query text as the engine prepares it for the data store.
std::string planOf(core::Globals& g, const std::string& jet) {
    const auto& c = g.stores.db_daten.connection();
    const auto p = store::jet::prepare(jet, &c->catalog());
    auto st = c->prepare("EXPLAIN QUERY PLAN " + p.shape->sql);
    st->bindValues(p.values, p.shape->numeric);
    std::string plan;
    while (st->step()) plan += st->column(3).toString() + "\n";
    return plan;
}

TEST(ListFormTest, ListsAndKeyLookUpsStayOnTheirIndexes) {
    ListFixture f;
    for (auto which : {BusinessQuery::Menu, BusinessQuery::Alle, BusinessQuery::Aktuelle,
                       BusinessQuery::Abgemeldete}) {
        const std::string plan =
            planOf(f.g(), browse::businessListQuery(which, true, " or [gem-kz] = '01054056' "));
        EXPECT_NE(plan.find("SEARCH betrieb_adresse USING INDEX"), std::string::npos) << plan;
        EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos)
            << "the order comes from the key index: " << plan;
    }
    const std::string persons = planOf(f.g(), browse::personListQuery("", ""));
    EXPECT_NE(persons.find("USING INDEX"), std::string::npos) << persons;
    // The look-ups the import and the record view run by key.
    for (const char* lookUp :
         {"SELECT * FROM betrieb WHERE [betr-nr] = '010540001037' AND [betr-hist-nr] = '3'",
          "SELECT * FROM person WHERE [pers-nr] = '900000004737'",
          "DELETE FROM person_erlaubnis WHERE [pers-nr] = '1' AND [betr-nr] = '2'",
          "SELECT * FROM beziehung_betrieb_person WHERE [bez-betr-nr] = '010540001037'"}) {
        const std::string plan = planOf(f.g(), lookUp);
        EXPECT_NE(plan.find("USING INDEX"), std::string::npos) << lookUp << "\n" << plan;
    }
    // Names are compared the German way, here without an index to lose.
    EXPECT_EQ(
        f.rows("SELECT [betr-nr] FROM betrieb WHERE [b-eintr-name] = 'BÄCKEREI PETERSEN E.K.'")
            .size(),
        1u);
}

TEST(ListFormTest, BusinessListOpensTypesSortsAndLoadsTheRecordView) {
    ListFixture f;
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    EXPECT_TRUE(f.g().forms.marks.menue_suchen_betrieb);
    EXPECT_FALSE(browse::menue_suchen_betrieb(f.g(), f.betr));  // a second click does nothing
    const long n = f.betr.data.Recordset().RecordCount();
    EXPECT_EQ(f.betr.Label1, "Betrieb Nr. 1 von " + std::to_string(n));
    EXPECT_GT(n, 40);

    f.betr.Text1[3] = "fisch";
    browse::Text1_Change(f.g(), f.betr, 3);
    EXPECT_EQ(f.current(f.betr, "b-eintr-name"), "Fischhandel Johannsen OHG");

    browse::Text1_Click(f.g(), f.betr, 3);
    EXPECT_TRUE(f.betr.Text1[3].empty());
    // Only what stands behind "ORDER BY" is replaced; the blank ahead of it doubles.
    EXPECT_EQ(f.betr.data.RecordSource.substr(f.betr.data.RecordSource.size() - 38),
              "'999'  ORDER BY betrieb.[b-eintr-name]");
    browse::Text1_Click(f.g(), f.betr, 3);  // the column runs upward: it stays so
    EXPECT_EQ(f.betr.data.RecordSource.find(" DESC"), std::string::npos);
    f.betr.data.RecordSource = f.betr.data.RecordSource + " DESC";
    f.betr.data.Refresh();
    browse::Text1_Click(f.g(), f.betr, 3);  // a column that runs downward stays downward
    EXPECT_NE(f.betr.data.RecordSource.find("ORDER BY betrieb.[b-eintr-name] DESC"),
              std::string::npos);
    EXPECT_EQ(f.betr.Label1, "Betrieb Nr. 1 von " + std::to_string(n));

    browse::Option1_Click(f.g(), f.betr, 2);
    EXPECT_NE(f.betr.data.RecordSource.find("Is NOT Null"), std::string::npos);
    const std::string name = f.current(f.betr, "b-eintr-name");
    EXPECT_TRUE(browse::Command1_Click(f.g(), f.betr, 0));
    EXPECT_EQ(browse::dataControls(f.g()).DATA_BETR.fieldText("b-eintr-name"), name);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Meldedaten");
    EXPECT_EQ(f.g().view.satz_gewaehlt, "ja");
    browse::Form_Unload(f.g(), f.betr);
    EXPECT_FALSE(f.g().forms.marks.menue_suchen_betrieb);
}

TEST(ListFormTest, FilterWithoutMarksAsksAndMarkWithoutRowsNamesTheOptions) {
    ListFixture f;
    f.g().settings.filter_aktiv_flag = -1;
    f.dialogs.answers = {core::msg::vbNo};
    EXPECT_FALSE(browse::menue_suchen_betrieb(f.g(), f.betr));
    EXPECT_EQ(f.lastMessage(),
              "Filter ist aktiviert, aber keine Gemeindekennzahl festgelegt!\n\nWollen Sie eine "
              "auswählen?\n");
    EXPECT_FALSE(f.g().forms.marks.menue_suchen_betrieb);

    f.mark("09162000");
    EXPECT_FALSE(browse::menue_suchen_betrieb(f.g(), f.betr));
    EXPECT_EQ(f.lastMessage(),
              "Bitte wählen Sie im Menüpunkt ''Optionen'',\neine gültige Gemeindekennzahl aus!");

    f.mark("01054056");
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    EXPECT_EQ(f.g().view.gem_filter_sicher, " or [gem-kz] = '09162000'  or [gem-kz] = '01054056' ");
    EXPECT_EQ(f.current(f.betr, "gem-kz"), "01054056");
}

TEST(ListFormTest, PersonListOpensAndOkShowsTheBusinessOnTheFirstPersonTab) {
    ListFixture f;
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    browse::Form_Activate(f.g(), f.pers);
    EXPECT_EQ(f.pers.Label1,
              "Person Nr. 1 von " + std::to_string(f.pers.data.Recordset().RecordCount()));
    f.pers.Text1[2] = "Johannsen";
    browse::Text1_Change(f.g(), f.pers, 2);
    const std::string nr = f.current(f.pers, "betr-nr");
    EXPECT_TRUE(browse::Command1_Click(f.g(), f.pers, 0));
    EXPECT_EQ(browse::dataControls(f.g()).DATA_BETR.fieldText("betr-nr"), nr);
    EXPECT_EQ(f.g().forms.startView.SSTab1Tab, 3);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Personendaten (nat. und jur. Person)");

    // Filter on and nothing marked: unlike the business list it asks nothing and points to no
    // options; the list asks for an empty municipality and comes out empty.
    f.g().settings.filter_aktiv_flag = -1;
    browse::ListForm empty(true);
    f.g().forms.marks.menue_suchen_person = false;
    const size_t shown = f.dialogs.shown.size();
    EXPECT_FALSE(browse::menue_suchen_person(f.g(), empty));
    EXPECT_EQ(f.g().view.gem_filter_text, " where betrieb.[gem-kz] = ''");
    ASSERT_EQ(f.dialogs.shown.size(), shown + 1);
    EXPECT_EQ(f.lastMessage(), "Es wurden in der Datenbank keine Sätze gefunden!");
    EXPECT_EQ(f.dialogs.shown.back().title, "Auswahlliste Personen!");
    EXPECT_FALSE(f.g().forms.marks.menue_suchen_person);
}

// Sorting a list by a name column through the list's own query gives German order: ä with a,
// the plain letter first.
TEST(ListFormTest, ListsSortedByANameColumnShowGermanOrder) {
    ListFixture f;
    for (auto* form : {&f.betr, &f.pers}) {
        ASSERT_TRUE(form == &f.betr ? browse::menue_suchen_betrieb(f.g(), *form)
                                    : browse::menue_suchen_person(f.g(), *form));
        const int column = form == &f.betr ? 3 : 5;  // Betriebsname
        browse::Text1_Click(f.g(), *form, column);
        auto& rs = form->data.Recordset();
        std::vector<std::string> names;
        for (long r = 0; r < rs.RecordCount(); ++r)
            names.push_back(
                rs.rowAt(r)[static_cast<size_t>(rs.fieldIndex("b-eintr-name"))].toString());
        ASSERT_GT(names.size(), 10u);
        // The click keeps the direction the column showed; either way the order is German.
        if (store::german::compare(names.front(), names.back()) > 0)
            std::reverse(names.begin(), names.end());
        for (size_t i = 1; i < names.size(); ++i)
            EXPECT_LE(store::german::compare(names[i - 1], names[i]), 0)
                << names[i - 1] << " / " << names[i];
        // "Bäckerei" stands before "Boutique", not after it as bytes would have it.
        const auto at = [&](const std::string& prefix) {
            return std::find_if(names.begin(), names.end(),
                                [&](const std::string& n) { return n.rfind(prefix, 0) == 0; });
        };
        ASSERT_NE(at("Bäckerei"), names.end());
        ASSERT_NE(at("Boutique"), names.end());
        EXPECT_LT(at("Bäckerei"), at("Boutique"));
        browse::Form_Unload(f.g(), *form);
    }
}

// The person list's own rules: its filter, a person at two business states, the column that
// has no search box.
TEST(PersonListTest, FilterTermsJoinBehindTheBusinessTermWithoutATrailingBlank) {
    ListFixture f;
    f.g().settings.filter_aktiv_flag = -1;
    f.mark("01054056");
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    EXPECT_EQ(f.g().view.gem_filter_text, " where betrieb.[gem-kz] = '' or [gem-kz] = '01054056'");
    auto& rs = f.pers.data.Recordset();
    ASSERT_GT(rs.RecordCount(), 0);
    for (long r = 0; r < rs.RecordCount(); ++r)
        EXPECT_EQ(rs.rowAt(r)[static_cast<size_t>(rs.fieldIndex("gem-kz"))].toString(), "01054056");
}

TEST(PersonListTest, APersonAtTwoBusinessStatesStandsTwiceAndOkTakesTheChosenRow) {
    ListFixture f;
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    auto& rs = f.pers.data.Recordset();
    std::vector<long> rows;
    for (long r = 0; r < rs.RecordCount(); ++r)
        if (rs.rowAt(r)[static_cast<size_t>(rs.fieldIndex("pers-nr"))].toString() == "900000004724")
            rows.push_back(r);
    ASSERT_EQ(rows.size(), 2u);
    rs.setAbsolutePosition(rows[1]);
    const std::string business = f.current(f.pers, "betr-nr");
    rs.setAbsolutePosition(rows[0]);
    ASSERT_NE(f.current(f.pers, "betr-nr"), business);
    rs.setAbsolutePosition(rows[1]);
    EXPECT_TRUE(browse::Command1_Click(f.g(), f.pers, 0));
    EXPECT_EQ(browse::dataControls(f.g()).DATA_BETR.fieldText("betr-nr"), business);
}

TEST(PersonListTest, ASortComposesTheQueryAfreshWithTheMarkingsOfNow) {
    ListFixture f;
    f.g().settings.filter_aktiv_flag = -1;
    f.mark("01054056");
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    const long before = f.pers.data.Recordset().RecordCount();
    // The options mark another municipality while the list stands open.
    f.mark("01054088");
    browse::Text1_Click(f.g(), f.pers, 2);
    EXPECT_EQ(f.g().view.gem_filter_text,
              " where betrieb.[gem-kz] = '' or [gem-kz] = '01054056' or [gem-kz] = '01054088'");
    EXPECT_NE(f.pers.data.RecordSource.find(" ORDER BY person.[fam-name]"), std::string::npos)
        << f.pers.data.RecordSource;
    auto& rs = f.pers.data.Recordset();
    EXPECT_GT(rs.RecordCount(), before);
    EXPECT_EQ(f.pers.Label1, "Person Nr. 1 von " + std::to_string(rs.RecordCount()));
}

TEST(PersonListTest, TheRepresentedPersonIsShownButNotSearched) {
    const auto& columns = browse::personColumns();
    ASSERT_EQ(columns.size(), 8u);
    EXPECT_EQ(columns[7].expression, nullptr);
    for (size_t i = 0; i < 7; ++i) EXPECT_NE(columns[i].expression, nullptr) << i;
}

TEST(ListFormTest, WalkToTheRepresentativesOfALegalPersonAndBack) {
    ListFixture f;
    browse::DB_Load_DATA(f.g(), "01054056", "010540001074", "1", "");
    EXPECT_EQ(browse::dataControls(f.g()).DATA_PERS.fieldText("p-art"), "JP");
    f.g().forms.marks.menue_info = true;
    EXPECT_FALSE(browse::Frm_Start_Command1_Click(f.g(), f.pers));  // another function is open
    f.g().forms.marks.menue_info = false;
    ASSERT_TRUE(browse::Frm_Start_Command1_Click(f.g(), f.pers));
    EXPECT_FALSE(f.pers.Frame1Visible);
    EXPECT_EQ(f.pers.data.Recordset().RecordCount(), 2);
    const std::string representative = f.current(f.pers, "pers-nr");
    EXPECT_TRUE(browse::Command1_Click(f.g(), f.pers, 0));
    browse::Form_Unload(f.g(), f.pers);
    EXPECT_EQ(browse::dataControls(f.g()).DATA_PERS.fieldText("pers-nr"), representative);
    EXPECT_TRUE(f.g().forms.startView.Command3Visible);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Personendaten (Vertreter einer jur. Person)");
    EXPECT_EQ(browse::dataControls(f.g()).DATA_BETR.fieldText("betr-nr"),
              "010540001074");  // the business stays

    // A natural person has no representatives.
    EXPECT_FALSE(browse::Frm_Start_Command1_Click(f.g(), f.pers));

    browse::SSTab1_Click(f.g(), 3);
    browse::Frm_Start_Command3_Click(f.g());
    EXPECT_FALSE(f.g().forms.startView.Command3Visible);
    EXPECT_EQ(f.g().forms.startView.Label2, "Anzeige: Meldedaten");
    EXPECT_EQ(f.g().forms.startView.SSTab1Tab, 3);
    EXPECT_EQ(browse::dataControls(f.g()).DATA_PERS.fieldText("p-art"), "JP");
}

}  // namespace
}  // namespace tolma::test
