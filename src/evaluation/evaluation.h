#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/globals.h"

// Evaluations of the notifications in the active store: how many registrations, changes and
// deregistrations, by section of economic activity, municipality, legal form or reason, month
// by month.
//
// Counting rules: a notification counts in the month of its `meld-datum`. Every row of
// `betrieb` is one notification: in business-related data a business has one row, its stored
// state; in notification-related data each state has a row of its own and counts. Kinds 01
// (Anmeldung), 02 (Ummeldung) and 03 (Abmeldung) are counted; any other kind, 999 among them,
// never.
namespace tolma::evaluation {

struct Month {
    int year = 0, month = 0;
    bool operator<(const Month& o) const {
        return year != o.year ? year < o.year : month < o.month;
    }
    bool operator<=(const Month& o) const { return !(o < *this); }
    bool operator==(const Month& o) const { return year == o.year && month == o.month; }
};
// "MM.JJJJ" as the program shows months, or "JJJJ-MM" as scripts write them; nothing when the
// text is neither.
std::optional<Month> parseMonth(const std::string& text);
// The message for a value that parseMonth refuses, naming the value.
std::string badMonthMessage(const std::string& text);
std::string monthText(const Month& m);  // "MM.JJJJ"

// A section of the WZ 2008: its letter, its divisions and its German title.
struct Section {
    std::string letter;
    int from = 0, to = 0;
    std::string title;
};
// The sections from the project's data file; raises a German error when it cannot be read.
std::vector<Section> loadSections(const std::filesystem::path& file);
// The section of an activity key such as "56.10.3"; nullptr without a fitting division.
const Section* sectionOf(const std::vector<Section>& sections, const std::string& key);
inline constexpr const char* kNoSection = "ohne Zuordnung";

enum class Grouping { Section, Municipality, LegalForm, Reason };
// "wz", "gemeinde", "rechtsform", "grund"
std::optional<Grouping> parseGrouping(const std::string& text);
const char* groupingCaption(Grouping g);  // the heading of the group column

struct Query {
    Month from, to;
    Grouping grouping = Grouping::Section;
    // Which municipalities: all, the filter's marked ones, or one.
    enum class Scope { All, Filter, One } scope = Scope::All;
    std::string municipality;  // for Scope::One
};

// The counts of one line of the table.
struct Counts {
    long anmeldungen = 0, ummeldungen = 0, abmeldungen = 0, nebenerwerb = 0;
    long saldo() const { return anmeldungen - abmeldungen; }
};

// A business state counted in a line, for opening the list of what a number counts.
struct Counted {
    std::string betrNr, betrHistNr;
    int kind = 0;  // 1, 2 or 3
    bool nebenerwerb = false;
};

struct Result {
    Query query;
    std::vector<std::pair<std::string, Counts>> lines;  // in the group's order
    Counts sum;
    std::vector<std::pair<Month, Counts>> months;         // every month of the period
    std::map<std::string, std::vector<Counted>> counted;  // by line
};

// Counts the notifications of the active data store. Raises the engine's error on a store that
// cannot be read.
Result evaluate(core::Globals& g, const Query& query, const std::vector<Section>& sections);

// The twelve calendar months ending with the newest month that has notifications; without any,
// the twelve months up to this one.
std::pair<Month, Month> defaultPeriod(core::Globals& g);

// "01.2025 – 12.2025", or "03.2025" for one month.
std::string periodText(const Query& q);
// "alle Gemeinden", "Gemeinden des Filters", "Gemeinde 01001000".
std::string scopeText(const Query& q);
// What was counted, as the first line of every output: "Zeitraum: 01.2025 – 12.2025", with the
// municipalities when not all of them count.
std::string headline(const Query& q);
// What a number of the table counts, for the list of its businesses: "Anmeldungen 01.2025,
// Abschnitt I Gastgewerbe". `line` indexes r.lines (r.lines.size() for "Summe"), `column` the
// table's count columns from 1 (Anmeldungen) to 5 (Nebenerwerb).
std::string countedDescription(const Result& r, size_t line, int column);

// The headline, then the table as text: tab-separated with a header line, "Summe" last.
std::string tableText(const Result& r);
// The same as a spreadsheet reads it: UTF-8 with BOM, semicolons, German numbers.
std::string tableCsv(const Result& r);
// A count in German notation: "1.234", "-5".
std::string germanNumber(long n);

}  // namespace tolma::evaluation
