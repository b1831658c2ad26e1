#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/connection.h"
#include "store/server_session.h"

namespace tolma::store {

// The program's own statements are written in the embedded store's SQL. On a server store the
// same text is sent after a few spellings are changed: parameters ?1, ?, @name become $1, $2,
// [names] become "names" in lower case (the server's tables are made so; names after AS keep
// their spelling, since they are the result's captions, and so do collations), "main." goes,
// "temp." is the server's pg_temp, COLLATE NOCASE goes, INTEGER in a CREATE is bigint.
struct ServerSql {
    std::string text;
    std::vector<std::string> names;  // the named parameters, at their $ number - 1
    int parameters = 0;
    std::vector<bool> used;  // whether $n stands in the text, at n - 1
    bool star = false;       // some select list takes every column of a table
    bool creates = false;    // the text makes a table or index
};
ServerSql toServerSql(std::string_view sql);

// One statement on a server store, as Statement offers it: values bound by number, rows read
// one after the other. The statement runs at the first step; its rows come all at once.
class ServerStatement {
  public:
    ServerStatement(ServerSession& session, std::string_view sql);
    ~ServerStatement();

    void bind(int index, std::optional<std::string> value);  // 1-based
    // Inside a transaction, the rows come through a cursor, `rows` at a time: a walk that seeks
    // again and again reads only what it uses, not the rest of the table each time.
    void pageBy(int rows) { page_ = rows; }
    // The statement runs again and again: prepared on the server once.
    void keep() { keep_ = true; }
    int parameterIndex(const std::string& name) const;  // 0 when the text has no such name
    bool step();
    // Sends the statement with its values without waiting for its answer. `planned` prepares
    // it once for all its runs; without, the server plans each run for the data it finds.
    void send(bool planned = true);
    // The statement inserts one row into `table` (quoted), its values the `columns` (quoted,
    // apart by commas) in order: send() gathers the row for COPY instead.
    void copyInto(std::string table, std::string columns) {
        copyTable_ = std::move(table);
        copyColumns_ = std::move(columns);
    }
    void reset();
    // The rows the statement changed when it ran at the step just made, once; -1 otherwise
    // (a query, or a step to a further row).
    long long takeChanges() {
        const long long n = changes_;
        changes_ = -1;
        return n;
    }
    // The first column of the row a statement ending in RETURNING gave last.
    long long returnedId() const { return returned_; }

    int columnCount();
    std::string columnName(int index);
    // The server's type of a column: 'i' whole number, 'r' real, 'b' bytes, 't' text.
    char typeOf(int index) const;
    bool isNull(int index) const;
    std::string_view text(int index) const;
    ColumnOrigin origin(int index);

  private:
    void run();
    void fetch();
    void closeCursor() noexcept;
    // The result's columns before the statement runs.
    void describe();
    void hideRowIds();
    std::vector<unsigned> parameterTypes() const;
    int at(int index) const;  // the result's column of a column shown; -1 for none

    ServerSession& session_;
    ServerSql sql_;
    std::vector<std::optional<std::string>> values_;
    std::shared_ptr<struct pg_result> result_;
    std::vector<int> shown_;
    std::vector<char> types_;  // typeOf() of each column shown
    int page_ = 0;
    bool keep_ = false;
    std::string copyTable_, copyColumns_;
    std::string cursor_;  // the open cursor's name
    bool more_ = false;   // the cursor may hold rows beyond the page
    int row_ = -1;
    bool ran_ = false;
    long long changes_ = -1;
    long long returned_ = 0;
};

}  // namespace tolma::store
