#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "store/variant.h"

namespace tolma::store {

class Connection;
class RecordsetImpl;

// Field types of the old engine, as the system tests them.
namespace dao {
inline constexpr int dbBoolean = 1;
inline constexpr int dbInteger = 3;
inline constexpr int dbLong = 4;
inline constexpr int dbDouble = 7;
inline constexpr int dbDate = 8;
inline constexpr int dbText = 10;
inline constexpr int dbMemo = 12;
inline constexpr int dbOpenDynaset = 2;
}  // namespace dao

// What a recordset knows of one of its columns.
struct FieldInfo {
    std::string name;    // the recordset's name for it; "table.field" where two tables share it
    std::string table;   // base table, empty for an expression
    std::string column;  // column of the base table
    int type = dao::dbText;
    int size = 0;
    bool updatable = false;
};

// One field of the current row of a recordset.
class Field {
  public:
    Field(std::shared_ptr<RecordsetImpl> rs, int index) : rs_(std::move(rs)), index_(index) {}

    const std::string& Name() const;
    int Type() const;
    int Size() const;
    Variant Value() const;
    void setValue(const Variant& value);

  private:
    std::shared_ptr<RecordsetImpl> rs_;
    int index_;
};

// A recordset of the old data engine over SQLite. A table name gives a live, writable view of
// the whole table; a query on one table alone is writable too; a query over a join is
// read-only; a grouped or distinct query is a read-only snapshot. Copies share one cursor, as
// object references of the old platform do.
class Recordset {
  public:
    Recordset() = default;
    static Recordset open(std::shared_ptr<Connection> connection, const std::string& source);

    bool isSet() const { return impl_ != nullptr; }
    const std::string& Name() const;
    bool Updatable() const;

    long RecordCount() const;  // whole: a long query is read to its end first
    // The rows known so far: a long list shows its first screen before the rest is read.
    long KnownCount() const;
    bool CountFinal() const;  // whether KnownCount() is the whole count
    // Reads on behind the first screen for about this long; true once every row is known.
    bool ReadAhead(int milliseconds) const;
    bool Eof() const;
    bool Bof() const;
    long AbsolutePosition() const;  // -1 without a current row
    void setAbsolutePosition(long position);
    void MoveFirst();
    void MoveLast();
    void MoveNext();
    void MovePrevious();

    void FindFirst(const std::string& criteria);
    void FindNext(const std::string& criteria);
    bool NoMatch() const;

    void AddNew();
    void Edit();
    void Update();
    void CancelUpdate();
    void Delete();
    bool editing() const;
    // Deletes every row of the base table that meets the criteria, in one statement; the
    // import's removal of old rows. Returns the number of rows deleted. `rowsAreNew` says that
    // every row met was written in the open transaction (listeners keeping old images need none).
    // Not `counted`, a server takes the statement without being waited for, and the count is
    // only of the rows taken out before they were written (a failure shows at the next
    // statement that waits).
    long long deleteWhere(const std::string& criteria, bool rowsAreNew = false,
                          bool counted = true);

    int FieldCount() const;
    Field Fields(int index) const;
    Field Fields(const std::string& name) const;
    const std::vector<FieldInfo>& fieldInfos() const;
    int fieldIndex(const std::string& name) const;  // -1 if there is no such field

    // The values of the current row, in the order of fieldInfos().
    const std::vector<Variant>& currentRow() const;
    // A row by its place, without moving the current row (for grids that fetch lazily).
    std::vector<Variant> rowAt(long position) const;
    // The last row, without moving there: a long list still read behind its first screen is
    // asked for it rather than read to its end.
    std::vector<Variant> LastRow() const;

    void Close();

    // Called after every move of the cursor; a data control raises its Reposition with it.
    void setMoveListener(std::function<void()> listener) const;

  private:
    RecordsetImpl& impl() const;
    std::shared_ptr<RecordsetImpl> impl_;
};

}  // namespace tolma::store
