#include "transfer/journal_listener.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "core/globals.h"
#include "model/relations.h"
#include "store/change_capture.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"
#include "transfer/journal.h"
#include "transfer/journal_tables.h"

namespace tolma::transfer {
using namespace journal;

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
        for (const auto& [table, mark] : marks_)
            targets.push_back({table, recordTableOf(table), mark});
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

// Runs a statement no one needs an answer from: a server takes it behind the rows and
// statements sent before, while the program goes on with the block.
void send(store::Connection& c, const std::string& sql, const std::vector<long long>& values = {}) {
    store::Statement st(c, sql);
    for (size_t i = 0; i < values.size(); ++i) st.bindInteger(static_cast<int>(i + 1), values[i]);
    st.sendOnce();
}

// The numbers into tables of the connection's own, compared as the key columns compare.
void fillKeys(store::Connection& c, const BlockKeys& keys) {
    send(c,
         "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_betrieb (nr TEXT COLLATE NOCASE, hist TEXT "
         "COLLATE NOCASE)");
    send(c, "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_nummer (nr TEXT COLLATE NOCASE)");
    send(c, "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_person (nr TEXT COLLATE NOCASE)");
    for (const KeyKind kind : {KeyKind::State, KeyKind::Number, KeyKind::Person})
        send(c, std::string("DELETE FROM ") + keyTable(kind));
    // Thousands of rows a block: on a server they go together, through COPY.
    auto& state = c.cached("INSERT INTO temp.tolma_vorab_betrieb VALUES (?1, ?2)");
    state.copyInto("tolma_vorab_betrieb", {"nr", "hist"});
    for (const auto& [nr, hist] : keys.states) {
        state.reset();
        state.bind(1, store::Variant(nr));
        state.bind(2, store::Variant(hist));
        state.send();
    }
    auto fill = [&](KeyKind kind, const std::vector<std::string>& values) {
        auto& add = c.cached(std::string("INSERT INTO ") + keyTable(kind) + " VALUES (?1)");
        add.copyInto(std::string(keyTable(kind)).substr(std::strlen("temp.")), {"nr"});
        for (const auto& v : values) {
            add.reset();
            add.bind(1, store::Variant(v));
            add.send();
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

// The rows of `r`'s table, as t, that belong to a number of its key table, as k: the keys
// drive, the table answers each by its index. A server, knowing nothing of the key table,
// joins by reading the whole table once for each block, which grows with the store; the
// subquery, kept whole by OFFSET 0, is asked once for each key.
std::string keyedRows(store::Connection& c, const Removed& r, bool byState) {
    const std::string table = "main." + store::jet::quoteName(r.table);
    if (!c.isServer())
        return std::string(keyTable(r.kind)) + " k CROSS JOIN " + table + " t ON " +
               belongs(r, byState, "t");
    return std::string(keyTable(r.kind)) + " k CROSS JOIN LATERAL (SELECT t.rowid, " +
           c.columnList(r.table, "t.") + " FROM " + table + " t WHERE " + belongs(r, byState, "t") +
           " OFFSET 0) t ON true";
}

// The last row of a table's record before the block began; the table's number is ?1.
constexpr const char* kBlockStart =
    "(SELECT kopie FROM temp.tolma_vorab_anfang WHERE tabelle = ?1)";

}  // namespace

void ImportJournal::removeAhead(store::Connection& c, const BlockKeys& keys) {
    const auto& order = model::removalOrder();
    removedAhead_.assign(order.size(), false);
    if (!started() || keys.empty()) return;
    fillKeys(c, keys);
    // Where each record stood before the block is kept beside the keys, not asked for: the
    // block goes on without waiting for the server, and only a put-back reads it.
    send(c, "CREATE TEMP TABLE IF NOT EXISTS tolma_vorab_anfang (tabelle INTEGER, kopie INTEGER)");
    send(c, "DELETE FROM temp.tolma_vorab_anfang");
    for (size_t i = 0; i < order.size(); ++i) {
        const Removed r = removedOf(*order[i]);
        if (noKeys(keys, r.kind) || !recorded(r.table)) continue;
        removedAhead_[i] = true;
        const std::string shadow = store::jet::quoteName(recordTableOf(r.table));
        const long long table = static_cast<long long>(i);
        send(
            c,
            "INSERT INTO temp.tolma_vorab_anfang SELECT ?1, coalesce(max(rowid), 0) FROM " + shadow,
            {table});
        // The keys drive, the table answers by its index; then the rows copied go, by row id.
        send(c,
             "INSERT INTO " + shadow + " (lauf, art, rid, " + c.columnList(r.table) +
                 ") SELECT ?1, 'D', t.rowid, " + c.columnList(r.table, "t.") + " FROM " +
                 keyedRows(c, r, keys.byState),
             {lauf_});
        store::ChangeCapture::Quiet quiet(capture_.get());
        send(c,
             "DELETE FROM main." + store::jet::quoteName(r.table) + " WHERE " +
                 c.rowIdAmong("SELECT rid FROM " + shadow + " WHERE rowid > " + kBlockStart),
             {table});
    }
}

void ImportJournal::recordUnchanged(store::Connection& c, const BlockKeys& keys) {
    if (!started() || keys.unchanged.empty()) return;
    BlockKeys states;
    states.byState = keys.byState;
    states.states = keys.unchanged;
    fillKeys(c, states);
    // Written anew, these rows would name this run as the one they came from: a mark without
    // the row's values says so at the cost of a row id, read from the key's index alone. It
    // holds nothing to put back and nothing of a person.
    for (const model::Relation* r : model::removalOrder()) {
        const Removed removed = removedOf(*r);
        if ((r->table != "betrieb" && r->table != "beziehung_betrieb_person") ||
            removed.kind != KeyKind::State || !recorded(removed.table))
            continue;
        c.execute("INSERT INTO " + store::jet::quoteName(recordTableOf(removed.table)) +
                      " (lauf, art, rid) SELECT ?1, '" + kLeftAsItStood + "', t.rowid FROM " +
                      keyedRows(c, removed, keys.byState),
                  {store::Variant(static_cast<long long>(lauf_))});
    }
}

void ImportJournal::putBack(store::Connection& c, const BlockKeys& left) {
    if (!started() || left.empty() || removedAhead_.empty()) return;
    fillKeys(c, left);
    c.execute("CREATE TEMP TABLE IF NOT EXISTS tolma_rueck_neu (kopie INTEGER PRIMARY KEY)");
    const auto& order = model::removalOrder();
    for (size_t i = 0; i < order.size(); ++i) {
        const Removed r = removedOf(*order[i]);
        if (!removedAhead_[i] || noKeys(left, r.kind)) continue;
        const std::string table = "main." + store::jet::quoteName(r.table),
                          shadow = store::jet::quoteName(recordTableOf(r.table));
        const auto columns = columnsOf(c, r.table);
        const std::string copies = " FROM " + shadow + " s WHERE s.rowid > " + kBlockStart +
                                   " AND EXISTS (SELECT 1 FROM " + keyTable(r.kind) + " k WHERE " +
                                   belongs(r, left.byState, "s") + ")";
        const std::vector<store::Variant> from{store::Variant(static_cast<long long>(i))};
        // A row goes back under its old row id unless a row of the block took that id
        // meanwhile; those are noted first, before any row goes back. The others keep their
        // ids, and only then do the noted ones take new ids, after all of them: a new id given
        // earlier could be the old id of a row still to come. The record keeps the old id for
        // taking back.
        c.execute("DELETE FROM temp.tolma_rueck_neu");
        c.execute("INSERT INTO temp.tolma_rueck_neu SELECT s.rowid" + copies +
                      " AND EXISTS (SELECT 1 FROM " + table + " x WHERE x.rowid = s.rid)",
                  from);
        c.execute("INSERT INTO " + table + " (rowid, " + columnList(columns) + ") SELECT s.rid, " +
                      columnList(columns, "s.") + copies +
                      " AND s.rowid NOT IN (SELECT kopie FROM temp.tolma_rueck_neu)",
                  from);
        c.execute("INSERT INTO " + table + " (" + columnList(columns) + ") SELECT " +
                  columnList(columns, "s.") + " FROM " + shadow +
                  " s WHERE s.rowid IN (SELECT kopie FROM temp.tolma_rueck_neu) ORDER BY "
                  "s.rowid");
    }
}

bool ImportJournal::recorded(const std::string& table) const {
    return std::any_of(marks_.begin(), marks_.end(),
                       [&](const auto& m) { return m.first == table; });
}

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
    recordUnchanged(*c, keys);
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
    send(*c, "UPDATE tolma_import_lauf SET betriebe = ?2 WHERE lauf = ?1", {lauf_, block.records});
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

}  // namespace tolma::transfer
