// The query language as the old database answered it, text by text, on a small store whose
// rows tell right from wrong: umlauts in both cases, ß and ss, Null, empty text and digits.
#include <gtest/gtest.h>

#include "store/dao_error.h"
#include "store/german_text.h"
#include "store/jet_sql.h"
#include "test_db.h"
#include "text/text.h"

namespace tolma::test {
namespace {

using Strings = std::vector<std::string>;

struct Case {
    const char* query;
    Strings rows;  // each row's values joined by "|"; Null as empty
};

class JetLanguage : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir;
        db_ = new store::Database(store::Database::CreateDatabase(dir_->path() / "sprache.mdb"));
        db_->Execute(
            "CREATE TABLE t (id INTEGER, name VARCHAR(40) COLLATE NOCASE, nr VARCHAR(12) COLLATE "
            "NOCASE, "
            "n INTEGER, d VARCHAR(10) COLLATE NOCASE)");
        db_->Execute("CREATE INDEX t_nr ON t (nr)");
        db_->Execute(
            "CREATE TABLE u (nr VARCHAR(12) COLLATE NOCASE, ort VARCHAR(40) COLLATE NOCASE)");
        db_->Execute("CREATE INDEX u_nr ON u (nr)");
        const char* rows[] = {
            "1, 'Bäckerei Petersen e.K.', '0105', 3, '2000-01-31'",
            "2, 'BÄCKEREI NORD', '0106', 10, '1999-12-31'",
            "3, 'Backhaus', '0107', Null, '2001-02-01'",
            "4, 'Blumenhaus', '0201', 0, Null",
            "5, 'Boutique', '0202', 7, Null",
            "6, 'Müller', '0301', 1, Null",
            "7, 'MÜLLER', '0302', 2, Null",
            "8, 'Muller', '0303', 3, Null",
            "9, 'Straße', '0401', 4, Null",
            "10, 'Strasse', '0402', 5, Null",
            "11, Null, '0501', 6, Null",
            "12, '', '0502', 8, Null",
            "13, 'Öztürk', '0601', 9, Null",
            "14, 'Ozean', '0602', 11, Null",
            "15, 'O''Brien', '0701', 12, Null",
        };
        for (const char* r : rows) db_->Execute(std::string("INSERT INTO t VALUES (") + r + ")");
        db_->Execute("INSERT INTO u VALUES ('0105', 'Husum')");
        db_->Execute("INSERT INTO u VALUES ('0106', 'Tönning')");
        db_->Execute("INSERT INTO u VALUES ('0999', 'Niebüll')");
    }
    static void TearDownTestSuite() {
        delete db_;
        delete dir_;
    }

    static Strings rows(const std::string& query) {
        store::Recordset rs = db_->OpenRecordset(query);
        Strings out;
        for (long r = 0; r < rs.RecordCount(); ++r) {
            std::string line;
            const auto row = rs.rowAt(r);
            for (size_t i = 0; i < row.size(); ++i) line += (i ? "|" : "") + row[i].toString();
            out.push_back(line);
        }
        return out;
    }
    static void check(const std::vector<Case>& cases) {
        for (const auto& c : cases) {
            try {
                EXPECT_EQ(rows(c.query), c.rows) << c.query;
            } catch (const std::exception& e) {
                ADD_FAILURE() << c.query << ": " << e.what();
            }
        }
    }

    static TempDir* dir_;
    static store::Database* db_;
};
TempDir* JetLanguage::dir_ = nullptr;
store::Database* JetLanguage::db_ = nullptr;

TEST_F(JetLanguage, TheAnswersTheOldDatabaseGave) {
    check({
        {"SELECT id FROM t WHERE name = 'BÄCKEREI PETERSEN E.K.'", {"1"}},
        {"SELECT TOP 3 name FROM t WHERE name LIKE 'B*' ORDER BY name",
         {"BÄCKEREI NORD", "Bäckerei Petersen e.K.", "Backhaus"}},
        {"SELECT nr & Null & 'x' FROM t WHERE id = 1", {"0105x"}},
        {"SELECT 'a' + 'b'", {"ab"}},
        {"SELECT Count(*) FROM t WHERE (Len(nr)) > '0'", {"15"}},
        {"SELECT Count(*) FROM t WHERE Len(nr) + 0 > '0'", {"15"}},
        {"SELECT UCase('müller')", {"MÜLLER"}},
        {"SELECT 1 AS True", {"1"}},
        {"SELECT TOP 2 nr FROM t ORDER BY nr DESC", {"0701", "0602"}},
        {"SELECT id FROM t WHERE d = #01/31/2000#", {"1"}},
        {"SELECT Mid('Hallo', 2, 3), Nz(Null, 'leer'), Val('12 Stück'), Left('Hallo', 2), "
         "Right('Hallo', 3), "
         "IIf(2 > 1, 'ja', 'nein')",
         {"all|leer|12|Ha|llo|ja"}},
    });
}

TEST_F(JetLanguage, TextIsComparedWithoutCaseButWithItsUmlauts) {
    check({
        {"SELECT id FROM t WHERE name = 'müller' ORDER BY id", {"6", "7"}},
        {"SELECT id FROM t WHERE name = 'Muller'", {"8"}},
        {"SELECT id FROM t WHERE name = 'MULLER'", {"8"}},
        {"SELECT id FROM t WHERE name = 'strasse'", {"10"}},
        {"SELECT id FROM t WHERE name = 'STRASSE' OR name = 'straße' ORDER BY id", {"9", "10"}},
        {"SELECT id FROM t WHERE name = 'öztürk'", {"13"}},
        {"SELECT id FROM t WHERE name = ''", {"12"}},
        {"SELECT id FROM t WHERE name Is Null", {"11"}},
        {"SELECT id FROM t WHERE name Is Not Null AND Len(name) = 0", {"12"}},
        {"SELECT Count(*) FROM t WHERE name <> 'MÜLLER'", {"12"}},
        {"SELECT id FROM t WHERE name IN ('müller', 'STRASSE') ORDER BY id", {"6", "7", "10"}},
        {"SELECT id FROM t WHERE name NOT IN ('müller', 'muller', '') ORDER BY id",
         {"1", "2", "3", "4", "5", "9", "10", "13", "14", "15"}},
        {"SELECT id FROM t WHERE name BETWEEN 'b' AND 'bl' ORDER BY id", {"1", "2", "3"}},
        {"SELECT id FROM t WHERE name > 'ozf' AND name < 'p' ORDER BY id", {"13"}},
        {"SELECT id FROM t WHERE name >= 'STRASSE' ORDER BY id", {"9", "10"}},
        {"SELECT id FROM t WHERE 'müller' = name ORDER BY id", {"6", "7"}},
        {"SELECT id FROM t WHERE name = \"O'Brien\"", {"15"}},
        {"SELECT id FROM t WHERE name = 'o''brien'", {"15"}},
        {"SELECT id FROM t WHERE nr = '0105'", {"1"}},
        {"SELECT id FROM t WHERE [t].[nr] = '0105' AND t.name = 'bäckerei petersen e.k.'", {"1"}},
    });
}

TEST_F(JetLanguage, TextSortsInGermanOrder) {
    check({
        {"SELECT name FROM t WHERE id <> 7 ORDER BY name",
         {"", "", "BÄCKEREI NORD", "Bäckerei Petersen e.K.", "Backhaus", "Blumenhaus", "Boutique",
          "Muller", "Müller", "O'Brien", "Ozean", "Öztürk", "Strasse", "Straße"}},
        {"SELECT name FROM t WHERE id IN (1, 3, 4, 5) ORDER BY name DESC",
         {"Boutique", "Blumenhaus", "Backhaus", "Bäckerei Petersen e.K."}},
        {"SELECT name FROM t WHERE id IN (6, 8) ORDER BY name", {"Muller", "Müller"}},
        {"SELECT name FROM t WHERE id IN (9, 10) ORDER BY name", {"Strasse", "Straße"}},
        {"SELECT name FROM t WHERE id IN (13, 14, 15) ORDER BY name",
         {"O'Brien", "Ozean", "Öztürk"}},
        {"SELECT name FROM t WHERE id IN (1, 3) ORDER BY 1",
         {"Bäckerei Petersen e.K.", "Backhaus"}},
        {"SELECT name, nr FROM t WHERE id IN (6, 7) ORDER BY name, nr DESC",
         {"MÜLLER|0302", "Müller|0301"}},
        {"SELECT Min(name), Max(name), Max(nr) FROM t WHERE id BETWEEN 1 AND 3",
         {"BÄCKEREI NORD|Backhaus|0107"}},
        {"SELECT name FROM t WHERE id < 4 ORDER BY UCase(name)",
         {"BÄCKEREI NORD", "Bäckerei Petersen e.K.", "Backhaus"}},
    });
}

TEST_F(JetLanguage, GroupsAndDistinctRowsCompareTextTheSameWay) {
    check({
        {"SELECT Count(*) FROM (SELECT DISTINCT name FROM t WHERE name LIKE 'm*') AS x", {"2"}},
        {"SELECT DISTINCT nr FROM t WHERE id < 3 ORDER BY nr", {"0105", "0106"}},
        {"SELECT UCase(name), Count(*) FROM t WHERE name LIKE 'm*' GROUP BY name HAVING Count(*) > "
         "1",
         {"MÜLLER|2"}},
        {"SELECT Count(*), Count(name), Sum(n), Max(n), Min(n), Avg(n) FROM t WHERE id < 4",
         {"3|3|13|10|3|6.5"}},
        {"SELECT DISTINCTROW nr FROM t WHERE id = 1", {"0105"}},
        {"SELECT ALL nr FROM t WHERE id = 2", {"0106"}},
        {"SELECT Left(nr, 2) AS gruppe, Count(*) AS anzahl FROM t GROUP BY Left(nr, 2) ORDER BY "
         "Left(nr, 2)",
         {"01|3", "02|2", "03|3", "04|2", "05|2", "06|2", "07|1"}},
        {"SELECT nr FROM t WHERE id < 3 UNION SELECT nr FROM u ORDER BY nr",
         {"0105", "0106", "0999"}},
        {"SELECT nr FROM t WHERE id < 3 UNION ALL SELECT nr FROM u WHERE ort = 'husum'",
         {"0105", "0106", "0105"}},
    });
}

TEST_F(JetLanguage, QuotedNumbersComparedWithNumbersAreReadAsNumbers) {
    check({
        {"SELECT Count(*) FROM t WHERE Len(nr) > '3'", {"15"}},
        {"SELECT Count(*) FROM t WHERE '3' < Len(nr)", {"15"}},
        {"SELECT Count(*) FROM t WHERE Len(nr) = '4'", {"15"}},
        {"SELECT Count(*) FROM t WHERE Len(nr) IN ('4', '5')", {"15"}},
        {"SELECT Count(*) FROM t WHERE Len(nr) BETWEEN '1' AND '9'", {"15"}},
        {"SELECT id FROM t WHERE n > '10' ORDER BY id", {"14", "15"}},
        {"SELECT id FROM t WHERE n + 1 = '11'", {"2"}},
        {"SELECT id FROM t WHERE Len(name) > '20'", {"1"}},
        {"SELECT id FROM t WHERE nr > '0700'", {"15"}},
        {"SELECT Count(*) FROM t WHERE Len(nr) > 'vier'", {"0"}},
    });
}

TEST_F(JetLanguage, OperatorsOfTheOldLanguage) {
    check({
        {"SELECT 1 + 2, 7 - 10, 3 * 4, 7 / 2, 7 \\ 2, 7 Mod 3, 2 ^ 3, -(2 + 1)",
         {"3|-3|12|3.5|3|1|8|-3"}},
        {"SELECT 'x' & Null & 1, Null & Null", {"x1|"}},
        {"SELECT name & '!' FROM t WHERE id = 11", {"!"}},
        {"SELECT name + '!' FROM t WHERE id = 11", {""}},
        {"SELECT name + '!' FROM t WHERE id = 4", {"Blumenhaus!"}},
        {"SELECT nr + 1 FROM t WHERE id = 1", {"106"}},
        {"SELECT n + n FROM t WHERE id = 2", {"20"}},
        {"SELECT True, False, Not True, 1 = 1 And 2 = 3, 1 = 1 Or 2 = 3", {"-1|0|0|0|1"}},
        {"SELECT id FROM t WHERE Not (n > 1) ORDER BY id", {"4", "6"}},
        {"SELECT id FROM t WHERE n > 1 AND n < 4 OR id = 15 ORDER BY id", {"1", "7", "8", "15"}},
        {"SELECT id FROM t WHERE n > 1 AND (n < 4 OR id = 15) ORDER BY id", {"1", "7", "8", "15"}},
        {"SELECT 2 + 3 * 4, (2 + 3) * 4, 2 * 3 ^ 2, 10 - 2 - 3", {"14|20|18|5"}},
        {"SELECT 'Post' & 'fach' = 'POSTFACH'", {"1"}},
    });
}

TEST_F(JetLanguage, LikeWithTheOldWildcards) {
    check({
        {"SELECT id FROM t WHERE name LIKE 'bä*' ORDER BY id", {"1", "2"}},
        {"SELECT id FROM t WHERE name LIKE 'B?ckerei*' ORDER BY id", {"1", "2"}},
        {"SELECT id FROM t WHERE name LIKE '*ß*'", {"9"}},
        {"SELECT id FROM t WHERE name LIKE '[m-n]*' ORDER BY id", {"6", "7", "8"}},
        {"SELECT id FROM t WHERE name LIKE '[!a-r]*' ORDER BY id", {"9", "10", "13"}},
        {"SELECT id FROM t WHERE nr LIKE '01#5'", {"1"}},
        {"SELECT Count(*) FROM t WHERE name NOT LIKE '*e*'", {"3"}},
        {"SELECT id FROM t WHERE name LIKE 'O''*'", {"15"}},
    });
}

TEST_F(JetLanguage, FunctionsOfTheOldLanguage) {
    check({
        {"SELECT Len('Müller'), Len(''), Len(Null)", {"6|0|"}},
        {"SELECT UCase('straße'), LCase('ÄRGER'), UCase(Null)", {"STRAßE|ärger|"}},
        {"SELECT UCase('€uro ✓ 𝄞'), LCase('ÉTÉ €'), Len('€✓𝄞')", {"€URO ✓ 𝄞|été €|3"}},
        {"SELECT '[' & Trim('  a b  ') & '][' & LTrim('  a') & '][' & RTrim('a  ') & ']'",
         {"[a b][a][a]"}},
        {"SELECT Left('Hä', 1), Right('Hä', 1), Right('Hallo', 0), Right('Hallo', 9), Mid('Hallo', "
         "3), Mid('Hällo', 2, 1)",
         {"H|ä||Hallo|llo|ä"}},
        {"SELECT Nz(name, '-') FROM t WHERE id IN (11, 12) ORDER BY id", {"-", ""}},
        {"SELECT Val(' 1.5'), Val('ab'), Val('-3x')", {"1.5|0|-3"}},
        {"SELECT IIf(name Is Null, 'leer', name) FROM t WHERE id IN (4, 11) ORDER BY id",
         {"Blumenhaus", "leer"}},
        {"SELECT InStr('Hallo', 'l'), InStr(4, 'Hallo', 'l'), InStr('Hallo', 'z'), InStr('HALLO', "
         "'l')",
         {"3|4|0|3"}},
        {"SELECT Format(d, 'dd.mm.yyyy'), Format(d, 'yyyymmdd') FROM t WHERE id = 1",
         {"31.01.2000|20000131"}},
        {"SELECT Format(#2000-01-31 13:45#, 'hh:nn')", {"13:45"}},
        {"SELECT #31.01.2000#, #1/2/99#", {"2000-01-31|1999-01-02"}},
        {"SELECT Len(Date()), Len(Now())", {"10|19"}},
    });
}

TEST_F(JetLanguage, JoinsAndSubqueries) {
    check({
        {"SELECT t.id, u.ort FROM t INNER JOIN u ON t.nr = u.nr ORDER BY t.id",
         {"1|Husum", "2|Tönning"}},
        {"SELECT t.id, u.ort FROM t LEFT JOIN u ON t.nr = u.nr WHERE t.id < 4 ORDER BY t.id",
         {"1|Husum", "2|Tönning", "3|"}},
        {"SELECT t.id, u.ort FROM t RIGHT JOIN u ON t.nr = u.nr ORDER BY u.ort",
         {"1|Husum", "|Niebüll", "2|Tönning"}},
        {"SELECT a.id, b.ort FROM (t AS a INNER JOIN u AS b ON a.nr = b.nr) INNER JOIN t AS c ON "
         "c.nr = a.nr "
         "WHERE b.ort = 'TÖNNING'",
         {"2|Tönning"}},
        {"SELECT u.* FROM t, u WHERE t.nr = u.nr AND t.id = 1", {"0105|Husum"}},
        {"SELECT id FROM t WHERE nr IN (SELECT nr FROM u) ORDER BY id", {"1", "2"}},
        {"SELECT id FROM t WHERE EXISTS (SELECT * FROM u WHERE u.nr = t.nr AND u.ort = 'husum')",
         {"1"}},
        {"SELECT (SELECT Count(*) FROM u) AS n", {"3"}},
        {"SELECT x.nr FROM (SELECT nr FROM u WHERE ort LIKE 'n*') AS x", {"0999"}},
    });
}

TEST_F(JetLanguage, StatementsThatChangeRows) {
    TempDir dir;
    store::Database db = store::Database::CreateDatabase(dir.path() / "aenderung.mdb");
    db.Execute("CREATE TABLE k (nr VARCHAR(12) COLLATE NOCASE, name VARCHAR(40) COLLATE NOCASE)");
    EXPECT_EQ(db.Execute("INSERT INTO k (nr, name) VALUES ('1', 'Müller')"), 1);
    EXPECT_EQ(db.Execute("INSERT INTO k VALUES ('2', \"O'Brien\");"), 1);
    EXPECT_EQ(db.Execute("INSERT INTO k (nr, name) SELECT nr & 'b', UCase(name) FROM k"), 2);
    EXPECT_EQ(db.Execute("UPDATE k SET name = name & '!' WHERE name = 'MÜLLER'"), 2);
    EXPECT_EQ(db.Execute("UPDATE k SET k.[name] = 'x', nr = nr WHERE nr = '2b'"), 1);
    EXPECT_EQ(db.Execute("DELETE * FROM k WHERE name LIKE 'm*'"), 2);
    EXPECT_EQ(db.Execute("DELETE k.* FROM k WHERE nr = '2b'"), 1);
    EXPECT_EQ(db.Execute("DELETE FROM k WHERE nr = '1'' OR ''1''=''1'"), 0);
    store::Recordset rs = db.OpenRecordset("SELECT name FROM k");
    ASSERT_EQ(rs.RecordCount(), 1);
    EXPECT_EQ(rs.Fields("name").Value().toString(), "O'Brien");
}

TEST_F(JetLanguage, SyntaxErrorsNameTheTextAsWrittenAndThePlace) {
    struct Error {
        const char* query;
        const char* says;
    } errors[] = {
        {"SELECT id FROM t WHERE nr = '0105",
         "an Stelle 29: die Zeichenfolge wird nicht abgeschlossen"},
        {"SELECT [id FROM t", "an Stelle 8: die eckige Klammer wird nicht geschlossen"},
        {"SELECT FROM t", "an Stelle 8: erwartet wird ein Ausdruck"},
        {"SELECT id FROM t WHERE", "erwartet wird ein Ausdruck (Ende des Ausdrucks erreicht)"},
        {"SELECT id FROM t WHERE d = #13/45/2000#", "an Stelle 28: ungültiges Datum"},
        {"SELECT 1 2", "an Stelle 10: Zeichen nach dem Ende der Anweisung"},
        {"SELECT id FROM t; DROP TABLE t", "an Stelle 19: Zeichen nach dem Ende der Anweisung"},
        {"SELECT id FROM t WHERE (n = 1", "erwartet wird ')'"},
        {"SELECT id FROM t WHERE n NOT = 1", "erwartet wird LIKE, IN oder BETWEEN"},
        {"SELECT id FROM t WHERE n ? 1", "unerwartetes Zeichen '?'"},
        {"SELECT TOP x id FROM t", "erwartet wird eine ganze Zahl hinter TOP"},
        {"SELECT 12abc", "ungültige Zahl"},
        {"SELECT * FROM t INNER JOIN u", "erwartet wird ON"},
    };
    for (const auto& e : errors) {
        try {
            rows(e.query);
            ADD_FAILURE() << "no error: " << e.query;
        } catch (const store::DaoError& d) {
            EXPECT_EQ(d.number(), 3075) << e.query;
            EXPECT_NE(d.description().find("'" + std::string(e.query) + "'"), std::string::npos)
                << d.description();
            EXPECT_NE(d.description().find(e.says), std::string::npos) << d.description();
        }
    }
    // The table is still there: nothing behind a ";" ran.
    EXPECT_EQ(rows("SELECT Count(*) FROM t"), Strings{"15"});
}

TEST(GermanText, OrderAndEqualityRules) {
    struct Pair {
        const char* a;
        const char* b;
        int sign;
    } pairs[] = {
        {"Bäcker", "Backhaus", -1},
        {"Bäcker", "Bäcker", 0},
        {"BÄCKER", "bäcker", 0},
        {"Muller", "Müller", -1},
        {"Müller", "Mullerz", -1},
        {"Strasse", "Straße", -1},
        {"Straße", "Strassf", -1},
        {"Öl", "Ozean", -1},
        {"ä", "b", -1},
        {"Z", "ä", 1},
        {"", "a", -1},
        {"abc", "ABC", 0},
        {"1", "A", -1},
        {"Æble", "Aebler", -1},
        {"é", "e", 1},
        {"Ü", "u", 1},
    };
    auto sign = [](int v) { return v < 0 ? -1 : v > 0 ? 1 : 0; };
    for (const auto& p : pairs) {
        EXPECT_EQ(sign(store::german::compare(p.a, p.b)), p.sign) << p.a << " / " << p.b;
        EXPECT_EQ(sign(store::german::compare(p.b, p.a)), -p.sign) << p.b << " / " << p.a;
    }
    EXPECT_EQ(text::upper("äöüß straße"), "ÄÖÜß STRAßE");
    EXPECT_EQ(text::lower("ÄÖÜ ÉÈ Ÿ"), "äöü éè Ÿ");
}

}  // namespace
}  // namespace tolma::test
