// The list report of both lists, the buttons "Satz" and "Liste", and the print menu's entries.
#include <gtest/gtest.h>

#include "browse/list_form.h"
#include "browse/record_view.h"
#include "model/values.h"
#include "print/list_report.h"
#include "print/print_menu.h"
#include "print_fixture.h"

namespace tolma::test {
namespace {

struct ListPrintFixture : PrintFixture {
    browse::ListForm betr{false}, pers{true};
    ListPrintFixture() { importSample(); }
    store::Recordset& rows(browse::ListForm& form) { return form.data.Recordset(); }
};

// A line of n characters with an umlaut in every ten, to count characters and not bytes.
std::string lineOf(long long n) {
    std::string s;
    for (long long i = 0; i < n; ++i)
        s += i % 10 == 0 ? std::string("ä") : std::string(1, static_cast<char>('a' + i % 10));
    return s;
}

TEST(ListReportTest, LongLinesGoOnBehindTheIndentInPiecesOf60) {
    struct Case {
        long long length;
        std::vector<long long> pieces;
    } cases[] = {
        {116, {116}},
        {117, {116, 1}},
        {116 + 60, {116, 60}},
        {116 + 61, {116, 60, 1}},
        {116 + 120, {116, 60, 60}},
    };
    for (const auto& c : cases) {
        PrintFixture f;
        const std::string line = lineOf(c.length);
        print::printListLine(f.g(), f.d, line, 1234);
        const auto printed = f.printer.printed();
        ASSERT_EQ(printed.size(), c.pieces.size()) << c.length;
        std::string joined;
        for (size_t i = 0; i < printed.size(); ++i) {
            EXPECT_EQ(model::characterCount(printed[i].text), c.pieces[i])
                << c.length << " piece " << i;
            EXPECT_EQ(printed[i].x, i == 0 ? 0 : 1234) << c.length << " piece " << i;
            joined += printed[i].text;
        }
        EXPECT_EQ(joined, line);
    }
    EXPECT_EQ(print::alignRight("1", 6), "     1");
    EXPECT_EQ(print::alignRight("1234567", 6), "1234567");
    EXPECT_EQ(print::alignRight("ä", 4), "   ä");
}

TEST(ListReportTest, BusinessListPrintsItsHeadAndRowsAndStandsAgainOnItsRow) {
    ListPrintFixture f;
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    const long n = f.rows(f.betr).RecordCount();
    f.rows(f.betr).setAbsolutePosition(4);
    print::printList(f.g(), f.d, f.betr);

    EXPECT_EQ(f.source.titles, std::vector<std::string>{"Betriebsdaten drucken!"});
    const auto p = f.printer.printed();
    ASSERT_EQ(p.size(), 5u + static_cast<size_t>(n));
    EXPECT_EQ(p[0].text, "Betriebsliste     Seite: 1");
    EXPECT_EQ(p[0].font.name, "Courier New");
    EXPECT_TRUE(p[0].font.bold && p[0].font.underline);
    EXPECT_EQ(p[1].text, "");
    EXPECT_TRUE(p[1].font.bold);  // the business list's first empty line is still bold, 12 point
    EXPECT_EQ(p[1].font.size, 12);
    EXPECT_EQ(p[2].font.size, 8);
    EXPECT_EQ(p[3].text,
              "LfdNr - Gemeindenummer - Betriebsnummer - Betriebshistoriennummer - Betriebsname");
    EXPECT_FALSE(p[3].font.bold || p[3].font.underline);
    EXPECT_EQ(p[5].text, "     1 - 01054056 - 010540001037 -    3 - Bäckerei Petersen e.K.");
    EXPECT_EQ(p.back().text.substr(0, 9), print::alignRight(std::to_string(n), 6) + " - ");
    EXPECT_EQ(f.printer.calls.back().kind, Kind::EndDoc);
    EXPECT_EQ(f.rows(f.betr).AbsolutePosition(), 4);
    EXPECT_EQ(f.printer.font.size, 8);  // not put back
}

TEST(ListReportTest, PersonListHeadBlockAndLinesWithNulls) {
    ListPrintFixture f;
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    print::printList(f.g(), f.d, f.pers);
    EXPECT_EQ(f.source.titles, std::vector<std::string>{"Personendaten drucken!"});
    const auto p = f.printer.printed();
    ASSERT_GT(p.size(), 6u);
    EXPECT_EQ(p[0].text, "Personenliste     Seite: 1");
    EXPECT_EQ(p[1].text, "");
    EXPECT_FALSE(p[1].font.bold);
    EXPECT_EQ(p[1].font.size, 12);
    EXPECT_EQ(p[2].font.size, 8);
    EXPECT_EQ(p[3].text,
              "LfdNr - PersonenNr. - BetriebsNr. - BetriebshistorienNr. - Name(jP) - Name(nP) - "
              "Betriebsname");
    // A natural person has no registered name: its neighbours' separators stay.
    EXPECT_EQ(p[5].text,
              "     1 - 900000004724 - 010540001111 -    1 -  - Yilmaz - Fa. Restaurant Husumer "
              "Hafen Inh. Murat Yilmaz");
    // Long lines go on at ScaleWidth / 2.2.
    bool indented = false;
    for (const auto& c : p) indented |= c.x == 11000 / 2.2;
    EXPECT_TRUE(indented);
}

TEST(ListReportTest, DialogCancelErrorAndEndOfList) {
    ListPrintFixture f;
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    f.source.answers = {print::kDialogCancelled, 5};
    print::printList(f.g(), f.d, f.pers);
    EXPECT_TRUE(f.dialogs.shown.empty());  // a cancel says nothing
    print::printList(f.g(), f.d, f.pers);
    ASSERT_EQ(f.dialogs.shown.size(), 1u);
    EXPECT_EQ(f.dialogs.shown[0].text, "Es ist ein Druckerfehler aufgetreten! 5");
    EXPECT_EQ(f.dialogs.shown[0].title, "Personendaten drucken!");
    EXPECT_TRUE(f.printer.calls.empty());

    // The business list does nothing at all past its last row.
    browse::Form_Unload(f.g(), f.pers);
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    f.rows(f.betr).MoveLast();
    f.rows(f.betr).MoveNext();
    print::printList(f.g(), f.d, f.betr);
    print::printRecordOfRow(f.g(), f.d, f.betr);
    EXPECT_EQ(f.source.titles.size(), 2u);
    EXPECT_TRUE(f.printer.calls.empty());
}

TEST(ListReportTest, NewPagesRepeatTheHeadAndTheNumberRunsOn) {
    ListPrintFixture f;
    f.printer = print::RecordingPrinter(11000, 3000);
    // A record report left its mark on a right-column field: the list's first line on a new
    // page stands at that field's X.
    f.d.spalte = print::ColumnMark::vorne;
    f.d.savedX = 777;
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    print::printList(f.g(), f.d, f.betr);

    long expected = 0;
    int pages = 0, columnLines = 0;
    for (const auto& c : f.printer.printed()) {
        if (c.text.rfind("Betriebsliste     Seite: ", 0) == 0) {
            EXPECT_EQ(c.text, "Betriebsliste     Seite: " + std::to_string(++pages));
            continue;
        }
        columnLines += c.text.rfind("LfdNr", 0) == 0;
        if (c.text.size() > 9 && c.text.substr(6, 3) == " - ") {
            EXPECT_EQ(c.text.substr(0, 6), print::alignRight(std::to_string(++expected), 6));
        }
    }
    EXPECT_GT(pages, 2);
    EXPECT_EQ(columnLines, 1);
    EXPECT_EQ(expected, f.rows(f.betr).RecordCount());
    // The first line of page 2, after its head and the empty line.
    const auto p = f.printer.printed();
    const auto second = std::find_if(p.begin(), p.end(), [](const Call& c) { return c.page == 2; });
    ASSERT_NE(second, p.end());
    EXPECT_EQ((second + 2)->x, 777);
}

TEST(ListReportTest, SatzPrintsTheRecordOfTheRow) {
    ListPrintFixture f;
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    f.rows(f.betr).setAbsolutePosition(1);
    const std::string nr = f.betr.data.fieldText("betrieb.betr-nr");
    print::printRecordOfRow(f.g(), f.d, f.betr);
    EXPECT_EQ(f.source.titles.back(), "Betriebsdaten drucken!");
    EXPECT_EQ(f.texts().front(), "Betriebsnummer: " + nr + "     Seite: 1");
    browse::Form_Unload(f.g(), f.betr);

    f.printer = print::RecordingPrinter();
    ASSERT_TRUE(browse::menue_suchen_person(f.g(), f.pers));
    f.rows(f.pers).setAbsolutePosition(3);
    const std::string persNr = f.pers.data.fieldText("pers-nr");
    print::printRecordOfRow(f.g(), f.d, f.pers);
    EXPECT_EQ(f.source.titles.back(), "Personendaten drucken!");
    EXPECT_EQ(f.texts().front(), "Personennummer: " + persNr + "     Seite: 1");
    EXPECT_TRUE(f.printer.find("   pers-nr:     " + persNr));
}

TEST(PrintMenuTest, EntriesTellWhatIsMissingOrPrintTheShownRecord) {
    ListPrintFixture f;
    auto& v = f.g().forms.startView;
    // Nothing chosen yet.
    print::menue_druck_betrieb(f.g(), f.d);
    ASSERT_EQ(f.dialogs.shown.size(), 1u);
    EXPECT_EQ(f.dialogs.shown[0].title, "Datensatz-Auswahl!");
    EXPECT_EQ(f.dialogs.shown[0].text, "Es wurde kein Datensatz ausgewählt!");
    EXPECT_EQ(f.dialogs.shown[0].style, core::msg::vbInformation);
    EXPECT_FALSE(f.d.menue_druck_betrieb);
    EXPECT_EQ(v.MousePointer, 0);

    // An open list keeps both entries still.
    ASSERT_TRUE(browse::menue_suchen_betrieb(f.g(), f.betr));
    print::menue_druck_betrieb(f.g(), f.d);
    print::menue_druck_Person(f.g(), f.d);
    EXPECT_EQ(f.dialogs.shown.size(), 1u);

    // A business taken from the list is printed straight away, without the dialog.
    f.rows(f.betr).setAbsolutePosition(1);
    const std::string nr = f.betr.data.fieldText("betrieb.betr-nr");
    ASSERT_TRUE(browse::Command1_Click(f.g(), f.betr, 0));
    browse::Form_Unload(f.g(), f.betr);
    print::menue_druck_betrieb(f.g(), f.d);
    EXPECT_EQ(f.texts().front(), "Betriebsnummer: " + nr + "     Seite: 1");
    f.printer = print::RecordingPrinter();
    const std::string persNr = browse::dataControls(f.g()).DATA_PERS.fieldText("pers-nr");
    ASSERT_FALSE(persNr.empty());
    print::menue_druck_Person(f.g(), f.d);
    EXPECT_EQ(f.texts().front(), "Personennummer: " + persNr + "     Seite: 1");
    EXPECT_TRUE(f.source.titles.empty());
    EXPECT_FALSE(f.d.menue_druck_Person);

    // A record view whose business has gone from the store.
    browse::DB_Load_DATA(f.g(), "0", "0", "0", "");
    print::menue_druck_Person(f.g(), f.d);
    EXPECT_EQ(f.dialogs.shown.back().title, "Aktuellen Personendatensatz drucken!");
    EXPECT_EQ(f.dialogs.shown.back().text, "Es wurden in der Datenbank keine Sätze gefunden!");
}

}  // namespace
}  // namespace tolma::test
