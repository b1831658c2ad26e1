#include "transfer/import_journal.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "model/relations.h"
#include "model/schema.h"
#include "search/search_index.h"
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

void ImportJournal::start(store::Connection& c, const std::string& when, int keep) {
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
               store::Variant(std::filesystem::absolute(file_).lexically_normal().string())});
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

namespace {

// The tables as the import removes by the numbers of a block: by business state, by business
// number (the permits and craft cards of persons), by person.
enum class KeyKind { State, Number, Person };
struct Removed {
    std::string table;
    KeyKind kind;
    std::string_view number;
    std::string_view state;  // by number alone without one, or where the data are not by state
};

Removed removedOf(const model::Relation& r) {
    const model::KeyColumns& k = r.keys;
    if (!k.state.empty()) return {std::string(r.table), KeyKind::State, k.number, k.state};
    if (!k.number.empty()) return {std::string(r.table), KeyKind::Number, k.number, {}};
    return {std::string(r.table), KeyKind::Person, k.person, {}};
}

const char* keyTable(KeyKind kind) {
    switch (kind) {
        case KeyKind::State:
            return "temp.tolma_vorab_betrieb";
        case KeyKind::Number:
            return "temp.tolma_vorab_nummer";
        case KeyKind::Person:
            break;
    }
    return "temp.tolma_vorab_person";
}

bool noKeys(const BlockKeys& keys, KeyKind kind) {
    switch (kind) {
        case KeyKind::State:
            return keys.states.empty();
        case KeyKind::Number:
            return keys.numbers.empty();
        case KeyKind::Person:
            break;
    }
    return keys.persons.empty();
}

// The numbers into tables of the connection's own, compared as the key columns compare.
void fillKeys(store::Connection& c, const BlockKeys& keys) {
    c.execute(
        "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_betrieb (nr TEXT COLLATE NOCASE, hist TEXT "
        "COLLATE NOCASE)");
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_nummer (nr TEXT COLLATE NOCASE)");
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_person (nr TEXT COLLATE NOCASE)");
    for (const KeyKind kind : {KeyKind::State, KeyKind::Number, KeyKind::Person})
        c.execute(std::string("DELETE FROM ") + keyTable(kind));
    auto& state = c.cached("INSERT INTO temp.tolma_vorab_betrieb VALUES (?1, ?2)");
    for (const auto& [nr, hist] : keys.states) {
        state.reset();
        state.bind(1, store::Variant(nr));
        state.bind(2, store::Variant(hist));
        state.step();
    }
    auto fill = [&](KeyKind kind, const std::vector<std::string>& values) {
        auto& add = c.cached(std::string("INSERT INTO ") + keyTable(kind) + " VALUES (?1)");
        for (const auto& v : values) {
            add.reset();
            add.bind(1, store::Variant(v));
            add.step();
        }
    };
    fill(KeyKind::Number, keys.numbers);
    fill(KeyKind::Person, keys.persons);
}

// The condition that a row of `alias` belongs to one of the numbers in the key table.
std::string belongs(const Removed& r, bool byState, const std::string& alias) {
    std::string sql = "k.nr = " + alias + "." + store::jet::quoteName(r.number);
    if (!r.state.empty() && byState)
        sql += " AND k.hist = " + alias + "." + store::jet::quoteName(r.state);
    return sql;
}

}  // namespace

void ImportJournal::removeAhead(store::Connection& c, const BlockKeys& keys) {
    const auto& order = model::removalOrder();
    blockStarts_.assign(order.size(), -1);
    if (!started() || keys.empty()) return;
    fillKeys(c, keys);
    for (size_t i = 0; i < order.size(); ++i) {
        const Removed r = removedOf(*order[i]);
        if (noKeys(keys, r.kind) || !recorded(r.table)) continue;
        const std::string shadow = store::jet::quoteName(shadowOf(r.table));
        auto last = c.prepare("SELECT coalesce(max(rowid), 0) FROM " + shadow);
        last->step();
        blockStarts_[i] = last->column(0).toInteger();
        last.reset();
        // The keys drive, the table answers by its index; then the rows copied go, by row id.
        c.execute("INSERT INTO " + shadow + " SELECT ?1, 'D', t.rowid, t.* FROM " +
                      keyTable(r.kind) + " k CROSS JOIN main." + store::jet::quoteName(r.table) +
                      " t ON " + belongs(r, keys.byState, "t"),
                  {store::Variant(static_cast<long long>(lauf_))});
        store::ChangeCapture::Quiet quiet(capture_.get());
        c.execute("DELETE FROM main." + store::jet::quoteName(r.table) +
                      " WHERE rowid IN (SELECT rid FROM " + shadow + " WHERE rowid > ?1)",
                  {store::Variant(blockStarts_[i])});
    }
}

void ImportJournal::putBack(store::Connection& c, const BlockKeys& left) {
    if (!started() || left.empty() || blockStarts_.empty()) return;
    fillKeys(c, left);
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_zurueck_neu (kopie INTEGER PRIMARY KEY)");
    const auto& order = model::removalOrder();
    for (size_t i = 0; i < order.size(); ++i) {
        const Removed r = removedOf(*order[i]);
        if (blockStarts_[i] < 0 || noKeys(left, r.kind)) continue;
        const std::string table = "main." + store::jet::quoteName(r.table),
                          shadow = store::jet::quoteName(shadowOf(r.table));
        const auto columns = columnsOf(c, r.table);
        const std::string copies =
            " FROM " + shadow + " s WHERE s.rowid > ?1 AND EXISTS (SELECT 1 FROM " +
            keyTable(r.kind) + " k WHERE " + belongs(r, left.byState, "s") + ")";
        const std::vector<store::Variant> from{store::Variant(blockStarts_[i])};
        // A row goes back under its old row id unless a row of the block took that id
        // meanwhile; those are noted first, before any row goes back. The others keep their
        // ids, and only then do the noted ones take new ids, after all of them: a new id given
        // earlier could be the old id of a row still to come. The record keeps the old id for
        // taking back.
        c.execute("DELETE FROM temp.tolma_zurueck_neu");
        c.execute("INSERT INTO temp.tolma_zurueck_neu SELECT s.rowid" + copies +
                      " AND EXISTS (SELECT 1 FROM " + table + " x WHERE x.rowid = s.rid)",
                  from);
        c.execute("INSERT INTO " + table + " (rowid, " + columnList(columns) + ") SELECT s.rid, " +
                      columnList(columns, "s.") + copies +
                      " AND s.rowid NOT IN (SELECT kopie FROM temp.tolma_zurueck_neu)",
                  from);
        c.execute("INSERT INTO " + table + " (" + columnList(columns) + ") SELECT " +
                  columnList(columns, "s.") + " FROM " + shadow +
                  " s WHERE s.rowid IN (SELECT kopie FROM temp.tolma_zurueck_neu) ORDER BY "
                  "s.rowid");
    }
}

bool ImportJournal::recorded(const std::string& table) const {
    return std::any_of(marks_.begin(), marks_.end(),
                       [&](const auto& m) { return m.first == table; });
}

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
        // The index stays behind until it is built anew, whatever ends the work after the
        // commit.
        search::markStale(c);
        for (const auto& r : taken) takeBack(c, r.lauf);
        c.execute("COMMIT");
    } catch (...) {
        c.rollbackOpen();
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
#include "text/text.h"

namespace tolma::transfer {
namespace {

std::string runTime(const core::Globals& g) {
    return text::localTime(g.clock(), "%d.%m.%Y %H:%M:%S");
}

}  // namespace

ImportJournal::ImportJournal(core::Globals& g) : g_(g) {}

ImportJournal::~ImportJournal() {
    detach();
}

void ImportJournal::runStarts(const std::string& file) {
    file_ = file;
}

void ImportJournal::blockBegins(store::Connection*, const ImportBlock&) {
    aheadThisBlock_ = false;
}

RemovedAhead* ImportJournal::blockKeys(store::Connection* c, const BlockKeys& keys) {
    if (!c || !g_.recordImportRuns) return nullptr;
    // The record of this run goes into the same transactions as its blocks.
    if (!started()) start(*c, runTime(g_), keptImportRuns(g_));
    attach(*c);
    // The rows the block replaces go at once, copied into the record: a few statements rather
    // than a dozen per business.
    aheadThisBlock_ = true;
    byState_ = keys.byState;
    states_.clear();
    numbers_.clear();
    persons_.clear();
    for (const auto& [nr, hist] : keys.states)
        states_.insert(text::lowerAscii(byState_ ? nr + '\n' + hist : nr));
    for (const auto& nr : keys.numbers) numbers_.insert(text::lowerAscii(nr));
    for (const auto& nr : keys.persons) persons_.insert(text::lowerAscii(nr));
    removeAhead(*c, keys);
    return this;
}

bool ImportJournal::takeState(const std::string& betrNr, const std::string& betrHistNr) {
    return states_.erase(text::lowerAscii(byState_ ? betrNr + '\n' + betrHistNr : betrNr)) > 0;
}

bool ImportJournal::takeNumber(const std::string& betrNr) {
    return numbers_.erase(text::lowerAscii(betrNr)) > 0;
}

bool ImportJournal::takePerson(const std::string& persNr) {
    return persons_.erase(text::lowerAscii(persNr)) > 0;
}

void ImportJournal::blockRead(store::Connection* c, const ImportBlock&) {
    // What no element came to remove, after ESC or an element given up, comes back.
    if (c && aheadThisBlock_ && !(states_.empty() && numbers_.empty() && persons_.empty()))
        putBack(*c, keysLeft());
}

BlockKeys ImportJournal::keysLeft() const {
    BlockKeys keys;
    keys.byState = byState_;
    for (const auto& key : states_) {
        const size_t cut = key.find('\n');
        keys.states.emplace_back(key.substr(0, cut),
                                 cut == std::string::npos ? "" : key.substr(cut + 1));
    }
    keys.numbers.assign(numbers_.begin(), numbers_.end());
    keys.persons.assign(persons_.begin(), persons_.end());
    return keys;
}

void ImportJournal::blockCommitting(store::Connection* c, const ImportBlock& block) {
    if (!c || !started()) return;
    c->execute("UPDATE tolma_import_lauf SET betriebe = ?2 WHERE lauf = ?1",
               {store::Variant(static_cast<long long>(lauf_)),
                store::Variant(static_cast<long long>(block.records))});
}

void ImportJournal::runEnds(store::Connection*) {
    detach();
}

void ImportJournal::runCancelled(store::Connection*) {
    detach();
}

void ImportJournal::runFailed() {
    detach();
}

void ImportJournal::detach() noexcept {
    if (capture_ && g_.stores.db_daten.isSet()) capture_->detach(*g_.stores.db_daten.connection());
}

int keptImportRuns(core::Globals& g) {
    try {
        if (auto v = g.stores.db_org.lookup(
                "SELECT wert FROM tolma_optionen WHERE name = 'importlaeufe_behalten'", "wert"))
            if (const long n = std::atol(v->toString().c_str()); n > 0) return static_cast<int>(n);
    } catch (const std::exception&) {
        // a settings store without the table: the default
    }
    return kDefaultKeptRuns;
}

void setKeptImportRuns(core::Globals& g, int runs) {
    const auto& c = g.stores.db_org.connection();
    c->execute("CREATE TABLE IF NOT EXISTS tolma_optionen (name TEXT PRIMARY KEY, wert TEXT)");
    c->execute("INSERT OR REPLACE INTO tolma_optionen VALUES ('importlaeufe_behalten', ?1)",
               {store::Variant(std::to_string(std::max(1, runs)))});
}

std::string describeRun(const ImportRun& run) {
    return "Lauf " + std::to_string(run.lauf) + " vom " + run.datum + ": " +
           std::filesystem::path(run.datei).filename().string() + ", " +
           std::to_string(run.betriebe) + (run.betriebe == 1 ? " Betrieb" : " Betriebe");
}

TakeBackResult Import_zuruecknehmen(core::Globals& g, std::optional<long> from) {
    const char* title = "Import zurücknehmen";
    TakeBackResult result;
    std::string names;
    try {
        store::Connection& c = *g.stores.db_daten.connection();
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
        for (auto it = open.rbegin(); it != open.rend(); ++it) names += describeRun(*it) + "\n";
        if (core::showMessage(
                g,
                "Der Datenbestand wird auf den Stand vor diesen Importläufen zurückgesetzt:\n" +
                    names + "Soll der Vorgang gestartet werden?",
                // "Nein" by default: a second Enter must not confirm what a first one began.
                core::msg::vbQuestionYesNo | core::msg::vbDefaultButton2,
                title) != core::msg::vbYes) {
            result.outcome = TakeBackOutcome::Refused;
            return result;
        }
        result.runs = takeBackImports(c, open.front().lauf);
    } catch (const std::exception& e) {
        // A connection that met a full disk stays in its error until it is opened anew; letting
        // go of it also frees what its journal held.
        core::DB_Schliessen(g);
        core::DB_Binden_loesen(g);
        core::logTrapped(g, "Import_zuruecknehmen", e);
        core::DB_Load(g);
        core::showMessage(
            g, "Der Import konnte nicht zurückgenommen werden; der Datenbestand ist unverändert.",
            core::msg::vbExclamation, title);
        result.outcome = TakeBackOutcome::Failed;
        return result;
    }
    // From here on the runs are taken back, whatever fails after; the message says so.
    result.outcome = TakeBackOutcome::Done;
    std::string after;
    try {
        store::Connection& c = *g.stores.db_daten.connection();
        if (search::indexKept(c)) search::buildIndex(c);
    } catch (const std::exception& e) {
        core::logTrapped(g, "Suchindex", e);
        after = "Der Suchindex wird bei der nächsten Suche neu aufgebaut.";
    }
    try {
        core::DB_Load(g);  // lists and record view read the restored rows
    } catch (const std::exception& e) {
        core::logTrapped(g, "Import_zuruecknehmen", e);
    }
    if (!g.stores.db_daten.isSet())
        after += std::string(after.empty() ? "" : "\n") +
                 "Die Datenbank konnte danach nicht wieder geöffnet werden.";
    core::showMessage(g, "Die Importläufe wurden zurückgenommen:\n" + names + after,
                      after.empty() ? core::msg::vbInformation : core::msg::vbExclamation, title);
    return result;
}

}  // namespace tolma::transfer
