// The record report on a recording printer: heads, headings, the two columns, the wrap of long
// fields, page breaks, field texts, and what a failing printer leaves.
#include <gtest/gtest.h>

#include <algorithm>

#include "print_fixture.h"

namespace tolma::test {
namespace {

using print::ColumnMark;

constexpr double kHalf = 5500;  // of the recording printer's width

struct RecordFixture : PrintFixture {
    void business(const std::string& nr, Row more = {}) {
        Row row = {{"betr-nr", nr}, {"betr-hist-nr", "1"}, {"gem-kz", "01001000"}};
        row.insert(row.end(), more.begin(), more.end());
        insert(g().stores.db_daten, "betrieb", row);
    }
    // bez-sort-nr 9 stands just before p-funktion.
    void person(const std::string& betrNr, const std::string& persNr, const std::string& funktion) {
        insert(g().stores.db_daten, "person",
               {{"pers-nr", persNr}, {"fam-name", "Name " + persNr}});
        insert(g().stores.db_daten, "beziehung_betrieb_person",
               {{"bez-betr-nr", betrNr},
                {"bez-betr-hist-nr", "1"},
                {"bez-pers-nr", persNr},
                {"bez-sort-nr", 9},
                {"p-funktion", funktion}});
    }
    void printBusiness(const std::string& nr) { print::DS_Druck_1(g(), d, "Betrieb", nr, "1", ""); }
    void newPrinter(double scaleHeight = 15800) {
        printer = print::RecordingPrinter(11000, scaleHeight);
    }
    bool printedAny(const std::string& part) const {
        const auto t = texts();
        return std::any_of(t.begin(), t.end(),
                           [&](const std::string& s) { return s.find(part) != std::string::npos; });
    }
};

TEST(RecordReportTest, FieldTexts) {
    PrintFixture f;
    struct Case {
        const char* name;
        int type;
        store::Variant value;
        const char* text;
    } cases[] = {
        {"b-ort", store::dao::dbText, store::Variant(), ""},
        {"b-ort", store::dao::dbText, "", ""},
        {"b-ort", store::dao::dbText, "Husum", "Husum"},
        {"meld-datum", store::dao::dbDate, "2019-03-01", "01.03.2019"},
        {"meld-datum", store::dao::dbDate, store::Variant(), ""},
        // The birth date is read as year, month, day, unless it has the store's own form.
        {"geb-datum", store::dao::dbText, "19660912", "12.09.1966"},
        {"geb-datum", store::dao::dbText, "196609", ".09.1966"},
        {"geb-datum", store::dao::dbText, "12.09.1966", "12.09.1966"},
        {"geb-datum", store::dao::dbText, "12.09.66", "66.9..12.0"},
        {"p-funktion", store::dao::dbText, "1", "Einzelgewerbetreibender"},
        {"p-funktion", store::dao::dbText, "2", "Geschäftsführender Gesellschafter"},
        {"p-funktion", store::dao::dbText, "3", "Gesetzlicher Vertreter"},
        {"p-funktion", store::dao::dbText, "04", "Inhaber"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(print::reportFieldText(f.g(), c.name, c.type, c.value, "vorher"), c.text)
            << c.name << " " << c.text;

    // A function of no known value prints the text before it, and empties the record view's box.
    f.g().forms.startView.TextPers_8 = "Inhaber";
    EXPECT_EQ(print::reportFieldText(f.g(), "p-funktion", store::dao::dbText, "5", "vorher"),
              "vorher");
    EXPECT_EQ(f.g().forms.startView.TextPers_8, "");
}

TEST(RecordReportTest, BusinessHeadsTablesInTwoColumnsAndKeepsTheQueries) {
    RecordFixture f;
    f.business("1001", {{"b-eintr-name", "Kurz"}});
    insert(f.g().stores.db_daten, "betrieb_adresse",
           {{"betr-nr", "1001"}, {"betr-hist-nr", "1"}, {"b-adr-art", "1"}});
    insert(f.g().stores.db_daten, "betrieb_adresse",
           {{"betr-nr", "1001"}, {"betr-hist-nr", "1"}, {"b-adr-art", "3"}});
    insert(f.g().stores.db_daten, "betrieb_taetigkeit",
           {{"betr-nr", "1001"}, {"betr-hist-nr", "1"}, {"tk-schl", "47.24"}});
    f.printBusiness("1001");

    const auto t = f.texts();
    ASSERT_GE(t.size(), 3u);
    EXPECT_EQ(t[0], "Betriebsnummer: 1001     Seite: 1");
    const Call head = f.printer.printed()[0];  // a copy: printed() returns a new list
    EXPECT_EQ(head.font.name, "Courier New");
    EXPECT_EQ(head.font.size, 12);
    EXPECT_TRUE(head.font.bold && head.font.underline);
    EXPECT_EQ(t[2], "  Betriebs-Datei");
    EXPECT_TRUE(f.line("  Betriebs-Datei").font.bold);
    EXPECT_FALSE(f.line("  Betriebs-Datei").font.underline);

    const Call& heading = f.line("    Tabellenname: ''betrieb''");
    EXPECT_TRUE(heading.font.bold);
    EXPECT_EQ(heading.font.size, 10);
    // Left, right, left: the right field stands on the line of the left one.
    const Call& nr = f.line("   betr-nr:     1001");
    const Call& hist = f.line("   betr-hist-nr:     1");
    const Call& gem = f.line("   gem-kz:     01001000");
    EXPECT_EQ(nr.x, 0);
    EXPECT_EQ(hist.x, kHalf);
    EXPECT_EQ(hist.y, nr.y);
    EXPECT_EQ(gem.x, 0);
    EXPECT_DOUBLE_EQ(gem.y, nr.y + f.lineHeight(8));
    EXPECT_EQ(gem.font.size, 8);
    EXPECT_FALSE(gem.font.bold);
    EXPECT_EQ(f.line("   b-eintr-name:     Kurz").x, kHalf);

    // Numbered headings only for several rows; a table without rows leaves nothing.
    auto at = [&](const std::string& s) { return std::find(t.begin(), t.end(), s) - t.begin(); };
    EXPECT_LT(at("    Tabellenname: ''betrieb''"),
              at("    Tabellenname: ''betrieb_adresse'' Nr. 1"));
    EXPECT_LT(at("    Tabellenname: ''betrieb_adresse'' Nr. 1"),
              at("    Tabellenname: ''betrieb_adresse'' Nr. 2"));
    EXPECT_LT(at("    Tabellenname: ''betrieb_adresse'' Nr. 2"),
              at("    Tabellenname: ''betrieb_taetigkeit''"));
    EXPECT_FALSE(f.printedAny("meldgrundsonst"));

    // No persons: the heading and nothing under it, not bold; then the document ends.
    EXPECT_EQ(t.back(), "  Personen-Datei");
    EXPECT_FALSE(f.line("  Personen-Datei").font.bold);
    EXPECT_EQ(f.line("  Personen-Datei").font.size, 12);
    EXPECT_EQ(f.printer.calls.back().kind, Kind::EndDoc);
    EXPECT_EQ(f.printer.font.name, "Arial");
    EXPECT_EQ(f.printer.font.size, 10);

    // The table handles keep the printed record's queries.
    EXPECT_EQ(f.g().stores.rs_betrieb.Name(),
              "SELECT distinctrow * From betrieb WHERE betrieb.[betr-nr] = '1001' AND "
              "betrieb.[betr-hist-nr] = '1'");
    EXPECT_EQ(f.g().stores.rs_betrieb.RecordCount(), 1);
    EXPECT_EQ(f.g().stores.rs_adresse.RecordCount(), 2);
    EXPECT_EQ(f.g().view.sql_text,
              "SELECT DISTINCTROW * FROM person INNER JOIN beziehung_betrieb_person ON "
              "beziehung_betrieb_person.[bez-pers-nr] = person.[pers-nr] WHERE "
              "beziehung_betrieb_person.[bez-betr-nr] = "
              "'1001' AND beziehung_betrieb_person.[bez-betr-hist-nr] = '1' ");
}

TEST(RecordReportTest, PersonsAreNumberedOnlyWhenThereAreSeveral) {
    RecordFixture f;
    f.business("2001");
    f.person("2001", "P1", "1");
    f.business("2002");
    f.person("2002", "P2", "2");
    f.person("2002", "P3", "7");
    insert(f.g().stores.db_daten, "person_staatsang",
           {{"pers-nr", "P3"}, {"staat-text", "deutsch"}});

    f.printBusiness("2001");
    EXPECT_TRUE(f.printer.find("    Tabellenname: ''person''"));
    EXPECT_TRUE(f.printer.find("   p-funktion:     Einzelgewerbetreibender"));

    f.newPrinter();
    f.printBusiness("2002");
    const auto t = f.texts();
    const auto one = std::find(t.begin(), t.end(), "    Tabellenname: ''person'' Nr. 1");
    const auto two = std::find(t.begin(), t.end(), "    Tabellenname: ''person'' Nr. 2");
    ASSERT_NE(one, t.end());
    ASSERT_NE(two, t.end());
    // Each person is followed by its own tables.
    EXPECT_NE(std::find(two, t.end(), "    Tabellenname: ''person_staatsang''"), t.end());
    EXPECT_EQ(std::find(one, two, "    Tabellenname: ''person_staatsang''"), two);
    EXPECT_TRUE(f.printer.find("   p-funktion:     Geschäftsführender Gesellschafter"));
    // Function 7 is no known one: the text of the field before it is printed again.
    EXPECT_TRUE(f.printer.find("   p-funktion:     9"));

    f.newPrinter();
    print::DS_Druck_1(f.g(), f.d, "Person", "2002", "1", "P3");
    EXPECT_EQ(f.texts().front(), "Personennummer: P3     Seite: 1");
    EXPECT_TRUE(f.line("  Personen-Datei").font.bold);
    EXPECT_TRUE(f.printer.find("    Tabellenname: ''person''"));
    EXPECT_TRUE(f.printer.find("   pers-nr:     P3"));
    EXPECT_FALSE(f.printer.find("   pers-nr:     P2"));
}

TEST(RecordReportTest, LongFieldsWrapInGrowingPiecesInTheirColumn) {
    RecordFixture f;
    const std::string right = std::string(50, 'r') + std::string(50, 's');
    const std::string left = std::string(50, ' ') + std::string(50, 'a') + std::string(50, 'b');
    f.business("3001", {{"b-eintr-name", right},
                        {"b-rechtsform", "X"},
                        {"b-rechtsform-text", "Y"},
                        {"b-bemerkung", left},
                        {"b-nebenerwerb", "nein"}});
    f.printBusiness("3001");
    const double h = f.lineHeight(8);
    const Call& gem = f.line("   gem-kz:     01001000");

    // Right column: the label alone, then two pieces of 50 at the column's X.
    const Call& label = f.line("   b-eintr-name:     ");
    EXPECT_EQ(label.x, kHalf);
    EXPECT_EQ(label.y, gem.y);
    const Call& r1 = f.line("   " + right.substr(0, 50));
    const Call& r2 = f.line("   " + right.substr(50));
    EXPECT_EQ(r1.x, kHalf);
    EXPECT_EQ(r2.x, kHalf);
    EXPECT_DOUBLE_EQ(r1.y, gem.y + h);
    EXPECT_DOUBLE_EQ(r2.y, gem.y + 2 * h);
    const Call& next = f.line("   b-rechtsform:     X");
    EXPECT_EQ(next.x, 0);
    EXPECT_DOUBLE_EQ(next.y, gem.y + 3 * h);

    // Left column, three pieces of a 150-character text: the blank first piece is left out, the
    // second reaches to the end, the third prints its part again.
    const Call& leftLabel = f.line("   b-bemerkung:     ");
    EXPECT_EQ(leftLabel.x, 0);
    const Call& l2 = f.line("   " + left.substr(50));
    const Call& l3 = f.line("   " + left.substr(100));
    EXPECT_EQ(l2.x, 0);
    EXPECT_DOUBLE_EQ(l2.y, leftLabel.y + h);
    EXPECT_DOUBLE_EQ(l3.y, leftLabel.y + 2 * h);
    EXPECT_FALSE(f.printer.find("   " + left.substr(0, 50)));
    // The field after a wrapped left field starts a fresh line on the left.
    const Call& after = f.line("   b-nebenerwerb:     nein");
    EXPECT_EQ(after.x, 0);
    EXPECT_DOUBLE_EQ(after.y, leftLabel.y + 3 * h);
}

TEST(RecordReportTest, PageBreakAt300AboveTheBottomRepeatsTheHead) {
    struct Case {
        double y;
        ColumnMark mark;
        bool breaks;
        double x;  // of the line on the new page
    } cases[] = {
        {15800 - 300, ColumnMark::vorne, false, 0},
        {15800 - 299, ColumnMark::mitte, true, 0},
        // A right-column field goes on in the right column of the new page.
        {15800 - 299, ColumnMark::vorne, true, kHalf},
    };
    for (const auto& c : cases) {
        RecordFixture f;
        f.d.druck_kopf = "Kopf ";
        f.d.spalte = c.mark;
        f.d.savedX = kHalf;
        f.printer.font = {"Courier New", 8, false, false};
        f.printer.setCurrentY(c.y);
        print::DS_Druck_Zeile(f.g(), f.d, "Zeile");
        const Call& line = f.line("Zeile");
        if (!c.breaks) {
            EXPECT_EQ(line.page, 1);
            EXPECT_EQ(line.y, c.y);
            continue;
        }
        EXPECT_EQ(f.printer.calls[0].kind, Kind::NewPage);
        const Call& head = f.line("Kopf 2");
        EXPECT_EQ(head.page, 2);
        EXPECT_EQ(head.y, 0);
        EXPECT_TRUE(head.font.bold && head.font.underline);
        EXPECT_EQ(head.font.size, 12);
        EXPECT_EQ(line.page, 2);
        EXPECT_EQ(line.x, c.x);
        EXPECT_DOUBLE_EQ(line.y, f.lineHeight(12) + f.lineHeight(8));
        EXPECT_DOUBLE_EQ(f.d.savedY, line.y);
        EXPECT_FALSE(line.font.bold || line.font.underline);
        EXPECT_EQ(line.font.size, 8);
    }
}

TEST(RecordReportTest, PageBreakBetweenLeftAndRightField) {
    // Where the lines fall on a long page tells the height that puts the break where wanted.
    auto yOf = [](RecordFixture& f, const std::string& text) {
        f.printBusiness("4001");
        const double y = f.line(text).y;
        return y;
    };
    const std::string longName = std::string(50, 'r') + std::string(50, 's');
    {
        // The right field's label is the page's last line: its pieces go on in the right column
        // of the new page, and the left field beside the label stays on the old page.
        RecordFixture f;
        f.business("4001", {{"b-eintr-name", longName}});
        const double y = yOf(f, "   b-eintr-name:     ");
        f.newPrinter(y + 300);
        f.printBusiness("4001");
        EXPECT_EQ(f.line("   gem-kz:     01001000").page, 1);
        EXPECT_EQ(f.line("   b-eintr-name:     ").page, 1);
        const Call& piece = f.line("   " + longName.substr(0, 50));
        EXPECT_EQ(piece.page, 2);
        EXPECT_EQ(piece.x, kHalf);
        EXPECT_DOUBLE_EQ(piece.y, f.lineHeight(12) + f.lineHeight(8));
        EXPECT_EQ(f.line("Betriebsnummer: 4001     Seite: 2").page, 2);
        EXPECT_EQ(f.line("   b-rechtsform:     ").x, 0);
    }
    {
        // The left field is past the line: it starts the new page, and its right neighbour
        // stands beside it there.
        RecordFixture f;
        f.business("4001", {{"b-eintr-name", "Kurz"}});
        const double y = yOf(f, "   gem-kz:     01001000");
        f.newPrinter(y + 299);
        f.printBusiness("4001");
        EXPECT_EQ(f.line("   betr-hist-nr:     1").page, 1);
        const Call& left = f.line("   gem-kz:     01001000");
        const Call& right = f.line("   b-eintr-name:     Kurz");
        EXPECT_EQ(left.page, 2);
        EXPECT_EQ(right.page, 2);
        EXPECT_EQ(left.x, 0);
        EXPECT_EQ(right.x, kHalf);
        EXPECT_EQ(right.y, left.y);
    }
}

TEST(RecordReportTest, PrinterFailureLeavesBoxesAndOneLogEntry) {
    RecordFixture f;
    f.business("5001");
    insert(f.g().stores.db_daten, "betrieb_adresse",
           {{"betr-nr", "5001"}, {"betr-hist-nr", "1"}, {"b-adr-art", "1"}});
    f.printer.failAtPrint = 5;  // the heading of the first table
    f.printBusiness("5001");

    EXPECT_EQ(f.d.druck_ok, 0);
    EXPECT_EQ(f.entries("DS_Druck_1"), 1);
    EXPECT_NE(f.logText().find("Fehlernummer:           482"), std::string::npos);
    EXPECT_EQ(f.texts().size(), 4u);  // nothing after the failure
    // The address table's empty line and heading, then the person heading's two lines.
    EXPECT_EQ(f.boxes("Druckerfehler!"), 4);
    EXPECT_EQ(f.dialogs.shown.back().text, "");
    EXPECT_EQ(f.dialogs.shown.back().style, core::msg::vbInformation);
    EXPECT_EQ(f.printer.calls.back().kind, Kind::EndDoc);

    // The next report is healthy again.
    f.newPrinter();
    f.printBusiness("5001");
    EXPECT_EQ(f.d.druck_ok, -1);
    EXPECT_TRUE(f.printer.find("   betr-nr:     5001"));
    EXPECT_EQ(f.boxes("Druckerfehler!"), 4);
}

TEST(RecordReportTest, FailureOfTheStoreEndsTheReportWithoutEndDoc) {
    RecordFixture f;
    f.g().stores.db_daten = store::Database();
    f.printBusiness("6001");
    EXPECT_EQ(f.entries("DS_Druck_1"), 1);
    EXPECT_TRUE(f.printer.find("  Betriebs-Datei"));
    EXPECT_NE(f.printer.calls.back().kind, Kind::EndDoc);
    EXPECT_EQ(f.printer.font.name, "Courier New");  // not put back
}

}  // namespace
}  // namespace tolma::test
