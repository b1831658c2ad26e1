// The translation of the old engine's query language, rule by rule.
#include <gtest/gtest.h>

#include "store/dao_error.h"
#include "store/jet_sql.h"

namespace tolma::store::jet {
namespace {

TEST(JetTranslate, ConditionsPastedByCallersCarryTheirValuesSafely) {
    Catalog keys;
    keys.keyColumns = {"betr-nr"};
    struct Case {
        const char* jet;
        const char* sqlite;
    } cases[] = {
        // A key column keeps its own collation, so that its index answers.
        {"[betr-nr] = 'x'' OR ''1''=''1'", "([betr-nr] = 'x'' OR ''1''=''1')"},
        {"[b-eintr-name] = 'Bäcker'", "([b-eintr-name] = ('Bäcker') COLLATE jetde)"},
        {"Len([betr-nr]) > '0'", "(len([betr-nr]) > 0)"},
        {"markiert = True AND b = \"it's\"",
         "(([markiert] = -1) AND ([b] = ('it''s') COLLATE jetde))"},
        {"CREATE TABLE x (a TEXT);", "CREATE TABLE x (a TEXT)"},
    };
    for (const auto& c : cases) EXPECT_EQ(translate(c.jet, &keys), c.sqlite) << c.jet;
}

// Texts that differ only in their values share one translated shape. A text that holds, where
// another held a value, a byte that the shapes use to mark values is a text of its own: it is
// read (and here refused as the syntax error it is), never answered with the other's shape and
// values it does not have.
TEST(JetTranslate, AControlCharacterWhereAValueStoodIsNoValue) {
    struct Case {
        const char* withValue;
        std::string withMark;
    } cases[] = {
        {"SELECT * FROM betrieb WHERE [b-eintr-name] = 'Bäcker'",
         std::string("SELECT * FROM betrieb WHERE [b-eintr-name] = \x01")},
        {"SELECT * FROM betrieb WHERE [b-datum] = #12/31/2020#",
         std::string("SELECT * FROM betrieb WHERE [b-datum] = \x02")},
        {"[b-eintr-name] = 'A' OR [b-ort] = 'B'",
         std::string("[b-eintr-name] = 'A' OR [b-ort] = \x01")},
    };
    for (const auto& c : cases) {
        translate(c.withValue);
        try {
            const std::string second = translate(c.withMark);
            ADD_FAILURE() << "translated as " << second;
        } catch (const DaoError& e) {
            EXPECT_EQ(e.number(), err::kSyntaxError) << c.withValue;
        }
    }
    // A name may hold such a byte; its text keeps it and takes no value from elsewhere.
    translate("SELECT * FROM betrieb WHERE [b-ort] = 'x'");
    EXPECT_EQ(translate("SELECT * FROM betrieb WHERE [b-ort] = [\x01]"),
              "SELECT * FROM [betrieb] WHERE ([b-ort] = ([\x01]) COLLATE jetde)");
}

// A column without a name of its own is named by its expression as written, values included,
// so two texts that differ only in such a value name their columns apart.
TEST(JetTranslate, AnUnnamedColumnIsNamedByItsOwnValues) {
    for (const char* value : {"'a'", "'b'", "#1/2/2020#", "#1/3/2020#"}) {
        const std::string name = std::string(value) + " & [b-ort]";
        const std::string sql = translate("SELECT " + name + " FROM betrieb");
        EXPECT_NE(sql.find("AS \"" + name + "\""), std::string::npos) << sql;
    }
}

TEST(JetLike, WildcardsAndFolding) {
    struct Case {
        const char* pattern;
        const char* text;
        bool match;
    } cases[] = {
        {"mü*", "Müller", true},
        {"ÖZ?ÜRK*", "Öztürk", true},
        {"MÜ*", "müller", true},
        {"mu*", "Müller", false},
        {"a#", "a1", true},
        {"a#", "ab", false},
        {"[!a]*", "bcd", true},
        {"[a-c]x", "Bx", true},
        {"50%*", "50% Rabatt", true},
        {"50%*", "500", false},
        {"a_c", "abc", false},
        {"a_c", "a_c", true},
        {"*", "", true},
        {"?", "", false},
        {"*x*y", "axbxcy", true},
        {"[*]*", "*abc", true},
        {"", "", true},
        {"Stra?e", "Straße", true},
        {"€?", "€5", true},
        {"?x", "𝄞x", true},
        {"[", "[", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(likeMatch(c.pattern, c.text), c.match) << c.pattern << " / " << c.text;
}

TEST(JetQuote, AValueStandsInAQueryTextAsOneLiteralWhateverItHolds) {
    EXPECT_EQ(quote("O'Brien"), "'O''Brien'");
    EXPECT_EQ(quote(""), "''");
    // Whatever a clerk typed stays one value of one comparison.
    EXPECT_EQ(translate("[fam-name] = " + quote("x' OR '1'='1")),
              "([fam-name] = ('x'' OR ''1''=''1') COLLATE jetde)");
    EXPECT_EQ(translate("[fam-name] LIKE " + quote("O'B*")), "([fam-name] LIKE 'O''B*')");
}

TEST(JetParse, FindsTheBaseTablesOfJoins) {
    auto parts = parseSelect(
        "SELECT person.[pers-nr] FROM (betrieb INNER JOIN beziehung_betrieb_person ON (a = b) AND "
        "(c = d)) "
        "INNER JOIN person ON x = y where betrieb.[gem-kz] = '' ORDER BY person.[pers-nr]");
    ASSERT_EQ(parts.tables.size(), 3u);
    EXPECT_EQ(parts.tables[0].name, "betrieb");
    EXPECT_EQ(parts.tables[1].name, "beziehung_betrieb_person");
    EXPECT_EQ(parts.tables[2].name, "person");
    EXPECT_EQ(parts.where, "([betrieb].[gem-kz] = (?1) COLLATE jetde)");
    EXPECT_EQ(parts.orderBy, "([person].[pers-nr]) COLLATE jetde");
    EXPECT_TRUE(parts.keyable());

    auto grouped = parseSelect("SELECT a From t GROUP BY a HAVING (a<>'')");
    EXPECT_FALSE(grouped.keyable());
    auto aliased = parseSelect("SELECT * FROM [betrieb] AS b WHERE b.x = 1");
    ASSERT_EQ(aliased.tables.size(), 1u);
    EXPECT_EQ(aliased.tables[0].qualifier, "b");
    EXPECT_EQ(bareTableName("[betrieb_adresse]"), "betrieb_adresse");
    EXPECT_EQ(bareTableName("SELECT * FROM x"), "");
}

}  // namespace
}  // namespace tolma::store::jet
