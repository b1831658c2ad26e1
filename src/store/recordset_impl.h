#pragma once

#include <chrono>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "store/connection.h"
#include "store/jet_sql.h"
#include "store/recordset.h"

namespace tolma::store {

inline constexpr const char* kRecordsetSource = "DAO.Recordset";

[[noreturn]] void throwNoCurrentRecord();
std::string bracket(const std::string& name);

// The fields of a query shape, described once per connection and shared by its recordsets.
struct FieldSet {
    std::vector<FieldInfo> list;
    std::unordered_map<std::string, int> exact, folded;
};

// The cursor behind a Recordset. Its kinds (a live table, a keyset of a query, a snapshot of
// a grouped or distinct query) differ in how they move and read rows; the fields, the
// position flags and the writing of rows are common to all.
class RecordsetImpl {
  public:
    enum class EditMode { None, Edit, Add };

    RecordsetImpl(std::shared_ptr<Connection> connection, std::string source)
        : conn(std::move(connection)), name(std::move(source)) {}
    virtual ~RecordsetImpl() = default;

    std::shared_ptr<Connection> conn;
    std::string name;
    bool closed = false;
    std::shared_ptr<const FieldSet> fieldSet;
    const std::vector<FieldInfo>& fields() const { return fieldSet->list; }
    bool updatable = false;
    std::string baseTable;  // bracketed, for writing

    // Position, as the old engine keeps it.
    bool bof = true, eof = true, deleted = false;
    bool noMatch = false;
    EditMode edit = EditMode::None;

    // ---- what each kind does its own way -------------------------------------------------
    virtual long count() = 0;
    virtual void moveFirst() = 0;
    virtual void moveLast() = 0;
    virtual void moveNext() = 0;
    virtual void movePrevious() = 0;
    virtual long position() = 0;  // -1 without a current row
    virtual void setPosition(long p) = 0;
    virtual std::vector<Variant> rowAt(long p) = 0;
    // The last row, without moving to it.
    virtual std::vector<Variant> lastRow() { return rowAt(count() - 1); }
    virtual void find(const std::string& criteria, bool fromStart) = 0;
    // The rows read so far, while a long query is still read behind its first screen; the
    // whole count once readAhead() said it is done.
    virtual long knownCount() { return count(); }
    virtual bool countFinal() { return true; }
    // Reads on for about this long; true once every row is known.
    virtual bool readAhead(std::chrono::milliseconds) { return true; }

    // ---- common to all kinds -------------------------------------------------------------
    void check() const;
    void setMoveListener(std::function<void()> listener) { onMove = std::move(listener); }
    void moved() {
        if (onMove) onMove();
    }
    const std::vector<Variant>& currentRow();
    Variant fieldValue(int i);
    void setField(int i, const Variant& v);
    void addNew();
    void beginEdit();
    void update();
    void cancelUpdate();
    void remove();
    long long deleteWhere(const std::string& criteria, bool rowsAreNew, bool counted);
    void close();

  protected:
    // The current row read from the store or the cursor's own rows.
    virtual std::vector<Variant> loadCurrent() = 0;
    // The base table's row id of the current row; only writable kinds are asked.
    virtual long long currentRowid() = 0;
    // After a row was added, or the current row deleted, through this recordset.
    virtual void inserted() {}
    virtual void removed() {}
    // Rows of the store changed: whatever was read ahead is stale.
    virtual void storedRowsChanged() {}

    Statement& stmt(const std::string& sql);
    void requireCurrent();
    void requireUpdatable();
    // Names, types and sizes of a statement's columns; kept per connection under `key`, so
    // that recordsets of one shape describe their fields once. `writable` names the base table
    // whose columns can be written, if any.
    void describe(Statement& statement, const std::string& key,
                  const std::vector<jet::TableRef>& tables, const std::string& writable);
    // A row of the base tables by its row ids, one per table.
    std::vector<Variant> fetchByKeys(const long long* k);
    void bindParams(Statement& st) const { st.bindValues(params, numericParams); }
    int paramCount() const { return static_cast<int>(params.size()); }

    int stride = 1;                  // row ids per row: one per table of the query
    Statement* fetchStmt = nullptr;  // kept by the connection, shared by queries of one shape
    // The values of the query text, bound to every statement built from it.
    std::vector<std::string> params;
    std::vector<bool> numericParams;
    std::optional<std::vector<Variant>> rowCache;

  private:
    Variant converted(const FieldInfo& f, const Variant& v);
    Statement& insertStatement(const std::string& pattern);
    Statement* wholeRowInsert();
    std::unique_ptr<Statement> insertOf(std::vector<std::string> columns) const;
    void writeRow(Statement& st, size_t values);

    std::function<void()> onMove;
    std::map<std::string, std::unique_ptr<Statement>> statements;
    std::vector<std::optional<Variant>> pending;
    std::unordered_map<std::string, std::unique_ptr<Statement>> inserts;
    std::string lastPattern;
    Statement* lastInsert = nullptr;
    std::unique_ptr<Statement> wholeRow;
    int wholeRowKnown = 0;  // 0 not yet asked, 1 usable, -1 not for this recordset
};

}  // namespace tolma::store
