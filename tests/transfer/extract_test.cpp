// Taking a line of a transfer file apart, and storing a value in a field.
#include <gtest/gtest.h>

#include "import_fixture.h"
#include "transfer/extract.h"
#include "transfer/field_store.h"
#include "transfer/import_context.h"

namespace tolma::test {
namespace {

TEST(ExtractTest, ContentAndNameOfALine) {
    struct Case {
        const char* line;
        const char* inhalt;
        const char* name;
    } cases[] = {
        {"<a>x</a>", "x", "a"},
        {"<a></a>", "kein Inhalt", "a"},
        {"<a>  </a>", "kein Inhalt", "a"},
        {"<a> x </a>", " x ", "a"},
        {"x", "kein Inhalt", "kein Name"},
        {"</a>", "kein Inhalt", "/a"},
        {"<a>", "kein Inhalt", "a"},
        {"text</b", "text", "kein Name"},
        {"text<b>", "kein Inhalt", "b"},
        {"<adresse art=\"1\">", "kein Inhalt", "adresse art=\"1\""},
        {"<a>x & 'y'</a>", "x & 'y'", "a"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(transfer::Upd_8_ExtrFeldInhalt(c.line), c.inhalt) << c.line;
        EXPECT_EQ(transfer::Upd_9_ExtrFeldInhalt(c.line), c.name) << c.line;
    }
}

TEST(FieldStoreTest, DatesConvertedLongTextsCutMemosWhole) {
    ImportFixture f;
    transfer::ImportContext ctx(f.g());
    auto& rs = f.g().stores.rs_betrieb;
    rs.AddNew();
    EXPECT_TRUE(transfer::Upd_5_Felder(ctx, rs.Fields("betr-ende"), "20011231"));
    EXPECT_EQ(rs.Fields("betr-ende").Value().toString(), "31.12.2001");
    EXPECT_TRUE(transfer::Upd_5_Felder(ctx, rs.Fields("meld-art"), "88888888"));
    EXPECT_EQ(rs.Fields("meld-art").Value().toString(),
              "88888888");  // no date field, no conversion
    EXPECT_TRUE(transfer::Upd_5_Felder(ctx, rs.Fields("betr-nr"), "123456789012"));
    EXPECT_FALSE(f.g().log.fehler_vorhanden);  // exactly the size: stored whole, no entry
    EXPECT_TRUE(transfer::Upd_5_Felder(ctx, rs.Fields("betr-hist-nr"), "12345"));
    EXPECT_EQ(rs.Fields("betr-hist-nr").Value().toString(), "1234");
    EXPECT_NE(f.logText().find(
                  "Fehler in Sub/Function: Upd_5_Felder\r\nFehler-Source:          Dao.Field\r\n"
                  "Fehlernummer:           3163\r\nFehlertext:             Feld zu klein f\xFCr "
                  "Datenmenge, "
                  "Inhalt wurde gek\xFCrzt!\r\nFehlerortung:           betr-hist-nr = 12345\r\n"
                  "Ortungs-Nummer/BetrNr:  0\r\n"),
              std::string::npos);
    const std::string longText(100000, 'x');
    EXPECT_TRUE(transfer::Upd_5_Felder(ctx, rs.Fields("b-bemerkung"), longText));
    EXPECT_EQ(rs.Fields("b-bemerkung").Value().toString().size(), longText.size());
    rs.CancelUpdate();
}

}  // namespace
}  // namespace tolma::test
