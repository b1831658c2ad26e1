#include "steps.h"

#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "browse/data_controls.h"
#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/start.h"
#include "options/options_form.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "transfer/export_form.h"
#include "transfer/import_driver.h"
#include "transfer/journal.h"

namespace tolma::test {
namespace {

constexpr const char* kKindNames[] = {"pruefen",  "import",       "zuruecknehmen",
                                      "datenart", "komprimieren", "leeren",
                                      "suchen",   "export",       "gemeindefilter"};

// The search words asked after every step: names with umlauts as written and folded, a town, a
// street by its beginning, a name with a town, persons' names.
const std::vector<std::string> kQueries = {"Müller",      "mueller", "Bäckerei", "Kiel", "Haupt",
                                           "Hansen Kiel", "Weiss",   "Petersen", "Anke", "Sönke"};

std::string joined(const std::vector<int>& values) {
    std::string s;
    for (size_t i = 0; i < values.size(); ++i) s += (i ? "," : "") + std::to_string(values[i]);
    return s;
}

std::vector<int> numbers(const std::string& text) {
    std::vector<int> out;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, ',');)
        if (!item.empty()) out.push_back(std::stoi(item));
    return out;
}

std::string fileText(const std::filesystem::path& file, std::uintmax_t from = 0) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return {};
    in.seekg(static_cast<std::streamoff>(from));
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::uintmax_t sizeOf(const std::filesystem::path& file) {
    std::error_code ec;
    const auto n = std::filesystem::file_size(file, ec);
    return ec ? 0 : n;
}

void addLines(std::vector<std::string>& out, const std::string& prefix, const std::string& text) {
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        out.push_back(prefix + line);
    }
}

// Every row of the tables that `wanted` takes, each with its row id and its values as SQLite
// quotes them (so that 1 and '1' differ), sorted.
template <class Wanted>
void dumpTables(store::Connection& c, const std::string& prefix, Wanted wanted,
                std::vector<std::string>& out) {
    std::vector<std::string> tables;
    {
        auto st = c.prepare(
            "SELECT name FROM main.sqlite_master WHERE type = 'table' AND name NOT GLOB "
            "'sqlite_*' ORDER BY name");
        while (st->step()) tables.push_back(st->column(0).toString());
    }
    for (const auto& table : tables) {
        if (!wanted(table)) continue;
        std::string select = "SELECT quote(rowid)";
        {
            auto st = c.prepare("SELECT name FROM pragma_table_info(?1)");
            st->bind(1, store::Variant(table));
            while (st->step()) select += ", quote([" + st->column(0).toString() + "])";
        }
        std::vector<std::string> rows;
        // A table without row ids is told apart by its key, which is among its columns.
        std::unique_ptr<store::Statement> st;
        try {
            st = c.prepare(select + " FROM main.[" + table + "]");
        } catch (const std::exception&) {
            st = c.prepare("SELECT NULL" + select.substr(select.find(',')) + " FROM main.[" +
                           table + "]");
        }
        while (st->step()) {
            std::string row = prefix + table;
            for (int i = 0; i < st->columnCount(); ++i) {
                std::string value = st->column(i).toString();
                for (size_t p = value.find('\n'); p != std::string::npos; p = value.find('\n', p))
                    value.replace(p, 1, "\\n");
                row += "|" + value;
            }
            rows.push_back(row);
        }
        std::sort(rows.begin(), rows.end());
        out.insert(out.end(), rows.begin(), rows.end());
    }
}

std::string hitText(const search::Hit& h) {
    return std::string(h.person ? "P" : "B") + "|" + h.betrNr + "|" + h.betrHistNr + "|" +
           h.persNr + "|" + h.name + "|" + h.strasse + "|" + h.ort + "|" + h.gemKz + "|" +
           (h.abgemeldet ? "abgemeldet" : "") + "|" + std::to_string(h.score);
}

}  // namespace

std::string Step::text() const {
    return std::string(kKindNames[static_cast<int>(kind)]) + "\t" + file + "\t" +
           std::to_string(escAt) + "\t" + joined(answers) + "\t" + std::to_string(lauf) + "\t" +
           (on ? "1" : "0") + "\t" + joined(picks) + "\t" + (byKey ? "1" : "0") + "\t" + query +
           "\t" + std::to_string(clock);
}

Step Step::parse(const std::string& text) {
    std::vector<std::string> f;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, '\t');) f.push_back(item);
    f.resize(10);
    Step s;
    for (int k = 0; k < 9; ++k)
        if (f[0] == kKindNames[k]) s.kind = static_cast<Kind>(k);
    s.file = f[1];
    s.escAt = f[2].empty() ? 0 : std::stoi(f[2]);
    s.answers = numbers(f[3]);
    s.lauf = f[4].empty() ? 0 : std::stol(f[4]);
    s.on = f[5] == "1";
    s.picks = numbers(f[6]);
    s.byKey = f[7] == "1";
    s.query = f[8];
    s.clock = f[9].empty() ? 0 : static_cast<std::time_t>(std::stoll(f[9]));
    return s;
}

std::string Step::describe() const {
    std::string d = kKindNames[static_cast<int>(kind)];
    if (!file.empty()) d += " " + std::filesystem::path(file).filename().string();
    if (escAt) d += ", ESC beim " + std::to_string(escAt) + ". DoEvents";
    if (!answers.empty()) d += ", Antworten " + joined(answers);
    if (kind == Kind::TakeBack) d += lauf ? ", ab Lauf " + std::to_string(lauf) : ", neuester";
    if (kind == Kind::Filter) d += on ? ", an, Auswahl " + joined(picks) : ", aus";
    if (kind == Kind::Export && byKey) d += ", je Schlüssel";
    if (kind == Kind::Search) d += " '" + query + "'";
    return d;
}

namespace {

// The six marks in a fixed order, for a line of text.
bool core::MenuMarks::*const kMarks[] = {&core::MenuMarks::menue_suchen_person,
                                         &core::MenuMarks::menue_suchen_betrieb,
                                         &core::MenuMarks::menue_info,
                                         &core::MenuMarks::menue_extras_optionen,
                                         &core::MenuMarks::menue_import_datenbank,
                                         &core::MenuMarks::menue_export_textdatei};

std::string marksText(const core::MenuMarks& m) {
    std::string s;
    for (auto mark : kMarks) s += m.*mark ? '1' : '0';
    return s;
}

}  // namespace

std::string KeptInMemory::text() const {
    return std::string(errorsLogged ? "1" : "0") + "\t" + datenart + "\t" + kurzname + "\t" +
           marksText(marks);
}

KeptInMemory KeptInMemory::parse(const std::string& text) {
    std::vector<std::string> f;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, '\t');) f.push_back(item);
    f.resize(4);
    KeptInMemory k{f[0] == "1", f[1], f[2], {}};
    for (size_t i = 0; i < std::size(kMarks) && i < f[3].size(); ++i)
        k.marks.*kMarks[i] = f[3][i] == '1';
    return k;
}

KeptInMemory KeptInMemory::of(const core::Globals& g) {
    return {g.log.fehler_vorhanden, g.settings.datenart_wert, g.settings.db_kurzname,
            g.forms.marks};
}

Program::Program(const std::filesystem::path& home, const KeptInMemory* kept) {
    browse::attachDataControls(g);
    g.paths.dataDir = TOLMA_STORE_DIR;
    g.dialogs = &dialogs;
    g.clock = [this] { return now_; };
    shell.onEvents = [this] {
        if (escAt_ > 0 && ++events_ == escAt_) g.view.taste = 27;
    };
    g.shell = &shell;
    core::A_Start(g, home);
    if (kept) {
        g.log.fehler_vorhanden = kept->errorsLogged;
        g.settings.datenart_wert = kept->datenart;
        g.settings.db_kurzname = kept->kurzname;
        g.forms.marks = kept->marks;
    }
}

std::string Program::normalized(std::string text) const {
    std::string home = g.paths.pfad_app;
    if (home.empty()) return text;
    for (size_t p = text.find(home); p != std::string::npos; p = text.find(home, p))
        text.replace(p, home.size(), "<home>/");
    home.pop_back();
    for (size_t p = text.find(home); p != std::string::npos; p = text.find(home, p))
        text.replace(p, home.size(), "<home>");
    return text;
}

std::vector<std::string> Program::run(const Step& step) {
    now_ = step.clock;
    escAt_ = step.escAt;
    events_ = 0;
    dialogs.answers.assign(step.answers.begin(), step.answers.end());
    const size_t shownBefore = dialogs.shown.size();
    const std::string log = core::errorLogPath(g.paths);
    const auto logBefore = sizeOf(log);
    std::vector<std::string> out;
    auto result = [&](const std::string& what, int code) {
        out.push_back(what + ": " + std::to_string(code));
    };
    auto withOptions = [&](auto action) {
        g.forms.marks.menue_extras_optionen = true;
        options::OptionsForm form;
        options::Form_Activate(g, form);
        action(form);
        out.push_back(std::string("Optionen gespeichert: ") +
                      (options::Command3_Click(g, form, 1) ? "ja" : "nein"));
        options::Form_Unload(g);
    };

    switch (step.kind) {
        case Step::Kind::Check: {
            transfer::ImportCheck report;
            result("Pruefung", static_cast<int>(transfer::checkTransferFile(g, step.file, report)));
            addLines(out, "Bericht: ", transfer::checkReportText(step.file, report));
            break;
        }
        case Step::Kind::Import:
            result("Import", static_cast<int>(transfer::Upd_1_Start(g, step.file)));
            break;
        case Step::Kind::TakeBack: {
            if (!g.stores.db_daten.isSet()) {
                out.push_back("keine Datenbank");
                break;
            }
            const auto r = transfer::askAndTakeBack(
                g, step.lauf ? std::optional<long>(step.lauf) : std::nullopt);
            result("Zuruecknehmen", static_cast<int>(r.outcome));
            for (const auto& run : r.runs) out.push_back(transfer::describeRun(run));
            break;
        }
        case Step::Kind::SwitchKind:
            withOptions([&](options::OptionsForm& form) {
                options::Command12_Click(
                    g, form, g.settings.datenart_wert == core::kBetriebsbezogen ? 0 : 1);
            });
            break;
        case Step::Kind::Compact:
            core::DB_Komprimieren(g);
            break;
        case Step::Kind::Empty:
            withOptions([&](options::OptionsForm& form) { options::Command4_Click(g, form, 0); });
            break;
        case Step::Kind::Search: {
            if (!g.stores.db_daten.isSet()) {
                out.push_back("keine Datenbank");
                break;
            }
            // As the search window does: an index that is missing is built first.
            store::Connection& c = *g.stores.db_daten.connection();
            if (!search::hasIndex(c)) search::buildIndex(c);
            for (const auto& h : search::find(c, step.query, search::Kind::Both, 200))
                out.push_back("Treffer " + hitText(h));
            break;
        }
        case Step::Kind::Export: {
            g.forms.marks.menue_export_textdatei = true;
            auto form = transfer::Frm_Verwaltungsblock_Load(g);
            if (step.byKey && form.Check1[0].visible) form.Check1[0].value = 1;
            const auto r = transfer::Frm_Verwaltungsblock_Command1_Click(g, form, 0);
            result("Export", static_cast<int>(r.outcome));
            for (const auto& file : r.files) addLines(out, normalized(file) + ": ", fileText(file));
            break;
        }
        case Step::Kind::Filter:
            withOptions([&](options::OptionsForm& form) {
                options::Check1_Click(g, form, step.on);
                if (!step.on) return;
                form.Text7 = "0100";
                options::Command8_Click(g, form);
                for (int p : step.picks)
                    if (static_cast<size_t>(p) < form.selected.size())
                        form.selected[static_cast<size_t>(p)] = true;
            });
            break;
    }
    escAt_ = 0;
    for (size_t i = shownBefore; i < dialogs.shown.size(); ++i) {
        const auto& m = dialogs.shown[i];
        addLines(out, "Meldung " + m.title + " (" + std::to_string(m.style) + "): ", m.text);
    }
    for (const auto& v : dialogs.viewed) out.push_back("angezeigt: " + v);
    dialogs.viewed.clear();
    addLines(out, "Protokoll: ", fileText(log, logBefore));
    for (auto& line : out) line = normalized(line);
    return out;
}

std::vector<std::string> Program::state() {
    std::vector<std::string> out;
    out.push_back("taste=" + std::to_string(g.view.taste));
    out.push_back("datenart=" + g.settings.datenart_wert + " kurzname=" + g.settings.db_kurzname);
    out.push_back("datenbank=" + normalized(g.settings.db_pfad_aktuell));
    out.push_back("filter=" + std::to_string(g.settings.filter_aktiv_flag));
    out.push_back("fehler_vorhanden=" + std::to_string(g.log.fehler_vorhanden));
    out.push_back("caption=" + g.settings.caption);
    out.push_back("menue=" + marksText(g.forms.marks));

    if (g.stores.db_org.isSet()) {
        store::Connection& org = *g.stores.db_org.connection();
        dumpTables(
            org, "einstellungen ",
            [](const std::string& t) {
                return t == "Optionen" || t == "aktuelleGemeinde" || t == "tolma_optionen";
            },
            out);
    } else {
        out.push_back("keine Einstellungsdatenbank");
    }

    if (!g.stores.db_daten.isSet()) {
        out.push_back("keine Datenbank");
        return out;
    }
    store::Connection& c = *g.stores.db_daten.connection();
    // A transaction left open would hold what the step wrote back from every other reader.
    out.push_back(std::string("transaktion offen=") +
                  (c.inBatch() || !sqlite3_get_autocommit(c.handle()) ? "ja" : "nein"));
    {
        // Triggers left on the connection would act on every later change. (Its temporary
        // tables of numbers are emptied by each use, so what they hold is no state.)
        auto st =
            c.prepare("SELECT name FROM temp.sqlite_master WHERE type = 'trigger' ORDER BY name");
        while (st->step()) out.push_back("temporaerer Trigger " + st->column(0).toString());
    }
    for (auto& line : out) line = normalized(line);
    // The search index is compared by its hits, not its tables: it may be built anew lazily.
    dumpTables(
        c, "", [](const std::string& t) { return t.rfind("tolma_such", 0) != 0; }, out);
    for (const auto& r : transfer::importRuns(c))
        out.push_back("lauf " + std::to_string(r.lauf) + " " + r.datum + " " + r.datei + " " +
                      std::to_string(r.betriebe) + (r.zurueckgenommen ? " zurueckgenommen" : ""));
    const auto found = hits();
    out.insert(out.end(), found.begin(), found.end());
    return out;
}

std::vector<std::string> Program::hits() {
    std::vector<std::string> out;
    if (!g.stores.db_daten.isSet()) return out;
    store::Connection& c = *g.stores.db_daten.connection();
    try {
        // As the search window does: an index that is missing is built first.
        if (!search::hasIndex(c)) search::buildIndex(c);
        for (const auto& q : kQueries) {
            std::vector<std::string> found;
            for (const auto& h : search::find(c, q, search::Kind::Both, 1000))
                found.push_back("suche " + q + ": " + hitText(h));
            // The order among hits of one score is the index's own.
            std::sort(found.begin(), found.end());
            out.insert(out.end(), found.begin(), found.end());
        }
    } catch (const std::exception& e) {
        out.push_back(std::string("suche gescheitert: ") + e.what());
    }
    for (auto& line : out) line = normalized(line);
    return out;
}

std::vector<std::string> Program::hitsOfARebuiltIndex() {
    if (!g.stores.db_daten.isSet()) return {};
    search::buildIndex(*g.stores.db_daten.connection());
    return hits();
}

}  // namespace tolma::test
