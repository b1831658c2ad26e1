// Query texts of the system's lists, with the quirks of how they are written (clauses without
// blanks between them, chains of terms without brackets), give the old engine's rows. The texts
// of the other routines are run as the routines compose them in routine_queries_test.cpp.
#include <gtest/gtest.h>

#include "browse/list_form.h"
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

TEST_F(JetQueries, PersonListWithoutFilterShowsEveryLinkOfAnExistingPerson) {
    Recordset rs = db.OpenRecordset(browse::personListQuery("", ""));
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5001", "5002", "5003", "5004"}));
    EXPECT_EQ(rs.FieldCount(), 8);
    EXPECT_EQ(rs.Fields(7).Name(), "pers-nr-jp");
}

TEST_F(JetQueries, PersonListWithFilterAndSortByColumn) {
    Recordset rs = db.OpenRecordset(browse::personListQuery(
        " where betrieb.[gem-kz] = '' or [gem-kz] = '01002000'", "betrieb.[b-eintr-name] DESC"));
    EXPECT_EQ(valuesOf(rs, "pers-nr"), (Strings{"5003"}));
    rs = db.OpenRecordset(browse::personListQuery(" where betrieb.[gem-kz] = ''", ""));
    EXPECT_EQ(rs.RecordCount(), 0);
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

TEST_F(JetQueries, MarkedFlagIsTrueAsTheOldEngineWroteIt) {
    insert(org, "aktuelleGemeinde",
           {{"gem-kz", "01002000"},
            {"gem-name", "Kiel"},
            {"markiert", store::Variant::boolean(true)}});
    Recordset marked = org.OpenRecordset("aktuelleGemeinde");
    ASSERT_EQ(marked.RecordCount(), 1);
    EXPECT_TRUE(marked.Fields("markiert").Value().toBool());
    EXPECT_EQ(marked.Fields("markiert").Value().toInteger(), -1);
    EXPECT_EQ(
        org.OpenRecordset("SELECT * FROM aktuelleGemeinde WHERE markiert = True").RecordCount(), 1);
}

}  // namespace
}  // namespace tolma::test
