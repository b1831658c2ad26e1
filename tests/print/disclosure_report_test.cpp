// The disclosure on paper, on a recording printer: pages that cut no line, their numbers, the
// wrap of long values and headings that stay with what follows them.
#include <gtest/gtest.h>

#include <map>

#include "print/recording_printer.h"
#include "protection/disclosure_report.h"

namespace tolma::protection {
namespace {

using print::RecordingPrinter;

Disclosure longDisclosure(const std::string& memo) {
    Disclosure d{"P1", "24.11.2026", {}, {}};
    DisclosureSection person{"Person", {{"", {}}}};
    for (int i = 0; i < 150; ++i)
        person.groups[0].facts.push_back(
            {"feld-" + std::to_string(i), "Wert " + std::to_string(i)});
    person.groups[0].facts.push_back({"p-bemerkung", memo});
    d.sections.push_back(person);
    d.sections.push_back({"Erlaubnisse", {}});
    DisclosureSection businesses{"Betriebe", {}};
    for (int i = 0; i < 12; ++i)
        businesses.groups.push_back({"Betrieb " + std::to_string(i),
                                     {{"betr-nr", std::to_string(100 + i)}, {"b-ort", "Husum"}}});
    d.sections.push_back(businesses);
    return d;
}

TEST(DisclosureReport, PagesCutNoLineAndEachSaysItsNumberAtItsFoot) {
    const std::string word(150, 'x');  // wider than the value column: goes in pieces
    std::string memo;
    for (int i = 0; i < 60; ++i) memo += "Bemerkung" + std::to_string(i) + " ";
    memo += word + "\nzweiter Absatz";
    RecordingPrinter p;
    printDisclosure(p, longDisclosure(memo));

    const auto lines = p.printed();
    const double foot = p.ScaleHeight() - 2 * RecordingPrinter::lineHeightOf(10);
    std::map<int, int> feet;
    std::string memoBack;
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto& l = lines[i];
        EXPECT_LE(l.x + RecordingPrinter::characterWidth(l.font.size) * l.text.size(),
                  p.ScaleWidth() + 1)
            << l.text;
        if (l.text.rfind("Seite ", 0) == 0) {
            EXPECT_EQ(l.text, "Seite " + std::to_string(l.page));
            EXPECT_GT(l.y, foot);
            ++feet[l.page];
            continue;
        }
        EXPECT_LE(l.y + RecordingPrinter::lineHeightOf(l.font.size), foot) << l.text;
        // A heading is never the last line of its page.
        if (l.font.bold && i + 1 < lines.size()) {
            EXPECT_EQ(lines[i + 1].page, l.page) << l.text;
        }
        if (l.x > 3000 && (l.text.find("Bemerkung") != std::string::npos || l.text[0] == 'x' ||
                           l.text == "zweiter Absatz"))
            memoBack += l.text;
    }
    ASSERT_GE(p.Page(), 1);
    const int pages = lines.back().page;
    EXPECT_GE(pages, 3);
    for (int page = 1; page <= pages; ++page) EXPECT_EQ(feet[page], 1) << page;
    EXPECT_EQ(p.calls.back().kind, RecordingPrinter::Kind::EndDoc);

    EXPECT_NE(p.find("Auskunft über gespeicherte Daten"), nullptr);
    EXPECT_EQ(p.find("Auskunft über gespeicherte Daten")->page, 1);
    EXPECT_NE(p.find("keine gespeichert"), nullptr);  // the section without rows says so
    EXPECT_NE(p.find("Betrieb 11"), nullptr);
    // The memo comes back whole from its lines, the long word in pieces of the column.
    const auto letters = [](std::string s) {
        std::erase_if(s, [](char c) { return c == ' ' || c == '\n'; });
        return s;
    };
    EXPECT_EQ(letters(memoBack), letters(memo));
}

}  // namespace
}  // namespace tolma::protection
