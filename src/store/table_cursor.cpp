#include "store/table_cursor.h"

#include "store/dao_error.h"

namespace tolma::store {

TableCursor::TableCursor(std::shared_ptr<Connection> connection, std::string source,
                         const std::string& table)
    : RecordsetImpl(std::move(connection), std::move(source)) {
    baseTable = bracket(table);
    updatable = true;
    const std::string fetchSql = "SELECT * FROM " + baseTable + " WHERE rowid = ?1";
    fetchStmt = &conn->cached(fetchSql);
    describe(*fetchStmt, fetchSql, {{table, table, baseTable}}, table);
    positionAt(rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {}));
}

long TableCursor::count() {
    const long long changes = conn->totalChanges();
    if (changes != cachedCountChanges) {
        auto& st = stmt("SELECT count(*) FROM " + baseTable);
        st.step();
        cachedCount = static_cast<long>(st.column(0).toInteger());
        st.reset();  // a statement left standing holds its table against changes of its schema
        cachedCountChanges = changes;
    }
    return cachedCount;
}

std::optional<long long> TableCursor::rowidBy(const std::string& sql,
                                              std::optional<long long> bound) {
    auto& st = stmt(sql);
    if (bound) st.bind(1, Variant(*bound));
    std::optional<long long> found;
    if (st.step()) found = st.column(0).toInteger();
    st.reset();
    return found;
}

void TableCursor::positionAt(std::optional<long long> r) {
    rowCache.reset();
    deleted = false;
    if (r) {
        rowid = *r;
        bof = eof = false;
    } else {
        bof = eof = true;
    }
}

void TableCursor::moveFirst() {
    auto r = rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {});
    if (!r) throwNoCurrentRecord();
    positionAt(r);
}

void TableCursor::moveLast() {
    auto r = rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid DESC LIMIT 1", {});
    if (!r) throwNoCurrentRecord();
    positionAt(r);
}

void TableCursor::moveNext() {
    if (eof) throwNoCurrentRecord();
    std::optional<long long> r;
    if (bof)
        r = rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1", {});
    else
        r = rowidBy("SELECT rowid FROM " + baseTable + " WHERE rowid > ?1 ORDER BY rowid LIMIT 1",
                    rowid);
    if (r) {
        positionAt(r);
    } else {
        rowCache.reset();
        deleted = false;
        eof = true;
        bof = count() == 0;
    }
}

void TableCursor::movePrevious() {
    if (bof) throwNoCurrentRecord();
    std::optional<long long> r;
    if (eof)
        r = rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid DESC LIMIT 1", {});
    else
        r = rowidBy(
            "SELECT rowid FROM " + baseTable + " WHERE rowid < ?1 ORDER BY rowid DESC LIMIT 1",
            rowid);
    if (r) {
        positionAt(r);
    } else {
        rowCache.reset();
        deleted = false;
        bof = true;
        eof = count() == 0;
    }
}

long TableCursor::position() {
    if (bof || eof) return -1;
    auto& st = stmt("SELECT count(*) FROM " + baseTable + " WHERE rowid < ?1");
    st.bind(1, Variant(rowid));
    st.step();
    const long before = static_cast<long>(st.column(0).toInteger());
    st.reset();
    return before;
}

std::optional<long long> TableCursor::rowidAt(long p) {
    return rowidBy("SELECT rowid FROM " + baseTable + " ORDER BY rowid LIMIT 1 OFFSET ?1", p);
}

void TableCursor::setPosition(long p) {
    if (p < 0 || p >= count())
        throwDao(kRecordsetSource, err::kInvalidArgument, "Ungültiges Argument.");
    positionAt(rowidAt(p));
}

std::vector<Variant> TableCursor::rowAt(long p) {
    if (p < 0 || p >= count()) throwNoCurrentRecord();
    auto r = rowidAt(p);
    if (!r) throwNoCurrentRecord();
    return fetchByKeys(&*r);
}

void TableCursor::find(const std::string& criteria, bool fromStart) {
    // Values become parameters, so that the import's many finds share one statement.
    const auto p = jet::prepare(criteria, &conn->catalog());
    std::optional<long long> r;
    if (fromStart || bof || !eof) {
        const bool after = !(fromStart || bof);
        // The criteria's parameters come first: a named one ahead of them would take ?1.
        // A server would walk the row id's index for the order and test every row against the
        // criteria; ordered by an expression, it finds the rows by their index and sorts them.
        auto& st = conn->cached(
            "SELECT rowid FROM " + baseTable + " WHERE (" + p.shape->sql + ")" +
            (after ? " AND rowid > @after" : "") +
            (conn->isServer() ? " ORDER BY rowid + 0 LIMIT 1" : " ORDER BY rowid LIMIT 1"));
        st.bindValues(p.values, p.shape->numeric);
        if (after) st.bind("@after", Variant(rowid));
        if (st.step()) r = st.column(0).toInteger();
    }
    noMatch = !r;
    if (r) positionAt(r);
}

long long TableCursor::currentRowid() {
    requireCurrent();
    return rowid;
}

void TableCursor::inserted() {
    if (bof && eof) bof = false;  // the old engine keeps EOF until the next move
}

}  // namespace tolma::store
