// Evaluations: the sections of the classification, the counts by month, line and kind, and the
// table as a spreadsheet reads it.
#include <gtest/gtest.h>

#include "../transfer/import_fixture.h"
#include "evaluation/evaluation.h"

namespace tolma::test {
namespace {

using evaluation::Month;

std::vector<evaluation::Section> sections() {
    return evaluation::loadSections(std::filesystem::path(TOLMA_STORE_DIR) /
                                    "wz2008_abschnitte.csv");
}

TEST(EvaluationTest, EveryBoundaryOfTheSectionRanges) {
    const auto all = sections();
    ASSERT_EQ(all.size(), 21u);
    struct Case {
        const char* key;
        const char* letter;  // nullptr: no section
    } cases[] = {
        {"00.00", nullptr}, {"01.11.0", "A"}, {"03.22", "A"},   {"04", nullptr},  {"05.10", "B"},
        {"09.90", "B"},     {"10.71.0", "C"}, {"33.20", "C"},   {"34", nullptr},  {"35.11", "D"},
        {"36.00", "E"},     {"39.00", "E"},   {"40", nullptr},  {"41.10", "F"},   {"43.99", "F"},
        {"44", nullptr},    {"45.11", "G"},   {"47.24.0", "G"}, {"48", nullptr},  {"49.10", "H"},
        {"53.20", "H"},     {"54", nullptr},  {"55.10", "I"},   {"56.10.3", "I"}, {"57", nullptr},
        {"58.11", "J"},     {"63.99", "J"},   {"64.19", "K"},   {"66.30", "K"},   {"67", nullptr},
        {"68.10", "L"},     {"69.10", "M"},   {"75.00", "M"},   {"76", nullptr},  {"77.11", "N"},
        {"82.99", "N"},     {"83", nullptr},  {"84.11", "O"},   {"85.10", "P"},   {"86.10", "Q"},
        {"88.99", "Q"},     {"89", nullptr},  {"90.01", "R"},   {"93.29", "R"},   {"94.11", "S"},
        {"96.09", "S"},     {"97.00", "T"},   {"98.20", "T"},   {"99.00", "U"},   {"", nullptr},
        {"x1", nullptr},    {" 56.10", "I"},
    };
    for (const auto& c : cases) {
        const auto* s = evaluation::sectionOf(all, c.key);
        if (!c.letter)
            EXPECT_EQ(s, nullptr) << c.key;
        else
            EXPECT_TRUE(s && s->letter == c.letter) << c.key;
    }
    EXPECT_EQ(evaluation::sectionOf(all, "56.10.3")->title, "Gastgewerbe");
    EXPECT_EQ(all[4].title,
              "Wasserversorgung; Abwasser- und Abfallentsorgung und Beseitigung von "
              "Umweltverschmutzungen");
}

std::string business(const std::string& nr, const std::string& gem, const std::string& art,
                     const std::string& datum, const std::string& key,
                     const std::string& side = "nein") {
    std::string b = "<gem-kz>" + gem + "</gem-kz>\n<betr-nr>" + nr +
                    "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n"
                    "<b-eintr-name>Betrieb " +
                    nr +
                    "</b-eintr-name>\n<b-rechtsform-text>GmbH</b-rechtsform-text>\n"
                    "<b-nebenerwerb>" +
                    side + "</b-nebenerwerb>\n<meld-datum>" + datum +
                    "</meld-datum>\n"
                    "<meld-art>" +
                    art + "</meld-art>\n<meld-grund-text>Neugründung</meld-grund-text>\n";
    if (!key.empty())
        b += "<taetigkeiten>\n<taetigkeit>\n<tk-schl>" + key +
             "</tk-schl>\n<tk-schwerp>1</tk-schwerp>\n</taetigkeit>\n"
             "</taetigkeiten>\n";
    return b;
}

TEST(EvaluationTest, CountsByMonthLineAndKindFollowTheRules) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {
        business("1001", "01001000", "01", "20250105", "56.10.3"),
        business("1002", "01001000", "01", "20250131", "56.30.0", "ja"),
        business("1003", "01002000", "01", "20250115", "10.71.0"),
        business("1004", "01001000", "02", "20250201", "10.71.0"),
        business("1005", "01001000", "03", "20250228", ""),  // no main activity
        business("1006", "01002000", "03", "20250210", "99.00"),
        business("1007", "01001000", "999", "20250110", "56.10.3"),  // never counted
        business("1008", "01001000", "01", "20241231", "56.10.3"),   // before the period
        business("1009", "01001000", "01", "20250301", "56.10.3"),   // after it
    };
    ASSERT_EQ(f.import(file), transfer::ImportOutcome::Finished);

    evaluation::Query q;
    q.from = {2025, 1};
    q.to = {2025, 2};
    auto r = evaluation::evaluate(f.g(), q, sections());
    EXPECT_EQ(evaluation::tableText(r),
              "Zeitraum: 01.2025 – 02.2025\n"
              "Wirtschaftsabschnitt\tAnmeldungen\tUmmeldungen\tAbmeldungen\tSaldo\tNebenerwerb\n"
              "C Verarbeitendes Gewerbe\t1\t1\t0\t1\t0\n"
              "I Gastgewerbe\t2\t0\t0\t2\t1\n"
              "U Exterritoriale Organisationen und Körperschaften\t0\t0\t1\t-1\t0\n"
              "ohne Zuordnung\t0\t0\t1\t-1\t0\n"
              "Summe\t3\t1\t2\t1\t1\n");
    ASSERT_EQ(r.months.size(), 2u);
    EXPECT_EQ(r.months[0].second.anmeldungen, 3);
    EXPECT_EQ(r.months[1].second.abmeldungen, 2);
    EXPECT_EQ(r.months[1].second.ummeldungen, 1);
    EXPECT_EQ(r.counted["I Gastgewerbe"].size(), 2u);

    q.grouping = evaluation::Grouping::Municipality;
    q.scope = evaluation::Query::Scope::One;
    q.municipality = "01002000";
    r = evaluation::evaluate(f.g(), q, sections());
    ASSERT_EQ(r.lines.size(), 1u);
    EXPECT_EQ(r.lines[0].first.substr(0, 9), "01002000 ");
    EXPECT_EQ(r.sum.anmeldungen, 1);
    EXPECT_EQ(r.sum.abmeldungen, 1);
    EXPECT_EQ(evaluation::tableText(r).substr(0, evaluation::tableText(r).find('\n')),
              "Zeitraum: 01.2025 – 02.2025, Gemeinde 01002000");
}

// A number opened as a list says what it counts: kind, period, line and municipalities.
TEST(EvaluationTest, WhatANumberCountsIsNamedInFull) {
    evaluation::Result r;
    r.query.from = r.query.to = {2024, 1};
    r.lines = {{"I Gastgewerbe", {}}, {"ohne Zuordnung", {}}};
    struct Case {
        evaluation::Grouping grouping;
        evaluation::Month to;
        evaluation::Query::Scope scope;
        size_t line;
        int column;
        const char* expected;
    } cases[] = {
        {evaluation::Grouping::Section,
         {2024, 1},
         evaluation::Query::Scope::All,
         0,
         1,
         "Anmeldungen 01.2024, Abschnitt I Gastgewerbe"},
        {evaluation::Grouping::Section,
         {2024, 12},
         evaluation::Query::Scope::All,
         1,
         3,
         "Abmeldungen 01.2024 – 12.2024, Abschnitt ohne Zuordnung"},
        {evaluation::Grouping::LegalForm,
         {2024, 1},
         evaluation::Query::Scope::Filter,
         0,
         2,
         "Ummeldungen 01.2024, Rechtsform I Gastgewerbe, Gemeinden des Filters"},
        {evaluation::Grouping::Reason,
         {2024, 1},
         evaluation::Query::Scope::One,
         2,
         5,
         "Anmeldungen im Nebenerwerb 01.2024, Gemeinde 01002000"},  // the "Summe" line
    };
    for (const auto& c : cases) {
        r.query.grouping = c.grouping;
        r.query.to = c.to;
        r.query.scope = c.scope;
        r.query.municipality = "01002000";
        EXPECT_EQ(evaluation::countedDescription(r, c.line, c.column), c.expected);
    }
}

// The default period is twelve calendar months up to the newest with notifications, however
// sparse the older ones are.
TEST(EvaluationTest, TheDefaultPeriodIsTheTwelveCalendarMonthsEndingWithTheNewest) {
    ImportFixture f;
    TmlFile file;
    file.betriebe = {
        business("3001", "01001000", "01", "20231205", "56.10.3"),
        business("3002", "01001000", "01", "20240615", "56.10.3"),
        business("3003", "01001000", "03", "20250110", "56.10.3"),
        business("3004", "01001000", "02", "20260301", "56.10.3"),
        business("3005", "01001000", "999", "20260901", "56.10.3"),  // never counted
    };
    ASSERT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    const auto period = evaluation::defaultPeriod(f.g());
    EXPECT_EQ(period.first, (Month{2025, 4}));
    EXPECT_EQ(period.second, (Month{2026, 3}));
}

TEST(EvaluationTest, EveryStateCountsInNotificationRelatedDataTheStoredOneInBusinessRelated) {
    // One business registered in January and deregistered in February, as two states.
    std::string registered = business("2001", "01001000", "01", "20250110", "56.10.3");
    std::string deregistered = business("2001", "01001000", "03", "20250220", "56.10.3");
    const std::string first = "<betr-hist-nr>1</betr-hist-nr>";
    deregistered.replace(deregistered.find(first), first.size(), "<betr-hist-nr>2</betr-hist-nr>");
    evaluation::Query q;
    q.from = {2025, 1};
    q.to = {2025, 12};
    for (const char* struktur : {"MELDUNGSBEZOGEN", "BETRIEBSBEZOGEN"}) {
        ImportFixture f;
        TmlFile file;
        file.struktur = struktur;
        file.betriebe = {registered, deregistered};
        // Consent, and for notification-related data the switch to its store.
        ASSERT_EQ(f.import(file, {core::msg::vbYes, core::msg::vbYes}),
                  transfer::ImportOutcome::Finished)
            << struktur;
        const auto r = evaluation::evaluate(f.g(), q, sections());
        const bool everyState = std::string(struktur) == "MELDUNGSBEZOGEN";
        EXPECT_EQ(r.sum.anmeldungen, everyState ? 1 : 0) << struktur;
        EXPECT_EQ(r.sum.abmeldungen, 1) << struktur;
        EXPECT_EQ(r.months[0].second.anmeldungen, everyState ? 1 : 0) << struktur;
        EXPECT_EQ(r.months[1].second.abmeldungen, 1) << struktur;
    }
}

// A minimal reader of the CSV, as a spreadsheet splits it.
std::vector<std::vector<std::string>> readCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows(1, std::vector<std::string>(1));
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"')
                rows.back().back() += text[++i];
            else if (c == '"')
                quoted = false;
            else
                rows.back().back() += c;
        } else if (c == '"') {
            quoted = true;
        } else if (c == ';') {
            rows.back().emplace_back();
        } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            ++i;
            if (i + 1 < text.size()) rows.emplace_back(1);
        } else {
            rows.back().back() += c;
        }
    }
    return rows;
}

TEST(EvaluationTest, TheCsvIsWhatASpreadsheetReads) {
    EXPECT_EQ(evaluation::germanNumber(0), "0");
    EXPECT_EQ(evaluation::germanNumber(1234), "1.234");
    EXPECT_EQ(evaluation::germanNumber(-1234567), "-1.234.567");
    evaluation::Result r;
    r.query.grouping = evaluation::Grouping::Section;
    r.query.from = {2025, 1};
    r.query.to = {2025, 12};
    evaluation::Counts handel;
    handel.anmeldungen = 1500;
    handel.abmeldungen = 2;
    r.lines = {{"G Handel; Instandhaltung und Reparatur von Kraftfahrzeugen", handel},
               {"Mit \"Zitat\"", {}}};
    r.sum = handel;
    const std::string csv = evaluation::tableCsv(r);
    ASSERT_EQ(csv.substr(0, 3), "\xEF\xBB\xBF");
    const auto rows = readCsv(csv.substr(3));
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"Zeitraum: 01.2025 – 12.2025"}));
    EXPECT_EQ(rows[1],
              (std::vector<std::string>{"Wirtschaftsabschnitt", "Anmeldungen", "Ummeldungen",
                                        "Abmeldungen", "Saldo", "Nebenerwerb"}));
    EXPECT_EQ(rows[2], (std::vector<std::string>{
                           "G Handel; Instandhaltung und Reparatur von Kraftfahrzeugen", "1.500",
                           "0", "2", "1.498", "0"}));
    EXPECT_EQ(rows[3][0], "Mit \"Zitat\"");
    EXPECT_EQ(rows[4][0], "Summe");
}

TEST(EvaluationTest, MonthsAreReadAsShownAndAsScriptsWriteThem) {
    struct Case {
        const char* text;
        std::optional<Month> month;
    } cases[] = {
        {"2025-01", Month{2025, 1}},
        {"01.2025", Month{2025, 1}},
        {"12.2026", Month{2026, 12}},
        {"2025-13", {}},
        {"13.2025", {}},
        {"00.2025", {}},
        {"2025-00", {}},
        {"2025-1", {}},
        {"1.2025", {}},
        {"25-01", {}},
        {"01.25", {}},
        {"2025/01", {}},
        {"01/2025", {}},
        {"2025.01", {}},
        {"01-2025", {}},
        {"", {}},
        {"abcd-ef", {}},
        {"01.2025 ", {}},
    };
    for (const auto& c : cases) EXPECT_EQ(evaluation::parseMonth(c.text), c.month) << c.text;
    EXPECT_EQ(evaluation::badMonthMessage("2025/01"),
              "Ungültiger Zeitraum: '2025/01' (erwartet wird MM.JJJJ oder JJJJ-MM, z. B. 01.2026 "
              "oder 2026-01).");
    EXPECT_EQ(evaluation::monthText({2025, 3}), "03.2025");
}

}  // namespace
}  // namespace tolma::test
