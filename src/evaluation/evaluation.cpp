#include "evaluation/evaluation.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "core/error_log.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/german_text.h"
#include "text/text.h"

namespace tolma::evaluation {
namespace {

bool digits(const std::string& s, size_t from, size_t n) {
    if (from + n > s.size()) return false;
    for (size_t i = from; i < from + n; ++i)
        if (s[i] < '0' || s[i] > '9') return false;
    return true;
}

// The month of a stored notification date: "DD.MM.YYYY" as every import stores it, or
// "YYYY-MM-DD" and "YYYYMMDD" as other tools may have written it.
std::optional<Month> monthOfDate(const std::string& raw) {
    const std::string d = text::trimBlanks(raw);
    Month m;
    if (d.size() >= 10 && d[2] == '.' && d[5] == '.' && digits(d, 0, 2) && digits(d, 3, 2) &&
        digits(d, 6, 4))
        m = {std::atoi(d.substr(6, 4).c_str()), std::atoi(d.substr(3, 2).c_str())};
    else if (d.size() >= 10 && d[4] == '-' && d[7] == '-' && digits(d, 0, 4) && digits(d, 5, 2))
        m = {std::atoi(d.substr(0, 4).c_str()), std::atoi(d.substr(5, 2).c_str())};
    else if (d.size() == 8 && digits(d, 0, 8))
        m = {std::atoi(d.substr(0, 4).c_str()), std::atoi(d.substr(4, 2).c_str())};
    else
        return std::nullopt;
    if (m.month < 1 || m.month > 12) return std::nullopt;
    return m;
}

Month next(Month m) {
    return m.month == 12 ? Month{m.year + 1, 1} : Month{m.year, m.month + 1};
}

Month monthsBefore(Month m, int n) {
    int index = m.year * 12 + (m.month - 1) - n;
    return {index / 12, index % 12 + 1};
}

// 1 Anmeldung, 2 Ummeldung, 3 Abmeldung; 0 for 999 and any other kind, which never count.
int kindOf(const std::string& meldArt) {
    const std::string art = text::trimBlanks(meldArt);
    return art == "01" || art == "1"   ? 1
           : art == "02" || art == "2" ? 2
           : art == "03" || art == "3" ? 3
                                       : 0;
}

std::string withoutEmpty(const std::string& text) {
    const std::string t = text::trimBlanks(text);
    return t.empty() ? "ohne Angabe" : t;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(";\"\n") == std::string::npos) return text;
    std::string q = "\"";
    for (char c : text) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

}  // namespace

std::optional<Month> parseMonth(const std::string& text) {
    if (text.size() != 7) return std::nullopt;
    Month m;
    if (text[4] == '-' && digits(text, 0, 4) && digits(text, 5, 2))
        m = {std::atoi(text.substr(0, 4).c_str()), std::atoi(text.substr(5, 2).c_str())};
    else if (text[2] == '.' && digits(text, 0, 2) && digits(text, 3, 4))
        m = {std::atoi(text.substr(3, 4).c_str()), std::atoi(text.substr(0, 2).c_str())};
    else
        return std::nullopt;
    if (m.month < 1 || m.month > 12 || m.year < 1) return std::nullopt;
    return m;
}

std::string badMonthMessage(const std::string& text) {
    return "Ungültiger Zeitraum: '" + text +
           "' (erwartet wird MM.JJJJ oder JJJJ-MM, z. B. 01.2026 oder 2026-01).";
}

std::string monthText(const Month& m) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%02d.%04d", m.month, m.year);
    return buf;
}

std::vector<Section> loadSections(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in) throw core::RuntimeError(53, "Datei nicht gefunden: '" + file.string() + "'");
    std::vector<Section> sections;
    std::string line;
    std::getline(in, line);  // the header
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        // The title is the last field and may hold semicolons itself.
        const size_t a = line.find(';'), b = line.find(';', a + 1), c = line.find(';', b + 1);
        if (c == std::string::npos)
            throw core::RuntimeError(5, "Ungültige Zeile in '" + file.string() + "': " + line);
        sections.push_back({line.substr(0, a), std::atoi(line.substr(a + 1, b - a - 1).c_str()),
                            std::atoi(line.substr(b + 1, c - b - 1).c_str()), line.substr(c + 1)});
    }
    return sections;
}

const Section* sectionOf(const std::vector<Section>& sections, const std::string& key) {
    const std::string k = text::trimBlanks(key);
    if (!digits(k, 0, 2)) return nullptr;
    const int division = std::atoi(k.substr(0, 2).c_str());
    for (const auto& s : sections)
        if (division >= s.from && division <= s.to) return &s;
    return nullptr;
}

std::optional<Grouping> parseGrouping(const std::string& text) {
    if (text == "wz") return Grouping::Section;
    if (text == "gemeinde") return Grouping::Municipality;
    if (text == "rechtsform") return Grouping::LegalForm;
    if (text == "grund") return Grouping::Reason;
    return std::nullopt;
}

const char* groupingCaption(Grouping g) {
    switch (g) {
        case Grouping::Section:
            return "Wirtschaftsabschnitt";
        case Grouping::Municipality:
            return "Gemeinde";
        case Grouping::LegalForm:
            return "Rechtsform";
        case Grouping::Reason:
            return "Meldegrund";
    }
    return "";
}

// The line of the table a notification counts in.
std::string lineOf(Grouping grouping, const store::Statement& st, const std::string& gemKz,
                   const std::string& activity, const std::map<std::string, std::string>& names,
                   const std::vector<Section>& sections) {
    switch (grouping) {
        case Grouping::Section: {
            const Section* s = sectionOf(sections, activity);
            return s ? s->letter + " " + s->title : kNoSection;
        }
        case Grouping::Municipality: {
            const auto name = names.find(gemKz);
            return gemKz + (name != names.end() ? " " + name->second : std::string());
        }
        case Grouping::LegalForm:
            return withoutEmpty(st.column(5).toString());
        case Grouping::Reason:
            return withoutEmpty(st.column(6).toString());
    }
    return {};
}

Result evaluate(core::Globals& g, const Query& query, const std::vector<Section>& sections) {
    Result r;
    r.query = query;
    store::Connection& c = *g.stores.db_daten.connection();

    std::set<std::string> scope;
    std::map<std::string, std::string> names;  // gem-kz to name, for the municipality lines
    if (query.scope == Query::Scope::Filter) {
        auto rs = g.stores.db_org.OpenRecordset(
            "SELECT [gem-kz] FROM aktuelleGemeinde WHERE markiert <> 0");
        for (long i = 0; i < rs.RecordCount(); ++i)
            scope.insert(text::trimBlanks(rs.rowAt(i)[0].toString()));
    }
    if (query.grouping == Grouping::Municipality) {
        auto rs =
            g.stores.db_org.OpenRecordset("SELECT [gem-kz], [gem-name] FROM gemeindekennzahlen");
        for (long i = 0; i < rs.RecordCount(); ++i) {
            const auto row = rs.rowAt(i);
            names[row[0].toString()] = row[1].toString();
        }
    }

    // The main activity of each state: the first of its rows marked so, in the order they were
    // stored. A file answers it by a look-up per state beside the pass; a server, for which
    // each look-up is a step of its own, reads the activities in one pass first.
    const bool server = c.isServer();
    std::unordered_map<std::string, std::string> mainActivity;
    const auto stateKey = [](const store::Statement& s) {
        return s.column(0).toString() + '\x1f' + s.column(1).toString();
    };
    if (server && query.grouping == Grouping::Section) {
        auto activities = c.prepare(
            "SELECT t.[betr-nr], t.[betr-hist-nr], t.[tk-schl] FROM betrieb_taetigkeit t WHERE "
            "trim(t.[tk-schwerp]) = '1' ORDER BY t.rowid");
        while (activities->step())
            mainActivity.emplace(stateKey(*activities), activities->column(2).toString());
    }
    // One pass over the notifications.
    auto st = c.prepare(
        "SELECT b.[betr-nr], b.[betr-hist-nr], b.[meld-art], b.[meld-datum], b.[gem-kz], "
        "b.[b-rechtsform-text], b.[meld-grund-text], b.[b-nebenerwerb]" +
        std::string(server || query.grouping != Grouping::Section
                        ? ""
                        : ", (SELECT t.[tk-schl] FROM betrieb_taetigkeit t WHERE t.[betr-nr] = "
                          "b.[betr-nr] AND t.[betr-hist-nr] = b.[betr-hist-nr] AND "
                          "trim(t.[tk-schwerp]) = '1' ORDER BY t.rowid LIMIT 1)") +
        " FROM betrieb b");
    std::map<std::string, Counts> byLine;
    std::map<Month, Counts> byMonth;
    for (Month m = query.from; m <= query.to; m = next(m)) byMonth[m];
    while (st->step()) {
        const int kind = kindOf(st->column(2).toString());
        if (kind == 0) continue;
        const auto month = monthOfDate(st->column(3).toString());
        if (!month || *month < query.from || query.to < *month) continue;
        const std::string gemKz = text::trimBlanks(st->column(4).toString());
        if (query.scope == Query::Scope::One && gemKz != query.municipality) continue;
        if (query.scope == Query::Scope::Filter && !scope.count(gemKz)) continue;

        std::string activity;
        if (query.grouping == Grouping::Section && !server)
            activity = st->column(8).toString();
        else if (query.grouping == Grouping::Section)
            if (auto it = mainActivity.find(stateKey(*st)); it != mainActivity.end())
                activity = it->second;
        const std::string line = lineOf(query.grouping, *st, gemKz, activity, names, sections);
        const std::string side = text::lower(text::trimBlanks(st->column(7).toString()));
        const bool nebenerwerb = kind == 1 && (side == "ja" || side == "j");
        for (Counts* counts : {&byLine[line], &byMonth[*month], &r.sum}) {
            (kind == 1   ? counts->anmeldungen
             : kind == 2 ? counts->ummeldungen
                         : counts->abmeldungen) += 1;
            if (nebenerwerb) ++counts->nebenerwerb;
        }
        r.counted[line].push_back(
            {st->column(0).toString(), st->column(1).toString(), kind, nebenerwerb});
    }

    for (auto& [line, counts] : byLine) r.lines.emplace_back(line, counts);
    // Sections by their letter with the unassigned last, the others in German order.
    std::sort(r.lines.begin(), r.lines.end(), [&](const auto& a, const auto& b) {
        if (query.grouping == Grouping::Section &&
            (a.first == kNoSection) != (b.first == kNoSection))
            return b.first == kNoSection;
        return store::german::compare(a.first, b.first) < 0;
    });
    for (auto& [month, counts] : byMonth) r.months.emplace_back(month, counts);
    return r;
}

std::pair<Month, Month> defaultPeriod(core::Globals& g) {
    std::set<Month> months;
    auto st =
        g.stores.db_daten.connection()->prepare("SELECT [meld-datum], [meld-art] FROM betrieb");
    std::optional<Month> newest;
    while (st->step()) {
        if (kindOf(st->column(1).toString()) == 0) continue;
        const auto m = monthOfDate(st->column(0).toString());
        if (m && (!newest || *newest < *m)) newest = m;
    }
    if (!newest) {
        const std::time_t t = g.clock();
        std::tm tm{};
        localtime_r(&t, &tm);
        newest = Month{tm.tm_year + 1900, tm.tm_mon + 1};
    }
    // Calendar months, not months with notifications: a quiet month must not stretch the
    // period back over years.
    return {monthsBefore(*newest, 11), *newest};
}

std::string periodText(const Query& q) {
    return q.from == q.to ? monthText(q.from) : monthText(q.from) + " – " + monthText(q.to);
}

std::string scopeText(const Query& q) {
    switch (q.scope) {
        case Query::Scope::All:
            return "alle Gemeinden";
        case Query::Scope::Filter:
            return "Gemeinden des Filters";
        case Query::Scope::One:
            return "Gemeinde " + q.municipality;
    }
    return {};
}

std::string headline(const Query& q) {
    return "Zeitraum: " + periodText(q) +
           (q.scope == Query::Scope::All ? std::string() : ", " + scopeText(q));
}

std::string countedDescription(const Result& r, size_t line, int column) {
    static const char* const kinds[] = {
        "", "Anmeldungen", "Ummeldungen", "Abmeldungen", "Saldo", "Anmeldungen im Nebenerwerb"};
    std::string d = std::string(kinds[std::clamp(column, 0, 5)]) + " " + periodText(r.query);
    if (line < r.lines.size()) {
        static const char* const groups[] = {"Abschnitt", "Gemeinde", "Rechtsform", "Meldegrund"};
        d += std::string(", ") + groups[static_cast<int>(r.query.grouping)] + " " +
             r.lines[line].first;
    }
    if (r.query.scope != Query::Scope::All) d += ", " + scopeText(r.query);
    return d;
}

std::string germanNumber(long n) {
    std::string digitsText = std::to_string(n < 0 ? -n : n), out;
    for (size_t i = 0; i < digitsText.size(); ++i) {
        if (i > 0 && (digitsText.size() - i) % 3 == 0) out += '.';
        out += digitsText[i];
    }
    return (n < 0 ? "-" : "") + out;
}

std::string tableText(const Result& r) {
    std::string t = headline(r.query) + "\n" + std::string(groupingCaption(r.query.grouping)) +
                    "\tAnmeldungen\tUmmeldungen\tAbmeldungen\tSaldo\tNebenerwerb\n";
    auto line = [&](const std::string& name, const Counts& c) {
        t += name + "\t" + std::to_string(c.anmeldungen) + "\t" + std::to_string(c.ummeldungen) +
             "\t" + std::to_string(c.abmeldungen) + "\t" + std::to_string(c.saldo()) + "\t" +
             std::to_string(c.nebenerwerb) + "\n";
    };
    for (const auto& [name, counts] : r.lines) line(name, counts);
    line("Summe", r.sum);
    return t;
}

std::string tableCsv(const Result& r) {
    std::string t = "\xEF\xBB\xBF" + csvField(headline(r.query)) + "\r\n" +
                    csvField(groupingCaption(r.query.grouping)) +
                    ";Anmeldungen;Ummeldungen;Abmeldungen;Saldo;Nebenerwerb\r\n";
    auto line = [&](const std::string& name, const Counts& c) {
        t += csvField(name) + ";" + germanNumber(c.anmeldungen) + ";" +
             germanNumber(c.ummeldungen) + ";" + germanNumber(c.abmeldungen) + ";" +
             germanNumber(c.saldo()) + ";" + germanNumber(c.nebenerwerb) + "\r\n";
    };
    for (const auto& [name, counts] : r.lines) line(name, counts);
    line("Summe", r.sum);
    return t;
}

}  // namespace tolma::evaluation
