// The system's query texts, exactly as the program composes them, give the old engine's rows.
#include <gtest/gtest.h>

#include "store/dao_error.h"
#include "test_db.h"

namespace tolma::test {
namespace {

using store::Recordset;

std::vector<std::string> valuesOf(Recordset rs, const std::string& field) {
    std::vector<std::string> out;
    if (rs.RecordCount() == 0) return out;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        out.push_back(rs.Fields(field).Value().toString());
    return out;
}

using Strings = std::vector<std::string>;

// Pieces of the business list's query texts.
const std::string A = "SELECT betrieb.*, betrieb_adresse.* ";
const std::string B = "FROM betrieb ";
const std::string C =
    "INNER JOIN betrieb_adresse ON (betrieb.[betr-hist-nr] = betrieb_adresse.[betr-hist-nr]) ";
const std::string D = "AND (betrieb.[betr-nr] = betrieb_adresse.[betr-nr]) ";
const std::string E = "WHERE betrieb_adresse.[b-adr-art] = '1' ";
const std::string F = "AND [gem-kz] = ''";
const std::string O = "ORDER BY betrieb.[betr-nr]";

class JetQueries : public ::testing::Test {
  protected:
    TempDir dir;
    store::Database db = makeSampleStore(dir.path() / "tl_4x_b.mdb");
    store::Database org = copySettingsStore(dir.path() / "TL_Org.mdb");
};

TEST_F(JetQueries, BusinessListFromTheMenuLeavesOutCode999AndBusinessesWithoutMainAddress) {
    Recordset rs = db.OpenRecordset(A + B + C + D + E + "AND [meld-art] <> '999' " + O);
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1001", "1002"}));
    EXPECT_FALSE(rs.Updatable());
}

TEST_F(JetQueries, BusinessListNamesSharedFieldsByTableAndOthersBare) {
    Recordset rs = db.OpenRecordset(A + B + C + D + E + O);
    EXPECT_EQ(rs.Fields("betrieb.betr-nr").Value().toString(), "1001");
    EXPECT_EQ(rs.Fields("betrieb_adresse.betr-hist-nr").Value().toString(), "1");
    EXPECT_EQ(rs.Fields("b-ort").Value().toString(), "Flensburg");
    EXPECT_EQ(rs.Fields("gem-kz").Value().toString(), "01001000");
    try {
        rs.Fields("betr-nr");
        FAIL() << "a shared name must not be found bare";
    } catch (const store::DaoError& e) {
        EXPECT_EQ(e.number(), 3265);
        EXPECT_EQ(e.source(), "DAO.Fields");
    }
}

TEST_F(JetQueries, BusinessListFromTheMenuWithBracketedMunicipalityChain) {
    const std::string kette = " or [gem-kz] = '01001000' ";
    Recordset rs = db.OpenRecordset(A + B + C + D + E + "AND ([gem-kz] = ''" + kette +
                                    ")AND [meld-art] <> '999' " + O);
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1001"}));
}

TEST_F(JetQueries, OptionAllWithoutFilterShowsCode999Too) {
    Recordset rs = db.OpenRecordset(A + B + C + D + E + O);
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1001", "1002", "1003"}));
}

TEST_F(JetQueries, OptionAllWithUnbracketedChainLetsOtherAddressKindsThrough) {
    // The address kind binds to the empty term alone, so the marked municipality brings its
    // address of kind 2 into the list.
    Recordset rs = db.OpenRecordset(A + B + C + D + E + F + " or [gem-kz] = '01001000' " + O);
    EXPECT_EQ(valuesOf(rs, "b-adr-art"), (Strings{"1", "2", "1"}));
}

TEST_F(JetQueries, OptionCurrentWithoutFilterHasNoBlankBeforeOrderBy) {
    Recordset rs = db.OpenRecordset(
        A + B + C + "AND betrieb.[betr-nr] = betrieb_adresse.[betr-nr] " +
        "WHERE [betr-ende] Is Null " + "AND betrieb_adresse.[b-adr-art] = '1'" + O);
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1001", "1003"}));
}

TEST_F(JetQueries, OptionDeregisteredWithoutFilter) {
    Recordset rs = db.OpenRecordset(A + B + C + D + "WHERE [betr-ende] Is NOT Null " +
                                    "AND betrieb_adresse.[b-adr-art] = '1' " + O);
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1002"}));
}

TEST_F(JetQueries, OptionCurrentWithFilterBindsToTheLastMunicipalityAlone) {
    const std::string kette = " or [gem-kz] = '01002000'  or [gem-kz] = '01001000' ";
    Recordset rs = db.OpenRecordset(A + B + C + D + E + F + kette + "AND [betr-ende] Is Null " + O);
    // 1002 is deregistered but stands in the list: its municipality is not the last term.
    EXPECT_EQ(valuesOf(rs, "betrieb.betr-nr"), (Strings{"1001", "1001", "1002", "1003"}));
}

TEST_F(JetQueries, TypingJumpsWithLikeWithoutRegardToCaseOrUmlauts) {
    Recordset rs = db.OpenRecordset(A + B + C + D + E + O);
    rs.MoveFirst();
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'öz*'");
    ASSERT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.Fields("betrieb.betr-nr").Value().toString(), "1002");
    rs.MoveFirst();
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'ÖZ?ÜRK*'");
    EXPECT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.AbsolutePosition(), 1);
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'mü*'");
    EXPECT_FALSE(rs.NoMatch());
    EXPECT_EQ(rs.AbsolutePosition(), 0);
    rs.MoveLast();
    rs.FindFirst("betrieb.[b-eintr-name] LIKE 'nichts*'");
    EXPECT_TRUE(rs.NoMatch());
    EXPECT_EQ(rs.AbsolutePosition(), 2);  // position stays where it was
}

TEST_F(JetQueries, LikeFindsUmlautsInEitherCase) {
    Recordset rs = db.OpenRecordset("SELECT * FROM person WHERE [fam-name] LIKE 'ÖZ?ÜRK*'");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5003"}));
    insert(db, "person", {{"pers-nr", "6001"}, {"fam-name", "ÖZTÜRK"}});
    rs = db.OpenRecordset(
        "SELECT * FROM person WHERE [fam-name] LIKE 'öz?ürk*' ORDER BY [pers-nr] DESC");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"6001", "5003"}));
    rs = db.OpenRecordset("SELECT * FROM person WHERE [fam-name] LIKE 'mü*'");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5001"}));
}

TEST_F(JetQueries, TextComparesWithoutRegardToCaseAndDoubleQuotesAreTexts) {
    EXPECT_EQ(valuesOf(db.OpenRecordset("SELECT * FROM betrieb_adresse WHERE [b-ort] = 'KIEL'"),
                       "betr-nr"),
              (Strings{"1002"}));
    EXPECT_EQ(
        valuesOf(db.OpenRecordset("SELECT * FROM person WHERE [fam-name] = \"müller\""), "pers-nr"),
        (Strings{"5001"}));
    EXPECT_EQ(
        valuesOf(db.OpenRecordset("SELECT * FROM person WHERE [pers-nr] = \"pers-nr\""), "pers-nr"),
        (Strings{}));
}

const std::string kPersonList =
    std::string("SELECT person.[pers-nr], person.[p-eintr-name], person.[fam-name], ") +
    "betrieb.[betr-nr], betrieb.[betr-hist-nr], betrieb.[gem-kz], "
    "betrieb.[b-eintr-name],beziehung_betrieb_person.[pers-nr-jp] " +
    " FROM (betrieb " + " INNER JOIN beziehung_betrieb_person " +
    " ON (beziehung_betrieb_person.[bez-betr-hist-nr] = betrieb.[betr-hist-nr]) " +
    " AND (betrieb.[betr-nr] = beziehung_betrieb_person.[bez-betr-nr]))" +
    " INNER JOIN person ON beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] ";

TEST_F(JetQueries, PersonListWithoutFilterShowsEveryLinkOfAnExistingPerson) {
    Recordset rs = db.OpenRecordset(kPersonList + "" + " ORDER BY person.[pers-nr];");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5001", "5002", "5003", "5004"}));
    EXPECT_EQ(rs.FieldCount(), 8);
    EXPECT_EQ(rs.Fields(7).Name(), "pers-nr-jp");
}

TEST_F(JetQueries, PersonListWithFilterAndSortByColumn) {
    Recordset rs =
        db.OpenRecordset(kPersonList + " where betrieb.[gem-kz] = '' or [gem-kz] = '01002000'" +
                         " ORDER BY " + "betrieb.[b-eintr-name]" + " DESC" + ";");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5003"}));
    rs = db.OpenRecordset(kPersonList + " where betrieb.[gem-kz] = ''" +
                          " ORDER BY person.[pers-nr];");
    EXPECT_EQ(rs.RecordCount(), 0);
}

TEST_F(JetQueries, RepresentativesOfALegalPerson) {
    const std::string gemFilter = " where beziehung_betrieb_person.[pers-nr-jp] = '5002'";
    Recordset rs = db.OpenRecordset(
        "SELECT person.[pers-nr], person.[p-eintr-name], person.[fam-name], betrieb.[betr-nr], "
        "betrieb.[betr-hist-nr], "
        "betrieb.[gem-kz], betrieb.[b-eintr-name], beziehung_betrieb_person.[pers-nr-jp], "
        "beziehung_betrieb_person.[p-funktion]  "
        "FROM (betrieb  INNER JOIN beziehung_betrieb_person  ON "
        "(beziehung_betrieb_person.[bez-betr-hist-nr] = betrieb.[betr-hist-nr])  "
        "AND (beziehung_betrieb_person.[bez-betr-nr] = betrieb.[betr-nr])) INNER JOIN person ON "
        "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] " +
        gemFilter +
        " AND beziehung_betrieb_person.[bez-betr-nr] = '1001' AND "
        "beziehung_betrieb_person.[pers-nr-jp] = '5002' "
        "AND beziehung_betrieb_person.[bez-betr-hist-nr] = '1' ORDER BY person.[pers-nr];");
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5004"}));
}

TEST_F(JetQueries, RepresentativeShownInThePersonViewWithoutBlankBeforeWhere) {
    Recordset rs = db.OpenRecordset(std::string("SELECT DISTINCTROW * FROM person ") +
                                    "INNER JOIN beziehung_betrieb_person ON person.[pers-nr] = "
                                    "beziehung_betrieb_person.[bez-pers-nr]" +
                                    "WHERE beziehung_betrieb_person.[bez-betr-nr]= '1001' " +
                                    "AND beziehung_betrieb_person.[bez-betr-hist-nr]= '1' " +
                                    "AND beziehung_betrieb_person.[bez-pers-nr]= '5004' ;");
    ASSERT_EQ(rs.RecordCount(), 1);
    EXPECT_EQ(rs.Fields(0).Name(), "pers-nr");
    EXPECT_EQ(rs.Fields(0).Value().toString(), "5004");
    EXPECT_EQ(rs.Fields("p-funktion").Value().toString(), "3");
}

TEST_F(JetQueries, RecordLoadingTexts) {
    Recordset betr = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM betrieb WHERE betrieb.[gem-kz] = '01001000' AND "
        "betrieb.[betr-nr] = '1001' "
        "AND betrieb.[betr-hist-nr] = '1';");
    EXPECT_EQ(betr.RecordCount(), 1);
    EXPECT_TRUE(betr.Updatable());

    Recordset gem =
        org.OpenRecordset("SELECT ALL * From gemeindekennzahlen WHERE [gem-kz] = '01001000' ;");
    EXPECT_EQ(valuesOf(gem, "gem-name"), (Strings{"Flensburg, Stadt"}));

    const std::string table = "betrieb_adresse";
    Recordset adr =
        db.OpenRecordset("SELECT DISTINCTROW * FROM " + table + " WHERE " + table +
                         ".[betr-nr] = '1001' AND " + table + ".[betr-hist-nr] = '1' ;");
    EXPECT_EQ(valuesOf(adr, "b-adr-art"), (Strings{"1", "2"}));

    // Direct persons only: a representative has pers-nr-jp set.
    Recordset pers = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM person INNER JOIN beziehung_betrieb_person ON person.[pers-nr] "
        "= "
        "beziehung_betrieb_person.[bez-pers-nr]WHERE beziehung_betrieb_person.[bez-betr-nr]= "
        "'1001' AND "
        "beziehung_betrieb_person.[bez-betr-hist-nr]= '1' AND "
        "(len(beziehung_betrieb_person.[pers-nr-jp]) = 0 "
        "OR len(beziehung_betrieb_person.[pers-nr-jp]) is Null )ORDER BY person.[pers-nr];");
    EXPECT_EQ(valuesOf(pers, "pers-nr"), (Strings{"5001", "5002"}));
}

TEST_F(JetQueries, PersonTabTexts) {
    Recordset link = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM beziehung_betrieb_person WHERE "
        "beziehung_betrieb_person.[bez-betr-nr] = '1001' "
        "AND beziehung_betrieb_person.[bez-pers-nr] = '5002' AND "
        "beziehung_betrieb_person.[bez-betr-hist-nr] = '1' ");
    EXPECT_EQ(valuesOf(link, "p-funktion"), (Strings{"2"}));
    link = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM beziehung_betrieb_person WHERE "
        "beziehung_betrieb_person.[bez-betr-nr] = '1001' "
        "AND beziehung_betrieb_person.[bez-pers-nr] = '5004' AND "
        "beziehung_betrieb_person.[p-funktion] = '3' "
        "AND beziehung_betrieb_person.[bez-betr-hist-nr] = '1' ");
    EXPECT_EQ(link.RecordCount(), 1);

    Recordset staat = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM person_staatsang WHERE person_staatsang.[pers-nr] = '5001' ");
    EXPECT_EQ(valuesOf(staat, "staat-text"), (Strings{"deutsch"}));
    Recordset erl = db.OpenRecordset(
        "SELECT DISTINCTROW * FROM person_erlaubnis WHERE person_erlaubnis.[pers-nr] = '5001' AND "
        "person_erlaubnis.[betr-nr] = '1001'");
    EXPECT_EQ(valuesOf(erl, "p-erl-art"), (Strings{"A"}));
}

TEST_F(JetQueries, ExportPermitQueryKeepsOwnAndUnassignedPermits) {
    const std::string bezPersNr = "5001", betrNr = "1001";
    Recordset rs = db.OpenRecordset(
        "select distinctrow * from person_erlaubnis WHERE [pers-nr] = '" + bezPersNr +
        "' And Not (Len([betr-nr]) > '0' And person_erlaubnis.[betr-nr] <> '" + betrNr + "') ");
    EXPECT_EQ(valuesOf(rs, "p-erl-art"), (Strings{"A", "B"}));
    rs = db.OpenRecordset(
        "select distinctrow * from person_handwerkskarte WHERE [pers-nr] = '" + bezPersNr +
        "' And Not (Len([betr-nr]) > '0' And person_handwerkskarte.[betr-nr] <> '" + betrNr +
        "') ");
    EXPECT_EQ(rs.RecordCount(), 0);
}

TEST_F(JetQueries, ExportTextsOfOneBusiness) {
    Recordset adr = db.OpenRecordset(
        "select distinctrow * from  betrieb_adresse where [betr-nr] = '1001' AND [betr-hist-nr] = "
        "'1'");
    EXPECT_EQ(adr.RecordCount(), 2);
    EXPECT_EQ(adr.Name(),
              "select distinctrow * from  betrieb_adresse where [betr-nr] = '1001' AND "
              "[betr-hist-nr] = '1'");

    // The inner join drops the link to a person that is missing.
    Recordset links = db.OpenRecordset(
        "SELECT beziehung_betrieb_person.* FROM beziehung_betrieb_person INNER JOIN person ON "
        "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] Where "
        "beziehung_betrieb_person.[bez-betr-nr] = '1001' "
        "AND [bez-betr-hist-nr] = '1' ORDER BY beziehung_betrieb_person.[bez-betr-nr], "
        "beziehung_betrieb_person.[bez-sort-nr]");
    EXPECT_EQ(valuesOf(links, "bez-pers-nr"), (Strings{"5002", "5004", "5001"}));

    Recordset person = db.OpenRecordset(
        "select distinctrow * from person where [pers-nr] = '5001' ORDER BY person.[p-art] DESC;");
    EXPECT_EQ(valuesOf(person, "fam-name"), (Strings{"Müller"}));
}

TEST_F(JetQueries, ExportKeyQueryGroupsNonEmptyKeys) {
    Recordset keys = db.OpenRecordset(
        "SELECT betrieb.schluesselfeld From betrieb GROUP BY betrieb.schluesselfeld HAVING "
        "(betrieb.schluesselfeld<>'')");
    keys.MoveLast();
    keys.MoveFirst();
    EXPECT_EQ(keys.RecordCount(), 2);
    EXPECT_EQ(valuesOf(keys, "schluesselfeld"), (Strings{"K1", "K2"}));
    EXPECT_FALSE(keys.Updatable());
}

TEST_F(JetQueries, ExportSelectionRefreshesProcessingStatusFromTheLastRowBackwards) {
    Recordset rs = db.OpenRecordset(
        "SELECT distinctrow * FROM betrieb ORDER BY betrieb.[betr-nr], betrieb.[betr-hist-nr];");
    ASSERT_TRUE(rs.Updatable());
    rs.MoveLast();
    std::string vorher;
    while (!rs.Bof()) {
        rs.Edit();
        const std::string nr = rs.Fields("betr-nr").Value().toString();
        if (nr != vorher)
            rs.Fields("bearb-status")
                .setValue(rs.Fields("betr-Ende").Value().toString().empty() ? "A" : "E");
        else
            rs.Fields("bearb-status").setValue("H");
        rs.Update();
        vorher = nr;
        rs.MovePrevious();
    }
    Recordset check = db.OpenRecordset("SELECT * FROM betrieb ORDER BY [betr-nr], [betr-hist-nr]");
    EXPECT_EQ(valuesOf(check, "bearb-status"), (Strings{"H", "A", "E", "A", "A"}));

    Recordset byKey = db.OpenRecordset(
        "SELECT distinctrow * FROM betrieb WHERE betrieb.schluesselfeld = 'K1'ORDER BY "
        "betrieb.[betr-nr], betrieb.[betr-hist-nr];");
    EXPECT_EQ(valuesOf(byKey, "betr-nr"), (Strings{"1001", "1001", "1004"}));
}

TEST_F(JetQueries, ReportTexts) {
    const std::string table = "betrieb_adresse";
    Recordset adr = db.OpenRecordset("SELECT distinctrow * From " + table + " " + "WHERE " + table +
                                     ".[betr-nr] = '" + "1001" + "' " + "AND " + table +
                                     ".[betr-hist-nr] = '" + "1" + "'");
    EXPECT_EQ(adr.RecordCount(), 2);
    const std::string p = std::string("SELECT DISTINCTROW * FROM person ") +
                          "INNER JOIN beziehung_betrieb_person ON "
                          "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] " +
                          "WHERE beziehung_betrieb_person.[bez-betr-nr] = '" + "1001" + "' " +
                          "AND beziehung_betrieb_person.[bez-betr-hist-nr] = '" + "1" + "' ";
    EXPECT_EQ(db.OpenRecordset(p).RecordCount(), 3);
    EXPECT_EQ(db.OpenRecordset(p + "AND person.[pers-nr] = '" + "5001" + "' ").RecordCount(), 1);
    Recordset hwk =
        db.OpenRecordset(std::string("SELECT distinctrow * ") + "From person_handwerkskarte " +
                         "WHERE person_handwerkskarte.[pers-nr] = '" + "5001" + "' " +
                         "AND person_handwerkskarte.[betr-nr] = '" + "1001" + "'");
    EXPECT_EQ(hwk.RecordCount(), 0);
}

TEST_F(JetQueries, LegalFormLookupAndLinkRowCriterionWithoutBlanks) {
    Recordset rf = org.OpenRecordset("SELECT ALL * From Rechtsformen WHERE [schluessel] = '230' ;");
    EXPECT_EQ(rf.Fields("typ").Value().toString(), "P");

    Recordset links = db.OpenRecordset("beziehung_betrieb_person");
    links.MoveFirst();
    links.FindFirst(
        "[bez-pers-nr] = '5004'AND [p-funktion] = '3'AND [bez-betr-nr] = '1001'AND "
        "[bez-betr-hist-nr] = '1'AND [pers-nr-jp] = '5002'");
    EXPECT_FALSE(links.NoMatch());
    // A link stored with a Null pers-nr-jp is not found by an empty one, as with the old engine.
    links.FindFirst(
        "[bez-pers-nr] = '5001'AND [p-funktion] = '1'AND [bez-betr-nr] = '1001'AND "
        "[bez-betr-hist-nr] = '1'AND [pers-nr-jp] = ''");
    EXPECT_TRUE(links.NoMatch());
}

TEST_F(JetQueries, MunicipalityFilterTexts) {
    Recordset gem = org.OpenRecordset(
        "SELECT DISTINCTROW * From gemeindekennzahlen where [gem-kz] like '0100100*' ORDER BY "
        "[gem-kz];");
    EXPECT_EQ(valuesOf(gem, "gem-name"), (Strings{"Flensburg, Stadt"}));
    insert(org, "aktuelleGemeinde",
           {{"gem-kz", "01002000"},
            {"gem-name", "Kiel"},
            {"markiert", store::Variant::boolean(true)}});
    Recordset marked = org.OpenRecordset("SELECT ALL * From aktuelleGemeinde ORDER BY [gem-kz];");
    ASSERT_EQ(marked.RecordCount(), 1);
    EXPECT_TRUE(marked.Fields("markiert").Value().toBool());
    EXPECT_EQ(marked.Fields("markiert").Value().toInteger(), -1);
    EXPECT_EQ(
        org.OpenRecordset("SELECT * FROM aktuelleGemeinde WHERE markiert = True").RecordCount(), 1);
}

}  // namespace
}  // namespace tolma::test
