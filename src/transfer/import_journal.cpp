#include "transfer/import_journal.h"

#include <algorithm>
#include <filesystem>
#include <type_traits>

#include "model/schema.h"
#include "store/change_capture.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"

namespace tolma::transfer {
namespace {

std::string shadowOf(const std::string& table) {
    return "tolma_rueck_" + table;
}

bool tableExists(store::Connection& c, const std::string& name) {
    auto st = c.prepare("SELECT 1 FROM main.sqlite_master WHERE type = 'table' AND name = ?1");
    st->bind(1, store::Variant(name));
    return st->step();
}

std::vector<std::string> columnsOf(store::Connection& c, const std::string& table) {
    std::vector<std::string> columns;
    auto st = c.prepare("SELECT name FROM pragma_table_info(?1)");
    st->bind(1, store::Variant(table));
    while (st->step()) columns.push_back(st->column(0).toString());
    return columns;
}

// The system's tables that the store holds.
std::vector<std::string> recordedTables(store::Connection& c) {
    std::vector<std::string> tables;
    for (const auto& t : model::dataTables())
        if (tableExists(c, t.name)) tables.push_back(t.name);
    return tables;
}

std::string columnList(const std::vector<std::string>& columns, const std::string& prefix = "") {
    std::string s;
    for (size_t i = 0; i < columns.size(); ++i)
        s += (i ? ", " : "") + prefix + store::jet::quoteName(columns[i]);
    return s;
}

void createRecordTables(store::Connection& c) {
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_import_lauf (lauf INTEGER PRIMARY KEY, datum TEXT, datei "
        "TEXT, "
        "betriebe INTEGER, zurueckgenommen INTEGER DEFAULT 0)");
    c.execute(
        "CREATE TABLE IF NOT EXISTS tolma_import_marke (lauf INTEGER, tabelle TEXT, hoechste "
        "INTEGER)");
    for (const auto& table : recordedTables(c))
        c.execute("CREATE TABLE IF NOT EXISTS " + store::jet::quoteName(shadowOf(table)) +
                  " (lauf INTEGER, art TEXT, rid INTEGER, " + columnList(columnsOf(c, table)) +
                  ")");
}

void dropRecordsOf(store::Connection& c, const std::string& condition,
                   const std::vector<store::Variant>& params) {
    for (const auto& table : recordedTables(c))
        if (tableExists(c, shadowOf(table)))
            c.execute(
                "DELETE FROM " + store::jet::quoteName(shadowOf(table)) + " WHERE " + condition,
                params);
    c.execute("DELETE FROM tolma_import_marke WHERE " + condition, params);
}

ImportRun runFrom(store::Statement& st) {
    ImportRun r;
    r.lauf = static_cast<long>(st.column(0).toInteger());
    r.datum = st.column(1).toString();
    r.datei = st.column(2).toString();
    r.betriebe = static_cast<long>(st.column(3).toInteger());
    r.zurueckgenommen = st.column(4).toInteger() != 0;
    return r;
}

void takeBack(store::Connection& c, long lauf) {
    auto marks = c.prepare("SELECT tabelle, hoechste FROM tolma_import_marke WHERE lauf = ?1");
    marks->bind(1, store::Variant(static_cast<long long>(lauf)));
    std::vector<std::pair<std::string, long long>> list;
    while (marks->step())
        list.emplace_back(marks->column(0).toString(), marks->column(1).toInteger());
    for (const auto& [table, mark] : list) {
        const std::string shadow = store::jet::quoteName(shadowOf(table)),
                          t = "main." + store::jet::quoteName(table);
        const std::vector<store::Variant> params{store::Variant(static_cast<long long>(lauf)),
                                                 store::Variant(mark)};
        // What the run inserted goes.
        c.execute("DELETE FROM " + t + " WHERE rowid > ?2 OR rowid IN (SELECT rid FROM " + shadow +
                      " WHERE lauf = ?1 AND art = 'I')",
                  params);
        // Every row it deleted or changed comes back as it was before its first change.
        const std::string cols = columnList(columnsOf(c, table));
        c.execute("INSERT OR REPLACE INTO " + t + " (rowid, " + cols + ") SELECT s.rid, " +
                      columnList(columnsOf(c, table), "s.") + " FROM " + shadow +
                      " s JOIN (SELECT min(rowid) AS erste FROM " + shadow +
                      " WHERE lauf = ?1 GROUP BY rid) f ON s.rowid = f.erste WHERE s.art IN ('D', "
                      "'U') AND s.rid <= ?2",
                  params);
    }
    dropRecordsOf(c, "lauf = ?1", {store::Variant(static_cast<long long>(lauf))});
    c.execute("UPDATE tolma_import_lauf SET zurueckgenommen = 1 WHERE lauf = ?1",
              {store::Variant(static_cast<long long>(lauf))});
}

}  // namespace

void ImportJournal::start(store::Connection& c, const std::string& file, const std::string& when,
                          int keep) {
    createRecordTables(c);
    auto last = c.prepare("SELECT coalesce(max(lauf), 0) FROM tolma_import_lauf");
    last->step();
    lauf_ = static_cast<long>(last->column(0).toInteger()) + 1;
    // The records of older runs go; the runs stay listed only while their records are kept.
    const store::Variant oldest(static_cast<long long>(lauf_ - std::max(1, keep)));
    dropRecordsOf(c, "lauf <= ?1", {oldest});
    c.execute("DELETE FROM tolma_import_lauf WHERE lauf <= ?1", {oldest});
    c.execute("INSERT INTO tolma_import_lauf (lauf, datum, datei, betriebe) VALUES (?1, ?2, ?3, 0)",
              {store::Variant(static_cast<long long>(lauf_)), store::Variant(when),
               store::Variant(std::filesystem::absolute(file).lexically_normal().string())});
    marks_.clear();
    for (const auto& table : recordedTables(c)) {
        auto st =
            c.prepare("SELECT coalesce(max(rowid), 0) FROM main." + store::jet::quoteName(table));
        st->step();
        marks_.emplace_back(table, st->column(0).toInteger());
        c.execute("INSERT INTO tolma_import_marke VALUES (?1, ?2, ?3)",
                  {store::Variant(static_cast<long long>(lauf_)), store::Variant(table),
                   store::Variant(marks_.back().second)});
    }
}

void ImportJournal::attach(store::Connection& c) {
    if (!started()) return;
    if (!capture_) {
        std::vector<store::ChangeCapture::Target> targets;
        for (const auto& [table, mark] : marks_) targets.push_back({table, shadowOf(table), mark});
        capture_ = std::make_unique<store::ChangeCapture>(lauf_, std::move(targets));
    }
    capture_->attach(c);
}

void ImportJournal::recordAhead(store::Connection& c, const BlockKeys& keys) {
    if (!started() || keys.empty()) return;
    // The numbers go into tables of the connection's own, compared as the key columns compare.
    c.execute(
        "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_betrieb (nr TEXT COLLATE NOCASE, hist TEXT "
        "COLLATE NOCASE)");
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_nummer (nr TEXT COLLATE NOCASE)");
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_person (nr TEXT COLLATE NOCASE)");
    auto fill = [&](const char* table, const auto& values) {
        auto& add = c.cached(std::string("INSERT INTO temp.") + table + " VALUES (?1" +
                             (std::string_view(table) == "tolma_vorab_betrieb" ? ", ?2)" : ")"));
        for (const auto& v : values) {
            add.reset();
            if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::string>) {
                add.bind(1, store::Variant(v));
            } else {
                add.bind(1, store::Variant(v.first));
                add.bind(2, store::Variant(v.second));
            }
            add.step();
        }
    };
    fill("tolma_vorab_betrieb", keys.states);
    fill("tolma_vorab_nummer", keys.numbers);
    fill("tolma_vorab_person", keys.persons);
    // The key tables as the import removes by them; the keys drive, each table answers by its
    // index.
    struct Copied {
        const char* table;
        const char* keys;
        const char* number;
        const char* state;  // none: by number alone
    };
    static const Copied kCopied[] = {
        {"betrieb_adresse", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"betrieb", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"betrieb_meldgrundsonst", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"betrieb_taetigkeit", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"betrieb_erlaubnis", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"betrieb_handwerkskarte", "tolma_vorab_betrieb", "betr-nr", "betr-hist-nr"},
        {"beziehung_betrieb_person", "tolma_vorab_betrieb", "bez-betr-nr", "bez-betr-hist-nr"},
        {"person_erlaubnis", "tolma_vorab_nummer", "betr-nr", nullptr},
        {"person_handwerkskarte", "tolma_vorab_nummer", "betr-nr", nullptr},
        {"person", "tolma_vorab_person", "pers-nr", nullptr},
        {"person_staatsang", "tolma_vorab_person", "pers-nr", nullptr},
    };
    for (const auto& copied : kCopied) {
        const auto mark = std::find_if(marks_.begin(), marks_.end(),
                                       [&](const auto& m) { return m.first == copied.table; });
        const bool none =
            std::string_view(copied.keys) == "tolma_vorab_betrieb"  ? keys.states.empty()
            : std::string_view(copied.keys) == "tolma_vorab_nummer" ? keys.numbers.empty()
                                                                    : keys.persons.empty();
        if (mark == marks_.end() || none) continue;
        std::string sql = "INSERT INTO " + store::jet::quoteName(shadowOf(copied.table)) +
                          " SELECT ?1, 'D', t.rowid, t.* FROM temp." + copied.keys +
                          " k CROSS JOIN main." + store::jet::quoteName(copied.table) + " t ON t." +
                          store::jet::quoteName(copied.number) + " = k.nr";
        if (copied.state && keys.byState)
            sql += " AND t." + store::jet::quoteName(copied.state) + " = k.hist";
        // Rows above the mark are the run's own: taking back removes them in any case.
        sql += " WHERE t.rowid <= ?2";
        c.execute(sql,
                  {store::Variant(static_cast<long long>(lauf_)), store::Variant(mark->second)});
    }
    c.execute("DELETE FROM temp.tolma_vorab_betrieb");
    c.execute("DELETE FROM temp.tolma_vorab_nummer");
    c.execute("DELETE FROM temp.tolma_vorab_person");
}

void ImportJournal::count(store::Connection& c, long businesses) {
    if (!started()) return;
    c.execute("UPDATE tolma_import_lauf SET betriebe = ?2 WHERE lauf = ?1",
              {store::Variant(static_cast<long long>(lauf_)),
               store::Variant(static_cast<long long>(businesses))});
}

void ImportJournal::detach(store::Connection& c) noexcept {
    if (capture_) capture_->detach(c);
}

ImportJournal::ImportJournal() = default;
ImportJournal::~ImportJournal() = default;

std::vector<ImportRun> importRuns(store::Connection& c) {
    std::vector<ImportRun> runs;
    if (!tableExists(c, "tolma_import_lauf")) return runs;
    auto st = c.prepare(
        "SELECT lauf, datum, datei, betriebe, zurueckgenommen FROM tolma_import_lauf ORDER BY "
        "lauf");
    while (st->step()) runs.push_back(runFrom(*st));
    return runs;
}

std::vector<ImportRun> takeBackImports(store::Connection& c, std::optional<long> from) {
    std::vector<ImportRun> open;
    for (const auto& r : importRuns(c))
        if (!r.zurueckgenommen) open.push_back(r);
    if (open.empty()) return {};
    const long first = from ? *from : open.back().lauf;
    std::vector<ImportRun> taken;
    for (auto it = open.rbegin(); it != open.rend() && it->lauf >= first; ++it)
        taken.push_back(*it);
    if (taken.empty() || taken.back().lauf != first)
        return {};  // no such run, or taken back already
    c.execute("BEGIN IMMEDIATE");
    try {
        for (const auto& r : taken) takeBack(c, r.lauf);
        c.execute("COMMIT");
    } catch (...) {
        c.execute("ROLLBACK");
        throw;
    }
    for (auto& r : taken) r.zurueckgenommen = true;
    return taken;
}

}  // namespace tolma::transfer

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/globals.h"
#include "search/search_index.h"

namespace tolma::transfer {

std::string describeRun(const ImportRun& run) {
    return "Lauf " + std::to_string(run.lauf) + " vom " + run.datum + ": " +
           std::filesystem::path(run.datei).filename().string() + ", " +
           std::to_string(run.betriebe) + (run.betriebe == 1 ? " Betrieb" : " Betriebe");
}

TakeBackResult Import_zuruecknehmen(core::Globals& g, std::optional<long> from) {
    const char* title = "Import zurücknehmen";
    TakeBackResult result;
    try {
        store::Connection& c = *g.db_daten.connection();
        std::vector<ImportRun> open;
        for (const auto& r : importRuns(c))
            if (!r.zurueckgenommen) open.push_back(r);
        // Without a run named, the newest one that is not taken back yet.
        if (!from && !open.empty()) from = open.back().lauf;
        std::erase_if(open, [&](const ImportRun& r) { return r.lauf < *from; });
        if (open.empty() || (from && open.front().lauf != *from)) {
            core::showMessage(g, "Es gibt keinen Importlauf, der zurückgenommen werden kann.",
                              core::msg::vbInformation, title);
            return result;
        }
        std::string names;
        for (auto it = open.rbegin(); it != open.rend(); ++it) names += describeRun(*it) + "\n";
        if (core::showMessage(
                g,
                "Der Datenbestand wird auf den Stand vor diesen Importläufen zurückgesetzt:\n" +
                    names + "Soll der Vorgang gestartet werden?",
                core::msg::vbQuestionYesNo, title) != core::msg::vbYes) {
            result.outcome = TakeBackOutcome::Refused;
            return result;
        }
        result.runs = takeBackImports(c, open.front().lauf);
        result.outcome = TakeBackOutcome::Done;
        if (search::hasIndex(c)) search::buildIndex(c);  // the index follows the restored store
        core::DB_Load(g);  // lists and record view read the restored rows
        core::showMessage(g, "Die Importläufe wurden zurückgenommen:\n" + names,
                          core::msg::vbInformation, title);
    } catch (const std::exception& e) {
        core::logTrapped(g, "Import_zuruecknehmen", e);
        core::showMessage(
            g, "Der Import konnte nicht zurückgenommen werden; der Datenbestand ist unverändert.",
            core::msg::vbExclamation, title);
        result.outcome = TakeBackOutcome::Failed;
    }
    return result;
}

}  // namespace tolma::transfer
