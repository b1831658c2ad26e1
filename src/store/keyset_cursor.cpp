#include "store/keyset_cursor.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <unordered_set>

#include "store/dao_error.h"
#include "store/server_session.h"
#include "text/text.h"

namespace tolma::store {
namespace {

// The loops of SQLite's plan for a statement and what it does beside them, outermost first;
// none where it cannot be planned alone (an ORDER BY by an alias: the keys are then read with
// the select list anyway).
std::vector<std::string> planOf(Connection& conn, const std::string& sql) {
    std::vector<std::string> lines;
    try {
        auto plan = conn.prepare("EXPLAIN QUERY PLAN " + sql);
        while (plan->step())
            if (plan->column(1).toInteger() == 0)  // not a loop inside another
                lines.push_back(plan->column(3).toString());
    } catch (const DaoError&) {
        lines.clear();
    }
    return lines;
}

// Whether SQLite reads a query by a whole table or index rather than by looking up a part of
// it: such a query gives as many rows as the store holds, or a few from a small table.
bool scansWholeTable(const std::vector<std::string>& plan) {
    return !plan.empty() && plan.front().rfind("SCAN", 0) == 0;
}

// Whether SQLite's plan gives the rows in their order as it reads them: no sort of the whole
// result ahead of the first row, and every table after the first reached through an index.
bool streams(const std::vector<std::string>& plan) {
    int loops = 0;
    for (const auto& detail : plan) {
        if (detail == "USE TEMP B-TREE FOR ORDER BY") return false;
        const bool scan = detail.rfind("SCAN", 0) == 0;
        if (scan || detail.rfind("SEARCH", 0) == 0)
            if (loops++ > 0 && scan) return false;
    }
    return loops > 0;
}

// Whether the store keeps a write-ahead log: then a second connection reads the store as it
// stood when it began, while this one writes on unhindered.
bool writesAhead(Connection& conn) {
    auto mode = conn.prepare("PRAGMA journal_mode");
    return mode->step() && text::lower(mode->column(0).toString()) == "wal";
}

// An order clause the other way round: each term's direction turned.
std::string reversed(const std::string& order) {
    std::string out, term;
    auto turn = [&] {
        std::string t(text::trimmed(term, " "));
        const std::string lower = text::lower(t);
        auto endsWith = [&](const std::string& end) {
            return lower.size() >= end.size() &&
                   lower.compare(lower.size() - end.size(), end.size(), end) == 0;
        };
        if (endsWith(" desc"))
            t.resize(t.size() - 5);
        else if (endsWith(" asc"))
            t.replace(t.size() - 4, 4, " DESC");
        else
            t += " DESC";
        out += (out.empty() ? "" : ", ") + t;
        term.clear();
    };
    int depth = 0;
    char quote = 0;
    for (const char ch : order) {
        if (quote) {
            if (ch == quote) quote = 0;
        } else if (ch == '\'' || ch == '"') {
            quote = ch;
        } else if (ch == '[') {
            quote = ']';
        } else if (ch == '(') {
            ++depth;
        } else if (ch == ')') {
            --depth;
        } else if (ch == ',' && depth == 0) {
            turn();
            continue;
        }
        term += ch;
    }
    turn();
    return out;
}

bool mentions(const std::string& condition, const std::string& qualifier) {
    return text::lower(condition).find(text::lower(qualifier) + ".") != std::string::npos;
}

}  // namespace

// Under this key a server's connection keeps the reading session of its last long list.
constexpr const char* kSpareReader = "keyset:reader";

struct QueryPlan {
    std::shared_ptr<const jet::Shape> shape;  // kept alive, so that its address stays its own
    int stride = 1;
    std::string selectList, fromClause, whereClause, orderClause, keyColumns;
    std::vector<std::string> keyQualifiers;
    std::vector<jet::TableRef> tables;
    std::string fetchSql, rowsSql;
    Statement* fetch = nullptr;
    Statement* rows = nullptr;
    // Whether the query may give many rows: then its keys are read alone, since reading the
    // first rows whole with them would read every row whole to sort them.
    bool manyRows = false;
    // The keyset's statement in a form that gives its rows in order as it reads them, so that
    // a long list is read in steps; empty: read whole.
    std::string streamSql;
    // The statement for all the keys behind the first screen: the same where reading on in its
    // order costs no more than a sort, the query as written (sorted at once) where the order
    // is German and the rows would be fetched all over the store one by one.
    std::string restSql;
};

// What the thread that reads a long list's keys hands over.
struct KeysetFill {
    std::mutex m;
    std::condition_variable cv;
    bool firstDone = false, done = false, failed = false;
    bool firstIsAll = false;  // the list ended within its first screen
    std::atomic<bool> cancel{false};
    std::vector<long long> first;
    std::vector<long long> more;  // read behind what was handed over, in the list's order
};

KeysetCursor::KeysetCursor(std::shared_ptr<Connection> connection, std::string source,
                           const jet::Prepared& query)
    : IndexedCursor(std::move(connection), std::move(source)) {
    params = query.values;
    numericParams = query.shape->numeric;
    const jet::SelectParts& parts = query.shape->parts;
    stride = static_cast<int>(parts.tables.size());
    auto& memo =
        conn->memo("plan:" + std::to_string(reinterpret_cast<std::uintptr_t>(query.shape.get())));
    if (!memo || std::static_pointer_cast<const QueryPlan>(memo)->shape != query.shape) {
        auto made = std::make_shared<QueryPlan>();
        made->shape = query.shape;
        made->stride = stride;
        made->selectList = parts.selectList;
        made->fromClause = parts.from;
        made->whereClause = parts.where;
        made->orderClause = parts.orderBy;
        made->tables = parts.tables;
        for (int i = 0; i < stride; ++i) {
            made->keyQualifiers.push_back(parts.tables[i].qualifier + ".rowid");
            made->keyColumns += (i ? ", " : "") + made->keyQualifiers.back();
        }
        plan = made;
        made->fetchSql =
            "SELECT " + made->selectList + " FROM " + made->fromClause + " WHERE " + keyCondition();
        made->fetch = &conn->cached(made->fetchSql);
        made->rowsSql = "SELECT " + made->keyColumns + ", " + made->selectList + " FROM " +
                        made->fromClause +
                        (made->whereClause.empty() ? "" : " WHERE " + made->whereClause) +
                        orderBy() + " LIMIT " + std::to_string(kPrefetchRows + 1);
        made->rows = &conn->cached(made->rowsSql);
        // The server's plans are its own; its rows are read by key, a screen at a time.
        const auto asWritten =
            conn->isServer() ? std::vector<std::string>() : planOf(*conn, keysetSql());
        made->manyRows = conn->isServer() || scansWholeTable(asWritten);
        // Asked outside a transaction only: a statement the server refuses would end it.
        if (conn->isServer() && !conn->inTransaction() &&
            expectedRows(keysetSql()) > kFirstScreen) {
            // Through a cursor the server plans for the first rows: where an index gives the
            // order, the first screen comes before the rest is read.
            made->streamSql = keysetSql();
            made->restSql = made->streamSql;
        } else if (made->manyRows && !conn->isServer() && writesAhead(*conn)) {
            made->streamSql = streams(asWritten) ? keysetSql() : reorderedSql(parts);
            made->restSql = made->streamSql;
            if (const LeadingTerm lead = leadingTerm(); lead.german && lead.parenthesised) {
                // Sorted at once, each table read in its own order: "+" keeps the German index
                // from the order, which would fetch the rows one by one all over the store.
                std::string sorted = made->orderClause;
                sorted.insert(1, "+");
                made->restSql = keysetSql(sorted);
            }
        }
        memo = made;
    }
    plan = std::static_pointer_cast<const QueryPlan>(memo);
    fetchStmt = plan->fetch;
    if (stride == 1) {
        updatable = true;
        baseTable = bracket(parts.tables[0].name);
    }
    describe(*fetchStmt, plan->fetchSql, parts.tables,
             stride == 1 ? parts.tables[0].name : std::string());
    readKeys();
    origCount = static_cast<long>(keys.size() / stride);
    moveToIndex(origCount > 0 ? 0 : -1);
}

const std::vector<jet::TableRef>& KeysetCursor::tables() const {
    return plan->tables;
}

const std::string& KeysetCursor::orderClause() const {
    return plan->orderClause;
}

void KeysetCursor::readKeys() {
    // Most queries give a few rows: read them whole with their keys in one statement, and
    // fall back to a keyset of their keys alone when there are more. A query over a whole
    // table (a list) reads its keys alone at once, or its first screen of them where its
    // plan gives them in order.
    if (!plan->manyRows && readFirstRows()) return;
    keysState = storeState();
    if (!plan->streamSql.empty() && !conn->inTransaction()) {
        // Read on a connection of its own, in one snapshot: the keys are the store's as it stood
        // at opening, however this connection writes meanwhile.
        try {
            reader = spareReader();
            std::shared_ptr<Statement> first = reader->prepare(plan->streamSql);
            bindParams(*first);
            // On a server the first screen is one page of a cursor, the rest a few large ones.
            first->readInPages(static_cast<int>(kFirstScreen));
            std::shared_ptr<Statement> rest;
            if (plan->restSql != plan->streamSql) {
                rest = reader->prepare(plan->restSql);
                bindParams(*rest);
            }
            if (!reader->beginReading()) reader->execute("BEGIN");
            fill = std::make_shared<KeysetFill>();
            // The statements go over to the thread whole: the last one to let go of a server's
            // statement closes its cursor on the session, which must never be this thread while
            // the other one still talks to the server.
            worker = std::thread([f = fill, c = reader, first = std::move(first),
                                  rest = std::move(rest), n = stride]() mutable {
                try {
                    std::vector<long long> got;
                    long rows = 0;
                    while (rows < kFirstScreen && first->step()) {
                        for (int i = 0; i < n; ++i) got.push_back(first->column(i).toInteger());
                        ++rows;
                    }
                    const bool whole = rows < kFirstScreen;
                    {
                        std::lock_guard lock(f->m);
                        f->first = got;
                        f->firstIsAll = whole;
                        f->firstDone = true;
                    }
                    f->cv.notify_all();
                    got.clear();
                    if (!whole) {
                        first->readInPages(kRestPage);  // the cursor's next pages
                        Statement* from = first.get();
                        // The sorted rest begins with the first screen again, in the same order.
                        long skip = 0;
                        if (rest) {
                            first->reset();
                            from = rest.get();
                            skip = rows;
                        }
                        // Handed over in pieces, each as long as all before it, so that a
                        // search goes on with the beginning of the list while its end is read.
                        size_t handed = static_cast<size_t>(rows * n);
                        while (!f->cancel && from->step()) {
                            if (skip > 0) {
                                --skip;
                                continue;
                            }
                            for (int i = 0; i < n; ++i) got.push_back(from->column(i).toInteger());
                            if (got.size() < handed) continue;
                            {
                                std::lock_guard lock(f->m);
                                f->more.insert(f->more.end(), got.begin(), got.end());
                            }
                            f->cv.notify_all();
                            handed += got.size();
                            got.clear();
                        }
                    }
                    first.reset();
                    rest.reset();
                    c->execute("COMMIT");
                    std::lock_guard lock(f->m);
                    f->more.insert(f->more.end(), got.begin(), got.end());
                    f->failed = f->cancel;
                    f->done = true;
                } catch (const std::exception&) {
                    std::lock_guard lock(f->m);
                    f->failed = f->firstDone = f->done = true;
                }
                f->cv.notify_all();
            });
            std::unique_lock lock(fill->m);
            fill->cv.wait(lock, [&] { return fill->firstDone; });
            if (!fill->failed) {
                keys = fill->first;
                filling = true;
                const bool all = fill->firstIsAll;
                lock.unlock();
                if (all) takeRest();  // the thread only ends its reading
                return;
            }
        } catch (const DaoError&) {
            // The store held by another: read the keys here, at once.
        }
        endFill();
        keys.clear();
    }
    readKeyset();
}

void KeysetCursor::endFill() {
    if (worker.joinable()) {
        fill->cancel = true;
        // A sort of a million rows ends at once; a server's cursor stops after its page.
        if (!reader->isServer()) sqlite3_interrupt(reader->handle());
        worker.join();
    }
    // A server's session that ended its reading serves the next list: a new one costs a
    // connection's set-up, about as long as reading the first screen.
    if (reader && reader->isServer() && !reader->inTransaction() && !reader->server()->isBroken()) {
        auto& spare = conn->memo(kSpareReader);
        if (!spare) spare = reader;
    }
    fill.reset();
    reader.reset();
    filling = false;
}

std::shared_ptr<Connection> KeysetCursor::spareReader() {
    auto& spare = conn->memo(kSpareReader);
    if (!spare) return Connection::openReader(conn->file());
    auto kept =
        std::const_pointer_cast<Connection>(std::static_pointer_cast<const Connection>(spare));
    spare.reset();
    if (kept->server()->isBroken()) return Connection::openReader(conn->file());
    return kept;
}

KeysetCursor::~KeysetCursor() {
    endFill();
}

bool KeysetCursor::takeRest(std::optional<std::chrono::milliseconds> wait) {
    if (!wait) {
        while (!takeMore(std::nullopt)) {
        }
        return true;
    }
    const auto until = std::chrono::steady_clock::now() + *wait;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            until - std::chrono::steady_clock::now());
        if (takeMore(std::max(left, std::chrono::milliseconds(0)))) return true;
        if (left.count() <= 0) return false;
    }
}

bool KeysetCursor::takeMore(std::optional<std::chrono::milliseconds> wait) {
    if (!filling) return true;
    std::vector<long long> more;
    bool done = false, failed = false;
    {
        std::unique_lock lock(fill->m);
        const auto ready = [&] { return fill->done || !fill->more.empty(); };
        if (wait)
            fill->cv.wait_for(lock, *wait, ready);
        else
            fill->cv.wait(lock, ready);
        more.swap(fill->more);
        done = fill->done;
        failed = fill->failed;
    }
    if (done) {
        worker.join();  // ended: nothing to interrupt
        endFill();
    }
    if (failed) {
        // The reading connection failed: the keys are read here, as they stand now.
        keys.clear();
        readKeyset();
    } else {
        keys.insert(keys.end(), more.begin(), more.end());
    }
    if (!more.empty() || done) {
        origCount = knownCount();
        positions.clear();
        keyIndexValid = false;
    }
    return done;
}

// The rows the server expects a statement to give, from its plan for the query's values; none
// where it cannot plan it alone.
long long KeysetCursor::expectedRows(const std::string& sql) {
    try {
        auto explain = conn->prepare("EXPLAIN " + sql);
        bindParams(*explain);
        if (!explain->step()) return 0;
        const std::string top = explain->column(0).toString();
        const size_t at = top.find(" rows=");
        return at == std::string::npos ? 0 : std::atoll(top.c_str() + at + 6);
    } catch (const DaoError&) {
        return 0;
    }
}

// The SQL of the keyset with its inner joins read from the table its order begins with, if
// its plan then streams; empty otherwise.
std::string KeysetCursor::reorderedSql(const jet::SelectParts& parts) const {
    const int lead = leadingTerm().table;
    if (lead < 0 || stride < 2 || parts.outerJoin || parts.derivedTable) return {};
    // Inner joins may be read in any order: their conditions join the others' WHERE, and each
    // table comes after one it is joined to, so that it is looked up by its index.
    std::vector<int> order{lead};
    std::vector<bool> placed(static_cast<size_t>(stride), false);
    placed[static_cast<size_t>(lead)] = true;
    while (order.size() < static_cast<size_t>(stride)) {
        int next = -1;
        for (int j = 0; j < stride && next < 0; ++j) {
            if (placed[static_cast<size_t>(j)]) continue;
            for (const auto& on : parts.joinConditions)
                if (mentions(on, parts.tables[static_cast<size_t>(j)].qualifier))
                    for (int k : order)
                        if (mentions(on, parts.tables[static_cast<size_t>(k)].qualifier)) next = j;
        }
        if (next < 0)
            for (int j = 0; j < stride && next < 0; ++j)
                if (!placed[static_cast<size_t>(j)]) next = j;
        placed[static_cast<size_t>(next)] = true;
        order.push_back(next);
    }
    std::string from, where;
    for (int j : order)
        from += (from.empty() ? "" : " CROSS JOIN ") + parts.tables[static_cast<size_t>(j)].source;
    for (const auto& on : parts.joinConditions)
        where += (where.empty() ? "(" : " AND (") + on + ")";
    if (!parts.where.empty()) where += (where.empty() ? "(" : " AND (") + parts.where + ")";
    const std::string reordered = "SELECT " + plan->keyColumns + " FROM " + from +
                                  (where.empty() ? "" : " WHERE " + where) + orderBy();
    return streams(planOf(*conn, reordered)) ? reordered : std::string();
}

bool KeysetCursor::readAhead(std::chrono::milliseconds budget) {
    return takeRest(budget);
}

long KeysetCursor::count() {
    readAll();
    return knownCount();
}

long KeysetCursor::reach(long rows) {
    readUntil(rows);
    return knownCount();
}

bool KeysetCursor::readFirstRows() {
    Statement& first = *plan->rows;
    first.reset();
    bindParams(first);
    std::vector<long long> firstKeys;
    while (first.step()) {
        for (int i = 0; i < stride; ++i) firstKeys.push_back(first.column(i).toInteger());
        std::vector<Variant> row;
        row.reserve(static_cast<size_t>(first.columnCount() - stride));
        for (int i = stride; i < first.columnCount(); ++i) row.push_back(first.column(i));
        prefetched.push_back(std::move(row));
    }
    first.reset();
    if (prefetched.size() <= kPrefetchRows) {
        keys = std::move(firstKeys);
        return true;
    }
    prefetched.clear();
    return false;
}

void KeysetCursor::readKeyset() {
    Statement* keyset = nullptr;
    std::unique_ptr<Statement> fallback;
    try {
        keyset = &conn->cached(keysetSql());
    } catch (const DaoError&) {
        // An ORDER BY that names a column of the select list by its alias needs the list.
        fallback = conn->prepare(
            "SELECT " + plan->keyColumns + ", " + plan->selectList + " FROM " + plan->fromClause +
            (plan->whereClause.empty() ? "" : " WHERE " + plan->whereClause) + orderBy());
        keyset = fallback.get();
    }
    bindParams(*keyset);
    while (keyset->step())
        for (int i = 0; i < stride; ++i) keys.push_back(keyset->column(i).toInteger());
    keyset->reset();
}

std::string KeysetCursor::keyCondition() const {
    std::string where;
    for (int i = 0; i < stride; ++i)
        where += (i ? " AND " : "") + plan->keyQualifiers[i] + " = ?" +
                 std::to_string(paramCount() + i + 1);
    return where;
}

// Without an order of its own, the order in which the rows were stored.
std::string KeysetCursor::orderBy() const {
    return orderBy(plan->orderClause);
}

std::string KeysetCursor::orderBy(const std::string& order) const {
    return " ORDER BY " + (order.empty() ? "" : order + ", ") + plan->keyColumns;
}

std::string KeysetCursor::keysetSql() const {
    return keysetSql(plan->orderClause);
}

std::string KeysetCursor::keysetSql(const std::string& order) const {
    const std::string& where = plan->whereClause;
    return "SELECT " + plan->keyColumns + " FROM " + plan->fromClause +
           (where.empty() ? "" : " WHERE " + where) + orderBy(order);
}

std::vector<Variant> KeysetCursor::rowAt(long p) {
    if (p < 0 || p >= reach(p + 1)) throwNoCurrentRecord();
    if (static_cast<size_t>(p) < prefetched.size()) return prefetched[static_cast<size_t>(p)];
    return fetchByKeys(&keys[static_cast<size_t>(p) * stride]);
}

std::vector<Variant> KeysetCursor::lastRow() {
    if (filling && !lastSql) {
        // The statement that reads the list in order, read backwards: it streams as well.
        const std::string& forward = plan->streamSql;
        const std::string order = orderBy();
        lastSql.emplace();
        // A server plans on its own (a statement it refuses ends a transaction): it reads on.
        if (!conn->isServer() && forward.size() > order.size() &&
            forward.compare(forward.size() - order.size(), order.size(), order) == 0) {
            const std::string backward =
                forward.substr(0, forward.size() - order.size()) + " ORDER BY " +
                reversed((orderClause().empty() ? "" : orderClause() + ", ") + plan->keyColumns);
            if (streams(planOf(*conn, backward))) *lastSql = backward + " LIMIT 1";
        }
    }
    if (!filling || lastSql->empty()) return rowAt(count() - 1);
    // The store as it stands now, which is the list's unless it changed since it was opened.
    auto& last = stmt(*lastSql);
    bindParams(last);
    if (!last.step()) {
        last.reset();
        throwNoCurrentRecord();
    }
    std::vector<long long> k(static_cast<size_t>(stride));
    for (int i = 0; i < stride; ++i) k[static_cast<size_t>(i)] = last.column(i).toInteger();
    last.reset();
    return fetchByKeys(k.data());
}

long long KeysetCursor::currentRowid() {
    requireCurrent();
    return keys[static_cast<size_t>(index)];  // only a query on one table is written
}

void KeysetCursor::inserted() {
    readAll();  // rows added stand behind every row of the query
    const long long id = conn->lastInsertId();
    keys.push_back(id);
    if (keyIndexValid) keyIndex.emplace(keyString(&keys.back()), count() - 1);
    // Appending to an empty recordset leaves it without a current row, at its end.
    if (eof && !bof) index = count();
}

void KeysetCursor::removed() {
    readAll();  // the rest, read as the store stood at opening, still holds the row
    prefetched.clear();
    keys.erase(keys.begin() + index);
    if (index < origCount) --origCount;
    keyIndexValid = false;
    positions.clear();
}

std::string KeysetCursor::keyString(const long long* k) const {
    return std::string(reinterpret_cast<const char*>(k), sizeof(long long) * stride);
}

void KeysetCursor::buildKeyIndex() {
    readAll();
    if (keyIndexValid) return;
    keyIndex.clear();
    keyIndex.reserve(keys.size() / stride);
    for (size_t i = 0; i < keys.size() / stride; ++i)
        keyIndex.emplace(keyString(&keys[i * stride]), static_cast<long>(i));
    keyIndexValid = true;
}

std::optional<long> KeysetCursor::findIndex(const std::string& criteria, long after) {
    if (auto typed = findTyped(criteria, after)) return *typed;
    readAll();
    const std::string crit = jet::translate(criteria, &conn->catalog());
    // A condition on one table's columns is run on that table alone, and the first row of
    // the recordset's order whose row of that table matched is the answer.
    if (const std::string q = jet::soleQualifier(crit); !q.empty()) {
        for (int j = 0; j < stride; ++j) {
            if (text::lower(plan->keyQualifiers[j]) != text::lower(q + ".rowid")) continue;
            const jet::TableRef* ref = nullptr;
            for (const auto& t : plan->tables)
                if (text::lower(t.qualifier) == text::lower(q)) ref = &t;
            if (!ref) break;
            auto st = conn->prepare(
                "SELECT " + q + ".rowid FROM [" + ref->name + "]" +
                (text::lower(ref->qualifier) != text::lower(ref->name) ? " AS " + q : "") +
                " WHERE " + crit);
            std::unordered_set<long long> matching;
            while (st->step()) matching.insert(st->column(0).toInteger());
            for (long i = after + 1; i < origCount; ++i)
                if (matching.count(keys[static_cast<size_t>(i) * stride + j])) return i;
            return findAppended(crit, after);
        }
    }
    buildKeyIndex();
    // The rows after `after` are tried in growing slices of the recordset's order, so that
    // a match near the current row is found at once and no match costs about one pass.
    const std::string where = plan->whereClause.empty()
                                  ? "(" + crit + ")"
                                  : "(" + plan->whereClause + ") AND (" + crit + ")";
    std::vector<long long> k(stride);
    size_t slice = 64;
    for (long start = after + 1; start < origCount; start += static_cast<long>(slice), slice *= 4) {
        const long end = std::min<long>(origCount, start + static_cast<long>(slice));
        std::string ids;
        for (long i = start; i < end; ++i)
            ids += (i == start ? "" : ",") + std::to_string(keys[static_cast<size_t>(i) * stride]);
        auto st =
            conn->prepare("SELECT " + plan->keyColumns + " FROM " + plan->fromClause + " WHERE " +
                          where + " AND " + plan->keyQualifiers[0] + " IN (" + ids + ")");
        bindParams(*st);
        std::optional<long> best;
        while (st->step()) {
            for (int i = 0; i < stride; ++i) k[i] = st->column(i).toInteger();
            auto it = keyIndex.find(keyString(k.data()));
            if (it == keyIndex.end() || it->second < start || it->second >= end) continue;
            if (!best || it->second < *best) best = it->second;
        }
        if (best) return best;
    }
    return findAppended(crit, after);
}

// Rows added through this recordset stand at its end, whatever the order says.
std::optional<long> KeysetCursor::findAppended(const std::string& crit, long after) {
    const long n = count();
    for (long i = std::max(after + 1, origCount); i < n; ++i) {
        auto& one = stmt("SELECT 1 FROM " + plan->fromClause + " WHERE " + keyCondition() +
                         " AND (" + crit + ")");
        bindParams(one);
        for (int j = 0; j < stride; ++j)
            one.bind(paramCount() + j + 1, Variant(keys[static_cast<size_t>(i) * stride + j]));
        if (one.step()) return i;
    }
    return std::nullopt;
}

}  // namespace tolma::store
