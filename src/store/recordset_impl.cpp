#include "store/recordset_impl.h"

#include <sqlite3.h>

#include "store/dao_error.h"
#include "text/text.h"

namespace tolma::store {
namespace {

// Type and size of a column from its declared type in the store's schema.
void typeFromDeclaration(const char* declared, FieldInfo& f) {
    if (!declared) {
        f.type = dao::dbText;
        f.size = 255;
        return;
    }
    const std::string d = text::upperAscii(declared);
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

// A name without its brackets, or the double quotes a server's query text gives it.
std::string unbracket(const std::string& s) {
    if (s.size() >= 2 &&
        ((s.front() == '[' && s.back() == ']') || (s.front() == '"' && s.back() == '"')))
        return s.substr(1, s.size() - 2);
    return s;
}

}  // namespace

void throwNoCurrentRecord() {
    throwDao(kRecordsetSource, err::kNoCurrentRecord, "Kein aktueller Datensatz.");
}

std::string bracket(const std::string& name) {
    return "[" + name + "]";
}

void RecordsetImpl::check() const {
    if (closed)
        throwDao(kRecordsetSource, err::kObjectInvalid,
                 "Objekt ist ungültig oder nicht mehr festgelegt.");
}

Statement& RecordsetImpl::stmt(const std::string& sql) {
    auto& s = statements[sql];
    if (!s) {
        s = conn->prepare(sql);
        s->keep();
    }
    s->reset();
    return *s;
}

void RecordsetImpl::requireCurrent() {
    if (bof || eof) throwNoCurrentRecord();
    if (deleted) throwDao(kRecordsetSource, err::kRecordDeleted, "Datensatz ist gelöscht.");
}

void RecordsetImpl::requireUpdatable() {
    if (!updatable)
        throwDao(kRecordsetSource, err::kReadOnly,
                 "Aktualisieren nicht möglich. Datenbank oder Objekt ist schreibgeschützt.");
}

void RecordsetImpl::describe(Statement& statement, const std::string& key,
                             const std::vector<jet::TableRef>& tables,
                             const std::string& writable) {
    auto& memo = conn->memo("fields:" + key);
    if (memo) {
        fieldSet = std::static_pointer_cast<const FieldSet>(memo);
        return;
    }
    auto set = std::make_shared<FieldSet>();
    const int n = statement.columnCount();
    std::unordered_map<std::string, int> seen;
    for (int i = 0; i < n; ++i) {
        FieldInfo f;
        f.name = statement.columnName(i);
        const ColumnOrigin origin = statement.columnOrigin(i);
        f.table = origin.table;
        f.column = origin.column;
        typeFromDeclaration(origin.declaredType.empty() ? nullptr : origin.declaredType.c_str(), f);
        f.updatable =
            !writable.empty() && !f.column.empty() && text::lower(f.table) == text::lower(writable);
        ++seen[text::lower(f.name)];
        set->list.push_back(f);
    }
    // A name that two tables share is told apart by its table, as the old engine does.
    for (auto& f : set->list) {
        if (seen[text::lower(f.name)] < 2 || f.table.empty()) continue;
        std::string qualifier = f.table;
        for (const auto& ref : tables)
            if (text::lower(ref.name) == text::lower(f.table)) qualifier = unbracket(ref.qualifier);
        f.name = qualifier + "." + f.name;
    }
    for (size_t i = 0; i < set->list.size(); ++i) {
        set->exact.emplace(set->list[i].name, static_cast<int>(i));
        set->folded.emplace(text::lower(set->list[i].name), static_cast<int>(i));
    }
    memo = set;
    fieldSet = set;
}

std::vector<Variant> RecordsetImpl::fetchByKeys(const long long* k) {
    fetchStmt->reset();
    bindParams(*fetchStmt);
    for (int i = 0; i < stride; ++i) fetchStmt->bind(paramCount() + 1 + i, Variant(k[i]));
    std::vector<Variant> row;
    if (!fetchStmt->step())
        throwDao(kRecordsetSource, err::kRecordDeleted, "Datensatz ist gelöscht.");
    for (int i = 0; i < fetchStmt->columnCount(); ++i) row.push_back(fetchStmt->column(i));
    fetchStmt->reset();
    return row;
}

const std::vector<Variant>& RecordsetImpl::currentRow() {
    requireCurrent();
    if (!rowCache) rowCache = loadCurrent();
    return *rowCache;
}

Variant RecordsetImpl::converted(const FieldInfo& f, const Variant& v) {
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
                if (s.empty() || *end != '\0')
                    throwDao("DAO.Field", err::kTypeMismatch,
                             "Datentypenkonflikt in Kriterienausdruck.");
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
            if (f.size > 0 && static_cast<long long>(s.size()) > f.size &&
                text::utf8Length(s) > f.size)
                throwDao("DAO.Field", err::kFieldTooSmall,
                         "Das Feld ist zu klein für die Datenmenge, die Sie hinzufügen wollten.");
            return text ? v : Variant(copy);
        }
        default:
            return Variant(v.toString());
    }
}

void RecordsetImpl::setField(int i, const Variant& v) {
    check();
    requireUpdatable();
    if (edit == EditMode::None)
        throwDao("DAO.Field", err::kUpdateWithoutEdit,
                 "Aktualisieren oder Abbrechen ohne Hinzufügen oder Bearbeiten.");
    const FieldInfo& f = fields()[static_cast<size_t>(i)];
    if (!f.updatable)
        throwDao("DAO.Field", err::kFieldNotUpdatable,
                 "Feld '" + f.name + "' kann nicht aktualisiert werden.");
    pending[static_cast<size_t>(i)].emplace(converted(f, v));
}

Variant RecordsetImpl::fieldValue(int i) {
    check();
    if (edit != EditMode::None && pending[static_cast<size_t>(i)])
        return *pending[static_cast<size_t>(i)];
    if (edit == EditMode::Add) return {};
    return currentRow()[static_cast<size_t>(i)];
}

void RecordsetImpl::addNew() {
    check();
    requireUpdatable();
    edit = EditMode::Add;  // a pending row of an earlier AddNew is dropped
    pending.assign(fields().size(), std::nullopt);
}

void RecordsetImpl::beginEdit() {
    check();
    requireUpdatable();
    requireCurrent();
    edit = EditMode::Edit;
    pending.assign(fields().size(), std::nullopt);
}

void RecordsetImpl::update() {
    check();
    if (edit == EditMode::None)
        throwDao(kRecordsetSource, err::kUpdateWithoutEdit,
                 "Aktualisieren oder Abbrechen ohne Hinzufügen oder Bearbeiten.");
    if (edit == EditMode::Add) {
        if (Statement* whole = wholeRowInsert()) {
            // The pending values live until the row is stored.
            for (size_t i = 0; i < fields().size(); ++i) {
                if (pending[i])
                    whole->bindStatic(static_cast<int>(i + 1), *pending[i]);
                else
                    whole->bind(static_cast<int>(i + 1), Variant());
            }
            writeRow(*whole, fields().size());
            inserted();
            edit = EditMode::None;
            pending.clear();
            storedRowsChanged();
            return;
        }
    }
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
        for (size_t i = 0; i < values.size(); ++i)
            st.bindStatic(static_cast<int>(i + 1), *values[i]);
        writeRow(st, values.size());
        inserted();
    } else if (!values.empty()) {
        std::string sets;
        for (size_t i = 0, n = 0; i < fields().size(); ++i) {
            if (pattern[i] != '1') continue;
            sets += (n ? ", " : "") + bracket(fields()[i].column) + " = ?" + std::to_string(n + 1);
            ++n;
        }
        const long long id = currentRowid();
        auto& st = stmt("UPDATE " + baseTable + " SET " + sets + " WHERE rowid = ?" +
                        std::to_string(values.size() + 1));
        for (size_t i = 0; i < values.size(); ++i) st.bind(static_cast<int>(i + 1), *values[i]);
        st.bind(static_cast<int>(values.size() + 1), Variant(id));
        conn->tellRow(ChangeListener::Kind::Update, unbracket(baseTable), id, id);
        st.step();
        rowCache.reset();
    }
    edit = EditMode::None;
    pending.clear();
    storedRowsChanged();  // a stored row is read anew
}

// An insert of the columns, their values bound in order. On a server a new row gets its row id
// from the program, taken from the table's sequence ahead and bound after the values: the insert
// then needs no answer, and the rows go to the server through COPY, many at a time.
std::unique_ptr<Statement> RecordsetImpl::insertOf(std::vector<std::string> columns) const {
    std::string cols, marks;
    for (size_t i = 0; i < columns.size(); ++i) {
        cols += (i ? ", " : "") + bracket(columns[i]);
        marks += (i ? ", ?" : "?") + std::to_string(i + 1);
    }
    if (conn->isServer()) {
        cols += std::string(columns.empty() ? "" : ", ") + "rowid";
        marks += (columns.empty() ? "?" : ", ?") + std::to_string(columns.size() + 1);
        columns.push_back("rowid");
    }
    auto st = conn->prepare(cols.empty() ? "INSERT INTO " + baseTable + " DEFAULT VALUES"
                                         : "INSERT INTO " + baseTable + " (" + cols + ") VALUES (" +
                                               marks + ")");
    st->keep();
    st->copyInto(unbracket(baseTable), columns);
    return st;
}

// Runs an insert whose values are bound, its row id after them on a server, and tells the
// listeners of the new row.
void RecordsetImpl::writeRow(Statement& st, size_t values) {
    if (conn->isServer()) {
        const long long id = conn->reserveRowId(unbracket(baseTable));
        st.bindInteger(static_cast<int>(values + 1), id);
        st.stepWithoutAnswer(id);
    } else {
        st.step();
    }
    conn->tellRow(ChangeListener::Kind::Insert, unbracket(baseTable), 0, conn->lastInsertId());
}

// A table whose columns have no defaults takes a new row through one statement that names
// every column: an unset column is Null either way, and the statement need not be looked up
// anew for each set of columns a row happens to fill.
Statement* RecordsetImpl::wholeRowInsert() {
    if (wholeRowKnown == 0) {
        wholeRowKnown = -1;
        size_t columns = 0;
        bool defaults = false;
        for (const auto& column : conn->columnsOf(unbracket(baseTable))) {
            ++columns;
            defaults = defaults || column.hasDefault;
        }
        bool allFields = columns == fields().size() && columns > 0;
        for (size_t i = 0; allFields && i < fields().size(); ++i) allFields = fields()[i].updatable;
        if (allFields && !defaults) {
            std::vector<std::string> names;
            for (const auto& f : fields()) names.push_back(f.column);
            wholeRow = insertOf(std::move(names));
            wholeRowKnown = 1;
        }
    }
    if (wholeRowKnown < 0) return nullptr;
    wholeRow->reset();
    return wholeRow.get();
}

Statement& RecordsetImpl::insertStatement(const std::string& pattern) {
    // Rows of one table mostly repeat the columns of the row before.
    if (lastInsert && pattern == lastPattern) {
        lastInsert->reset();
        return *lastInsert;
    }
    auto& st = inserts[pattern];
    if (!st) {
        std::vector<std::string> names;
        for (size_t i = 0; i < fields().size(); ++i)
            if (pattern[i] == '1') names.push_back(fields()[i].column);
        st = insertOf(std::move(names));
    }
    st->reset();
    lastPattern = pattern;
    lastInsert = st.get();
    return *st;
}

long long RecordsetImpl::deleteWhere(const std::string& criteria, bool rowsAreNew, bool counted) {
    check();
    requireUpdatable();
    const long long deleted = conn->deleteWhere(
        unbracket(baseTable), jet::prepare(criteria, &conn->catalog()), rowsAreNew, counted);
    rowCache.reset();
    storedRowsChanged();
    return deleted;
}

void RecordsetImpl::cancelUpdate() {
    check();
    edit = EditMode::None;
    pending.clear();
}

void RecordsetImpl::remove() {
    check();
    requireUpdatable();
    const long long id = currentRowid();
    auto& st = stmt("DELETE FROM " + baseTable + " WHERE rowid = ?1");
    st.bind(1, Variant(id));
    conn->tellRow(ChangeListener::Kind::Delete, unbracket(baseTable), id, id);
    st.step();
    rowCache.reset();
    removed();
    deleted = true;
}

void RecordsetImpl::close() {
    closed = true;
    statements.clear();
    inserts.clear();
    lastInsert = nullptr;
    wholeRow.reset();
    wholeRowKnown = 0;
    fetchStmt = nullptr;
    conn.reset();
}

}  // namespace tolma::store
