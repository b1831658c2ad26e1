#include "store/recordset.h"

#include <sqlite3.h>

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "store/connection.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"

namespace tolma::store {
namespace {

const char* kSource = "DAO.Recordset";

std::string bracket(const std::string& name) { return "[" + name + "]"; }

std::string upperAscii(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// Type and size of a column from its declared type in the store's schema.
void typeFromDeclaration(const char* declared, FieldInfo& f) {
    if (!declared) {
        f.type = dao::dbText;
        f.size = 255;
        return;
    }
    const std::string d = upperAscii(declared);
    auto sizeIn = [&](int fallback) {
        auto open = d.find('(');
        return open == std::string::npos ? fallback : std::atoi(d.c_str() + open + 1);
    };
    if (d == "LONGTEXT" || d == "MEMO" || d == "TEXT" || d == "CLOB") {
        f.type = dao::dbMemo;
        f.size = 0;
    } else if (d.rfind("VARCHAR", 0) == 0 || d.rfind("CHAR", 0) == 0 || d.rfind("TEXT", 0) == 0) {
        f.type = dao::dbText;
        f.size = sizeIn(255);
    } else if (d == "BOOLEAN" || d == "BIT" || d == "YESNO") {
        f.type = dao::dbBoolean;
        f.size = 1;
    } else if (d == "SMALLINT" || d == "SHORT") {
        f.type = dao::dbInteger;
        f.size = 2;
    } else if (d.find("INT") != std::string::npos || d == "LONG") {
        f.type = dao::dbLong;
        f.size = 4;
    } else if (d == "DATETIME" || d == "DATE") {
        f.type = dao::dbDate;
        f.size = 8;
    } else if (d == "DOUBLE" || d == "REAL" || d == "FLOAT") {
        f.type = dao::dbDouble;
        f.size = 8;
    } else {
        f.type = dao::dbText;
        f.size = 255;
    }
}

std::string unbracket(const std::string& s) {
    if (s.size() >= 2 && s.front() == '[' && s.back() == ']') return s.substr(1, s.size() - 2);
    return s;
}

}  // namespace

// The fields of a query shape, described once per connection and shared by its recordsets.
struct FieldSet {
    std::vector<FieldInfo> list;
    std::unordered_map<std::string, int> exact, folded;
};

// What a query shape needs on a connection, worked out once: its parts, the texts built from
// them and their prepared statements.
struct QueryPlan {
    std::shared_ptr<const jet::Shape> shape;  // kept alive, so that its address stays its own
    int stride = 1;
    std::string selectList, fromClause, whereClause, orderClause, keyColumns;
    std::vector<std::string> keyQualifiers;
    std::vector<jet::TableRef> tables;
    std::string fetchSql, rowsSql;
    Statement* fetch = nullptr;
    Statement* rows = nullptr;
};

class RecordsetImpl {
public:
    static constexpr size_t kPrefetchRows = 16;
    enum class Mode { Table, Keyset, Snapshot };
    enum class EditMode { None, Edit, Add };

    std::shared_ptr<Connection> conn;
    std::string name;
    Mode mode = Mode::Snapshot;
    bool closed = false;
    std::shared_ptr<const FieldSet> fieldSet;
    const std::vector<FieldInfo>& fields() const { return fieldSet->list; }
    bool updatable = false;
    std::string baseTable;  // bracketed, for writing

    // Position, as the old engine keeps it.
    bool bof = true, eof = true, deleted = false;
    long index = -1;            // Keyset and Snapshot
    long long rowid = 0;        // Table
    bool noMatch = false;

    // Keyset: the row ids of each base table, row after row.
    int stride = 1;
    std::vector<long long> keys;
    long origCount = 0;  // rows from the query; later ones were added through this recordset
    std::shared_ptr<const QueryPlan> plan;
    std::unordered_map<std::string, long> keyIndex;
    bool keyIndexValid = false;

    // Snapshot
    std::vector<std::vector<Variant>> rows;
    std::string snapshotQualifier;

    Statement* fetchStmt = nullptr;  // kept by the connection, shared by queries of one shape
    std::map<std::string, std::unique_ptr<Statement>> statements;
    // The values of the query text, bound to every statement built from it.
    std::vector<std::string> params;
    std::vector<bool> numericParams;
    void bindParams(Statement& st) const { st.bindValues(params, numericParams); }
    int paramCount() const { return static_cast<int>(params.size()); }
    std::optional<std::vector<Variant>> rowCache;
    // The rows of a small query, read with their keys at opening: no fetch per row.
    std::vector<std::vector<Variant>> prefetched;

    EditMode edit = EditMode::None;
    std::vector<std::optional<Variant>> pending;

    std::function<void()> onMove;
    void moved() {
        if (onMove) onMove();
    }

    long cachedCount = 0;
    long long cachedCountChanges = -1;

    void check() const {
        if (closed) throwDao(kSource, err::kObjectInvalid, "Objekt ist ungültig oder nicht mehr festgelegt.");
    }

    Statement& stmt(const std::string& sql) {
        auto& s = statements[sql];
        if (!s) s = conn->prepare(sql);
        s->reset();
        return *s;
    }

    // ---- opening -------------------------------------------------------------------------
    // Names, types and sizes of a statement's columns; kept per connection under `key`, so
    // that recordsets of one shape describe their fields once. `writable` names the base table
    // whose columns can be written, if any.
    void describe(Statement& statement, const std::string& key, const std::vector<jet::TableRef>& tables,
                  const std::string& writable) {
        auto& memo = conn->memo("fields:" + key);
        if (memo) {
            fieldSet = std::static_pointer_cast<const FieldSet>(memo);
            return;
        }
        auto set = std::make_shared<FieldSet>();
        sqlite3_stmt* st = statement.handle();
        const int n = sqlite3_column_count(st);
        std::unordered_map<std::string, int> seen;
        for (int i = 0; i < n; ++i) {
            FieldInfo f;
            f.name = sqlite3_column_name(st, i);
            const char* t = sqlite3_column_table_name(st, i);
            const char* c = sqlite3_column_origin_name(st, i);
            f.table = t ? t : "";
            f.column = c ? c : "";
            typeFromDeclaration(sqlite3_column_decltype(st, i), f);
            f.updatable = !writable.empty() && !f.column.empty() && jet::foldCase(f.table) == jet::foldCase(writable);
            ++seen[jet::foldCase(f.name)];
            set->list.push_back(f);
        }
        // A name that two tables share is told apart by its table, as the old engine does.
        for (auto& f : set->list) {
            if (seen[jet::foldCase(f.name)] < 2 || f.table.empty()) continue;
            std::string qualifier = f.table;
            for (const auto& ref : tables)
                if (jet::foldCase(ref.name) == jet::foldCase(f.table)) qualifier = unbracket(ref.qualifier);
            f.name = qualifier + "." + f.name;
        }
        for (size_t i = 0; i < set->list.size(); ++i) {
            set->exact.emplace(set->list[i].name, static_cast<int>(i));
            set->folded.emplace(jet::foldCase(set->list[i].name), static_cast<int>(i));
        }
        memo = set;
        fieldSet = set;
    }

    void openTable(const std::string& table) {
        mode = Mode::Table;
        baseTable = bracket(table);
        updatable = true;
        const std::string fetchSql = "SELECT * FROM " + baseTable + " WHERE rowid = ?1";
        fetchStmt = &conn->cached(fetchSql);
        describe(*fetchStmt, fetchSql, {{table, table}}, table);
        auto first = tableStep("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {});
        positionTable(first);
    }

    void openQuery(const std::string& source) {
        const jet::Prepared query = jet::prepare(source, &conn->catalog());
        params = query.values;
        numericParams = query.shape->numeric;
        const jet::SelectParts& parts = query.shape->parts;
        if (!parts.keyable()) {
            openSnapshot(query.shape->sql, parts);
            return;
        }
        mode = Mode::Keyset;
        stride = static_cast<int>(parts.tables.size());
        auto& memo = conn->memo("plan:" + std::to_string(reinterpret_cast<std::uintptr_t>(query.shape.get())));
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
            made->fetchSql = "SELECT " + made->selectList + " FROM " + made->fromClause + " WHERE " + keyCondition();
            made->fetch = &conn->cached(made->fetchSql);
            made->rowsSql = "SELECT " + made->keyColumns + ", " + made->selectList + " FROM " + made->fromClause +
                            (made->whereClause.empty() ? "" : " WHERE " + made->whereClause) + orderBy() + " LIMIT " +
                            std::to_string(kPrefetchRows + 1);
            made->rows = &conn->cached(made->rowsSql);
            memo = made;
        }
        plan = std::static_pointer_cast<const QueryPlan>(memo);
        fetchStmt = plan->fetch;
        if (stride == 1) {
            updatable = true;
            baseTable = bracket(parts.tables[0].name);
        }
        describe(*fetchStmt, plan->fetchSql, parts.tables, stride == 1 ? parts.tables[0].name : std::string());

        // Most queries give a few rows: read them whole with their keys in one statement, and
        // fall back to a keyset of their keys alone when there are more.
        {
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
                origCount = static_cast<long>(keys.size() / stride);
                moveToIndex(origCount > 0 ? 0 : -1);
                return;
            }
            prefetched.clear();
        }

        Statement* keyset = nullptr;
        std::unique_ptr<Statement> fallback;
        try {
            keyset = &conn->cached(keysetSql(""));
        } catch (const DaoError&) {
            // An ORDER BY that names a column of the select list by its alias needs the list.
            fallback = conn->prepare("SELECT " + plan->keyColumns + ", " + plan->selectList + " FROM " + plan->fromClause +
                                     (plan->whereClause.empty() ? "" : " WHERE " + plan->whereClause) + orderBy());
            keyset = fallback.get();
        }
        bindParams(*keyset);
        while (keyset->step())
            for (int i = 0; i < stride; ++i) keys.push_back(keyset->column(i).toInteger());
        keyset->reset();
        origCount = static_cast<long>(keys.size() / stride);
        moveToIndex(origCount > 0 ? 0 : -1);
    }

    // The row ids of one row, as parameters after the query's own values.
    std::string keyCondition() const {
        std::string where;
        for (int i = 0; i < stride; ++i)
            where += (i ? " AND " : "") + plan->keyQualifiers[i] + " = ?" + std::to_string(paramCount() + i + 1);
        return where;
    }

    // The order of the rows: the query's own, made total by the row ids; without an order of
    // its own, the order in which the rows were stored.
    std::string orderBy() const { return " ORDER BY " + (plan->orderClause.empty() ? "" : plan->orderClause + ", ") + plan->keyColumns; }

    std::string keysetSql(const std::string& criteria) const {
        std::string where = plan->whereClause;
        if (!criteria.empty()) where = where.empty() ? "(" + criteria + ")" : "(" + where + ") AND (" + criteria + ")";
        return "SELECT " + plan->keyColumns + " FROM " + plan->fromClause + (where.empty() ? "" : " WHERE " + where) + orderBy();
    }

    void openSnapshot(const std::string& sql, const jet::SelectParts& parts) {
        mode = Mode::Snapshot;
        auto st = conn->prepare(sql);
        bindParams(*st);
        describe(*st, sql, parts.tables, "");
        if (parts.tables.size() == 1) snapshotQualifier = parts.tables[0].qualifier;
        while (st->step()) {
            std::vector<Variant> row;
            for (int i = 0; i < st->columnCount(); ++i) row.push_back(st->column(i));
            rows.push_back(std::move(row));
        }
        moveToIndex(rows.empty() ? -1 : 0);
    }

    // ---- position ------------------------------------------------------------------------
    long count() {
        switch (mode) {
            case Mode::Table: {
                const long long changes = conn->totalChanges();
                if (changes != cachedCountChanges) {
                    auto& st = stmt("SELECT count(*) FROM " + baseTable);
                    st.step();
                    cachedCount = static_cast<long>(st.column(0).toInteger());
                    cachedCountChanges = changes;
                }
                return cachedCount;
            }
            case Mode::Keyset:
                return static_cast<long>(keys.size() / stride);
            case Mode::Snapshot:
                return static_cast<long>(rows.size());
        }
        return 0;
    }

    std::optional<long long> tableStep(const std::string& sql, std::optional<long long> bound) {
        auto& st = stmt(sql);
        if (bound) st.bind(1, Variant(*bound));
        if (st.step()) return st.column(0).toInteger();
        return std::nullopt;
    }

    void positionTable(std::optional<long long> r) {
        rowCache.reset();
        deleted = false;
        if (r) {
            rowid = *r;
            bof = eof = false;
        } else {
            bof = eof = true;
        }
    }

    void moveToIndex(long i) {
        rowCache.reset();
        deleted = false;
        const long n = count();
        index = i;
        if (n == 0) {
            bof = eof = true;
            index = -1;
        } else if (i < 0) {
            bof = true;
            eof = false;
            index = -1;
        } else if (i >= n) {
            eof = true;
            bof = false;
            index = n;
        } else {
            bof = eof = false;
        }
    }

    void requireCurrent() {
        if (bof || eof) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        if (deleted) throwDao(kSource, err::kRecordDeleted, "Datensatz ist gelöscht.");
    }

    void moveFirst() {
        if (mode == Mode::Table) {
            auto r = tableStep("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {});
            if (!r) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
            positionTable(r);
            return;
        }
        if (count() == 0) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        moveToIndex(0);
    }

    void moveLast() {
        if (mode == Mode::Table) {
            auto r = tableStep("SELECT rowid FROM " + baseTable + " ORDER BY rowid DESC LIMIT 1", {});
            if (!r) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
            positionTable(r);
            return;
        }
        if (count() == 0) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        moveToIndex(count() - 1);
    }

    void moveNext() {
        if (eof) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        if (mode == Mode::Table) {
            std::optional<long long> r;
            if (bof)
                r = tableStep("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {});
            else
                r = tableStep("SELECT rowid FROM " + baseTable + " WHERE rowid > ?1 ORDER BY rowid LIMIT 1", rowid);
            if (r) {
                positionTable(r);
            } else {
                rowCache.reset();
                deleted = false;
                eof = true;
                bof = count() == 0;
            }
            return;
        }
        // After a Delete the slot already holds the row that followed.
        moveToIndex(deleted ? index : index + 1);
    }

    void movePrevious() {
        if (bof) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        if (mode == Mode::Table) {
            std::optional<long long> r;
            if (eof)
                r = tableStep("SELECT rowid FROM " + baseTable + " ORDER BY rowid DESC LIMIT 1", {});
            else
                r = tableStep("SELECT rowid FROM " + baseTable + " WHERE rowid < ?1 ORDER BY rowid DESC LIMIT 1", rowid);
            if (r) {
                positionTable(r);
            } else {
                rowCache.reset();
                deleted = false;
                bof = true;
                eof = count() == 0;
            }
            return;
        }
        moveToIndex(index - 1);
    }

    long position() {
        if (bof || eof) return -1;
        if (mode != Mode::Table) return index;
        auto& st = stmt("SELECT count(*) FROM " + baseTable + " WHERE rowid < ?1");
        st.bind(1, Variant(rowid));
        st.step();
        return static_cast<long>(st.column(0).toInteger());
    }

    void setPosition(long p) {
        if (p < 0 || p >= count()) throwDao(kSource, err::kInvalidArgument, "Ungültiges Argument.");
        if (mode != Mode::Table) {
            moveToIndex(p);
            return;
        }
        auto& st = stmt("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1 OFFSET ?1");
        st.bind(1, Variant(static_cast<long long>(p)));
        positionTable(st.step() ? std::optional<long long>(st.column(0).toInteger()) : std::nullopt);
    }

    // ---- rows ----------------------------------------------------------------------------
    std::vector<Variant> fetchByKeys(const long long* k) {
        fetchStmt->reset();
        if (mode == Mode::Keyset) bindParams(*fetchStmt);
        const int first = mode == Mode::Keyset ? paramCount() + 1 : 1;
        for (int i = 0; i < stride; ++i) fetchStmt->bind(first + i, Variant(k[i]));
        std::vector<Variant> row;
        if (!fetchStmt->step()) throwDao(kSource, err::kRecordDeleted, "Datensatz ist gelöscht.");
        for (int i = 0; i < fetchStmt->columnCount(); ++i) row.push_back(fetchStmt->column(i));
        fetchStmt->reset();
        return row;
    }

    const std::vector<Variant>& current() {
        requireCurrent();
        if (!rowCache) {
            switch (mode) {
                case Mode::Table:
                    rowCache = fetchByKeys(&rowid);
                    break;
                case Mode::Keyset:
                    rowCache = static_cast<size_t>(index) < prefetched.size()
                                   ? prefetched[static_cast<size_t>(index)]
                                   : fetchByKeys(&keys[static_cast<size_t>(index) * stride]);
                    break;
                case Mode::Snapshot:
                    rowCache = rows[static_cast<size_t>(index)];
                    break;
            }
        }
        return *rowCache;
    }

    const std::vector<Variant>& currentRow() { return current(); }

    std::vector<Variant> rowAt(long p) {
        if (p < 0 || p >= count()) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
        switch (mode) {
            case Mode::Keyset:
                if (static_cast<size_t>(p) < prefetched.size()) return prefetched[static_cast<size_t>(p)];
                return fetchByKeys(&keys[static_cast<size_t>(p) * stride]);
            case Mode::Snapshot:
                return rows[static_cast<size_t>(p)];
            case Mode::Table: {
                auto& st = stmt("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1 OFFSET ?1");
                st.bind(1, Variant(static_cast<long long>(p)));
                if (!st.step()) throwDao(kSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
                long long r = st.column(0).toInteger();
                return fetchByKeys(&r);
            }
        }
        return {};
    }

    long long currentRowid() {
        requireCurrent();
        return mode == Mode::Table ? rowid : keys[static_cast<size_t>(index)];
    }

    // ---- finding -------------------------------------------------------------------------
    std::string keyString(const long long* k) const {
        return std::string(reinterpret_cast<const char*>(k), sizeof(long long) * stride);
    }

    void buildKeyIndex() {
        if (keyIndexValid) return;
        keyIndex.clear();
        keyIndex.reserve(keys.size() / stride);
        for (size_t i = 0; i < keys.size() / stride; ++i) keyIndex.emplace(keyString(&keys[i * stride]), static_cast<long>(i));
        keyIndexValid = true;
    }

    // The first row after `after` (-1: from the first row) that meets the criteria.
    std::optional<long> findIndex(const std::string& criteria, long after) {
        const std::string crit = jet::translate(criteria, &conn->catalog());
        if (mode == Mode::Snapshot) return findInSnapshot(crit, after);
        // A condition on one table's columns is run on that table alone, and the first row of
        // the recordset's order whose row of that table matched is the answer.
        if (const std::string q = jet::soleQualifier(crit); !q.empty()) {
            for (int j = 0; j < stride; ++j) {
                if (jet::foldCase(plan->keyQualifiers[j]) != jet::foldCase(q + ".rowid")) continue;
                const jet::TableRef* ref = nullptr;
                for (const auto& t : plan->tables)
                    if (jet::foldCase(t.qualifier) == jet::foldCase(q)) ref = &t;
                if (!ref) break;
                auto st = conn->prepare("SELECT " + q + ".rowid FROM [" + ref->name + "]" +
                                        (jet::foldCase(ref->qualifier) != jet::foldCase(ref->name) ? " AS " + q : "") +
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
        const std::string where = plan->whereClause.empty() ? "(" + crit + ")" : "(" + plan->whereClause + ") AND (" + crit + ")";
        std::vector<long long> k(stride);
        size_t slice = 64;
        for (long start = after + 1; start < origCount; start += static_cast<long>(slice), slice *= 4) {
            const long end = std::min<long>(origCount, start + static_cast<long>(slice));
            std::string ids;
            for (long i = start; i < end; ++i)
                ids += (i == start ? "" : ",") + std::to_string(keys[static_cast<size_t>(i) * stride]);
            auto st = conn->prepare("SELECT " + plan->keyColumns + " FROM " + plan->fromClause + " WHERE " + where + " AND " +
                                    plan->keyQualifiers[0] + " IN (" + ids + ")");
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
    std::optional<long> findAppended(const std::string& crit, long after) {
        const long n = count();
        for (long i = std::max(after + 1, origCount); i < n; ++i) {
            auto& one = stmt("SELECT 1 FROM " + plan->fromClause + " WHERE " + keyCondition() + " AND (" + crit + ")");
            bindParams(one);
            for (int j = 0; j < stride; ++j)
                one.bind(paramCount() + j + 1, Variant(keys[static_cast<size_t>(i) * stride + j]));
            if (one.step()) return i;
        }
        return std::nullopt;
    }

    std::optional<long> findInSnapshot(const std::string& crit, long after) {
        std::string list;
        for (size_t i = 0; i < fields().size(); ++i) {
            std::string col = fields()[i].name;
            if (auto dot = col.find('.'); dot != std::string::npos) col = col.substr(dot + 1);
            list += (i ? ", " : "") + std::string("?") + std::to_string(i + 1) + " AS " + bracket(col);
        }
        std::string q = snapshotQualifier.empty() ? "[snapshot]" : snapshotQualifier;
        auto st = conn->prepare("SELECT 1 FROM (SELECT " + list + ") AS " + q + " WHERE " + crit);
        for (long i = after + 1; i < static_cast<long>(rows.size()); ++i) {
            st->reset();
            for (size_t j = 0; j < fields().size(); ++j) st->bind(static_cast<int>(j + 1), rows[i][j]);
            if (st->step()) return i;
        }
        return std::nullopt;
    }

    void find(const std::string& criteria, bool fromStart) {
        if (mode == Mode::Table) {
            // Values become parameters, so that the import's many finds share one statement.
            const auto p = jet::prepare(criteria, &conn->catalog());
            std::optional<long long> r;
            if (fromStart || bof || !eof) {
                const bool after = !(fromStart || bof);
                // The criteria's parameters come first: a named one ahead of them would take ?1.
                auto& st = conn->cached("SELECT rowid FROM " + baseTable + " WHERE (" + p.shape->sql + ")" +
                                        (after ? " AND rowid > @after" : "") + " ORDER BY rowid LIMIT 1");
                st.bindValues(p.values, p.shape->numeric);
                if (after) st.bind("@after", Variant(rowid));
                if (st.step()) r = st.column(0).toInteger();
            }
            noMatch = !r;
            if (r) positionTable(r);
            return;
        }
        long after = fromStart || bof ? -1 : (deleted ? index - 1 : index);
        if (!fromStart && eof) {
            noMatch = true;
            return;
        }
        auto i = findIndex(criteria, after);
        noMatch = !i;
        if (i) moveToIndex(*i);
    }

    // ---- writing -------------------------------------------------------------------------
    void requireUpdatable() {
        if (!updatable) throwDao(kSource, err::kReadOnly, "Aktualisieren nicht möglich. Datenbank oder Objekt ist schreibgeschützt.");
    }

    Variant converted(const FieldInfo& f, const Variant& v) {
        if (v.isNull()) return v;
        switch (f.type) {
            case dao::dbBoolean:
                return Variant::boolean(v.toBool());
            case dao::dbInteger:
            case dao::dbLong: {
                if (v.isText()) {
                    const std::string s = v.toString();
                    char* end = nullptr;
                    long long n = std::strtoll(s.c_str(), &end, 10);
                    if (s.empty() || *end != '\0') throwDao("DAO.Field", err::kTypeMismatch, "Datentypenkonflikt in Kriterienausdruck.");
                    return Variant(n);
                }
                return Variant(v.toInteger());
            }
            case dao::dbDouble:
                return Variant(v.toReal());
            case dao::dbText: {
                const std::string* text = v.textPointer();
                const std::string copy = text ? std::string() : v.toString();
                const std::string& s = text ? *text : copy;
                // Only a text that may be too long is counted character by character.
                if (f.size > 0 && static_cast<long long>(s.size()) > f.size && jet::utf8Length(s) > f.size)
                    throwDao("DAO.Field", err::kFieldTooSmall,
                             "Das Feld ist zu klein für die Datenmenge, die Sie hinzufügen wollten.");
                return text ? v : Variant(copy);
            }
            default:
                return Variant(v.toString());
        }
    }

    void setField(int i, const Variant& v) {
        check();
        requireUpdatable();
        if (edit == EditMode::None)
            throwDao("DAO.Field", err::kUpdateWithoutEdit, "Aktualisieren oder Abbrechen ohne Hinzufügen oder Bearbeiten.");
        const FieldInfo& f = fields()[static_cast<size_t>(i)];
        if (!f.updatable) throwDao("DAO.Field", err::kFieldNotUpdatable, "Feld '" + f.name + "' kann nicht aktualisiert werden.");
        pending[static_cast<size_t>(i)].emplace(converted(f, v));
    }

    Variant fieldValue(int i) {
        check();
        if (edit != EditMode::None && pending[static_cast<size_t>(i)]) return *pending[static_cast<size_t>(i)];
        if (edit == EditMode::Add) return {};
        return current()[static_cast<size_t>(i)];
    }

    void addNew() {
        check();
        requireUpdatable();
        edit = EditMode::Add;  // a pending row of an earlier AddNew is dropped
        pending.assign(fields().size(), std::nullopt);
    }

    void beginEdit() {
        check();
        requireUpdatable();
        requireCurrent();
        edit = EditMode::Edit;
        pending.assign(fields().size(), std::nullopt);
    }

    void update() {
        check();
        if (edit == EditMode::None)
            throwDao(kSource, err::kUpdateWithoutEdit, "Aktualisieren oder Abbrechen ohne Hinzufügen oder Bearbeiten.");
        // The columns set, one character each: the key of the prepared statement.
        std::string pattern(fields().size(), '0');
        std::vector<const Variant*> values;
        for (size_t i = 0; i < fields().size(); ++i) {
            if (!pending[i]) continue;
            pattern[i] = '1';
            values.push_back(&*pending[i]);
        }
        if (edit == EditMode::Add) {
            auto& st = insertStatement(pattern);
            // The pending values live until the row is stored.
            for (size_t i = 0; i < values.size(); ++i) st.bindStatic(static_cast<int>(i + 1), *values[i]);
            st.step();
            if (mode == Mode::Keyset) {
                const long long id = sqlite3_last_insert_rowid(conn->handle());
                keys.push_back(id);
                if (keyIndexValid) keyIndex.emplace(keyString(&keys.back()), count() - 1);
                // Appending to an empty recordset leaves it without a current row, at its end.
                if (eof && !bof) index = count();
            }
            if (mode == Mode::Table && bof && eof) {
                bof = false;  // the old engine keeps EOF until the next move
            }
        } else if (!values.empty()) {
            std::string sets;
            for (size_t i = 0, n = 0; i < fields().size(); ++i) {
                if (pattern[i] != '1') continue;
                sets += (n ? ", " : "") + bracket(fields()[i].column) + " = ?" + std::to_string(n + 1);
                ++n;
            }
            const long long id = currentRowid();
            auto& st = stmt("UPDATE " + baseTable + " SET " + sets + " WHERE rowid = ?" + std::to_string(values.size() + 1));
            for (size_t i = 0; i < values.size(); ++i) st.bind(static_cast<int>(i + 1), *values[i]);
            st.bind(static_cast<int>(values.size() + 1), Variant(id));
            st.step();
            rowCache.reset();
        }
        edit = EditMode::None;
        pending.clear();
        prefetched.clear();  // a stored row is read anew
    }

    std::unordered_map<std::string, std::unique_ptr<Statement>> inserts;
    std::string lastPattern;
    Statement* lastInsert = nullptr;
    Statement& insertStatement(const std::string& pattern) {
        // Rows of one table mostly repeat the columns of the row before.
        if (lastInsert && pattern == lastPattern) {
            lastInsert->reset();
            return *lastInsert;
        }
        auto& st = inserts[pattern];
        if (!st) {
            std::string cols, marks;
            for (size_t i = 0, n = 0; i < fields().size(); ++i) {
                if (pattern[i] != '1') continue;
                cols += (n ? ", " : "") + bracket(fields()[i].column);
                marks += (n ? ", ?" : "?") + std::to_string(n + 1);
                ++n;
            }
            st = conn->prepare(cols.empty() ? "INSERT INTO " + baseTable + " DEFAULT VALUES"
                                            : "INSERT INTO " + baseTable + " (" + cols + ") VALUES (" + marks + ")");
        }
        st->reset();
        lastPattern = pattern;
        lastInsert = st.get();
        return *st;
    }

    long long deleteWhere(const std::string& criteria) {
        check();
        requireUpdatable();
        const auto p = jet::prepare(criteria, &conn->catalog());
        auto& st = conn->cached("DELETE FROM " + baseTable + " WHERE " + p.shape->sql);
        st.bindValues(p.values, p.shape->numeric);
        st.step();
        rowCache.reset();
        prefetched.clear();
        return sqlite3_changes64(conn->handle());
    }

    void cancelUpdate() {
        check();
        edit = EditMode::None;
        pending.clear();
    }

    void remove() {
        check();
        requireUpdatable();
        const long long id = currentRowid();
        auto& st = stmt("DELETE FROM " + baseTable + " WHERE rowid = ?1");
        st.bind(1, Variant(id));
        st.step();
        rowCache.reset();
        if (mode == Mode::Keyset) {
            prefetched.clear();
            keys.erase(keys.begin() + index);
            if (index < origCount) --origCount;
            keyIndexValid = false;
        }
        deleted = true;
    }
};

Recordset Recordset::open(std::shared_ptr<Connection> connection, const std::string& source) {
    Recordset rs;
    rs.impl_ = std::make_shared<RecordsetImpl>();
    rs.impl_->conn = std::move(connection);
    rs.impl_->name = source;
    const std::string table = jet::bareTableName(source);
    if (!table.empty())
        rs.impl_->openTable(table);
    else
        rs.impl_->openQuery(source);
    return rs;
}

RecordsetImpl& Recordset::impl() const {
    if (!impl_) throwDao(kSource, err::kObjectNotSet, "Objektvariable oder With-Blockvariable nicht festgelegt.");
    impl_->check();
    return *impl_;
}

const std::string& Recordset::Name() const { return impl().name; }
bool Recordset::Updatable() const { return impl().updatable; }
long Recordset::RecordCount() const { return impl().count(); }
bool Recordset::Eof() const { return impl().eof; }
bool Recordset::Bof() const { return impl().bof; }
long Recordset::AbsolutePosition() const { return impl().position(); }
void Recordset::setAbsolutePosition(long position) {
    impl().setPosition(position);
    impl_->moved();
}
void Recordset::MoveFirst() {
    impl().moveFirst();
    impl_->moved();
}
void Recordset::MoveLast() {
    impl().moveLast();
    impl_->moved();
}
void Recordset::MoveNext() {
    impl().moveNext();
    impl_->moved();
}
void Recordset::MovePrevious() {
    impl().movePrevious();
    impl_->moved();
}
void Recordset::FindFirst(const std::string& criteria) {
    impl().find(criteria, true);
    if (!impl_->noMatch) impl_->moved();
}
void Recordset::FindNext(const std::string& criteria) {
    impl().find(criteria, false);
    if (!impl_->noMatch) impl_->moved();
}
void Recordset::setMoveListener(std::function<void()> listener) const { impl().onMove = std::move(listener); }
bool Recordset::NoMatch() const { return impl().noMatch; }
void Recordset::AddNew() { impl().addNew(); }
void Recordset::Edit() { impl().beginEdit(); }
void Recordset::Update() { impl().update(); }
void Recordset::CancelUpdate() { impl().cancelUpdate(); }
void Recordset::Delete() { impl().remove(); }
long long Recordset::deleteWhere(const std::string& criteria) { return impl().deleteWhere(criteria); }
bool Recordset::editing() const { return impl().edit != RecordsetImpl::EditMode::None; }
int Recordset::FieldCount() const { return static_cast<int>(impl().fields().size()); }
const std::vector<FieldInfo>& Recordset::fieldInfos() const { return impl().fields(); }
std::vector<Variant> Recordset::rowAt(long position) const { return impl().rowAt(position); }
const std::vector<Variant>& Recordset::currentRow() const { return impl().currentRow(); }

int Recordset::fieldIndex(const std::string& name) const {
    const FieldSet& set = *impl().fieldSet;
    if (auto it = set.exact.find(name); it != set.exact.end()) return it->second;
    if (auto it = set.folded.find(jet::foldCase(name)); it != set.folded.end()) return it->second;
    return -1;
}

Field Recordset::Fields(int index) const {
    if (index < 0 || index >= FieldCount())
        throwDao("DAO.Fields", err::kItemNotFound, "Element in dieser Auflistung nicht gefunden.");
    return Field(impl_, index);
}

Field Recordset::Fields(const std::string& name) const {
    const int i = fieldIndex(name);
    if (i < 0) throwDao("DAO.Fields", err::kItemNotFound, "Element in dieser Auflistung nicht gefunden.");
    return Field(impl_, i);
}

void Recordset::Close() {
    if (!impl_) return;
    impl_->closed = true;
    impl_->statements.clear();
    impl_->inserts.clear();
    impl_->fetchStmt = nullptr;
    impl_->conn.reset();
    impl_.reset();
}

const std::string& Field::Name() const { return rs_->fields()[static_cast<size_t>(index_)].name; }
int Field::Type() const { return rs_->fields()[static_cast<size_t>(index_)].type; }
int Field::Size() const { return rs_->fields()[static_cast<size_t>(index_)].size; }
Variant Field::Value() const { return rs_->fieldValue(index_); }
void Field::setValue(const Variant& value) { rs_->setField(index_, value); }

}  // namespace tolma::store
