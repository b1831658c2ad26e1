#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/jet_sql.h"
#include "store/variant.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tolma::store {

class Connection;
class ServerSession;
class ServerStatement;

// Where a column of a result comes from: its table and column, empty for a computed one, and
// its type as a declaration of the embedded store would name it (empty when unknown).
struct ColumnOrigin {
    std::string table, column, declaredType;
};

// The kinds of values a column of a result row holds.
enum class ColumnType { Null, Integer, Real, Text, Blob };

// How the store compares two texts of a column.
using TextCompare = int (*)(std::string_view, std::string_view);

// One prepared statement; bound values are always bound, never pasted.
class Statement {
  public:
    Statement(std::shared_ptr<Connection> connection, const std::string& sql);
    // A statement that the connection itself keeps: it must not keep the connection alive.
    Statement(Connection& connection, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(int index, const Variant& value);  // 1-based
    void bind(const char* name, const Variant& value);
    // Binds without copying: the value must live until the statement has run.
    void bindStatic(int index, const Variant& value);
    // The values of a prepared text to ?1, ?2, ...; those compared with numbers as numbers.
    void bindValues(const std::vector<std::string>& values, const std::vector<bool>& numeric);
    void bindInteger(int index, long long value);
    // Binds without copying: the text must live until the statement has run.
    void bindTextStatic(int index, std::string_view text);
    bool step();  // true while a row is there
    // A walk over many rows that seeks now and then: on a server, inside a transaction, the
    // rows come `rows` at a time. Nothing changes on a file.
    void readInPages(int rows);
    // The statement is run many times: on a server it is prepared there once.
    void keep();
    // Runs an insert no one needs an answer from, which wrote the row `rowid`: on a server it is
    // sent without waiting (a failure shows at the next statement that waits); on a file it
    // runs at once.
    void stepWithoutAnswer(long long rowid);
    // The statement inserts a row into `table`, its parameters the `columns` in order: on a
    // server, stepWithoutAnswer() and send() then gather the row for COPY with others of the
    // table.
    void copyInto(const std::string& table, const std::vector<std::string>& columns);
    // Runs a statement whose answer no one needs: on a server it is sent without waiting (a
    // failure shows at the next statement that waits); on a file it runs at once.
    void send();
    // As send(), for a statement run once in a while over tables that grow meanwhile (an
    // import's): a server plans each run for the data it finds, where a plan made once, while
    // a table was small, would read all of it when it has grown.
    void sendOnce();
    void reset();
    int columnCount() const;
    Variant column(int index) const;  // 0-based
    // A column of the current row as it stands, without a Variant: for reading many rows.
    ColumnType columnType(int index) const;
    bool isNull(int index) const { return columnType(index) == ColumnType::Null; }
    long long columnInteger(int index) const;
    double columnReal(int index) const;
    // The text of a column (a number as text); valid until the statement steps or resets.
    std::string_view columnText(int index) const;
    std::string columnName(int index) const;
    ColumnOrigin columnOrigin(int index) const;
    sqlite3_stmt* handle() const { return stmt_; }
    const std::string& sql() const { return sql_; }

  private:
    void prepareOn(const std::string& sql);

    std::shared_ptr<Connection> owner_;
    Connection* connection_;
    sqlite3_stmt* stmt_ = nullptr;
    std::unique_ptr<ServerStatement> remote_;  // on a server store instead of stmt_
    std::string sql_;
};

// Hears of the rows a connection changes in the tables it watches, one by one, just before each
// change is made, and of the connection's transactions. It must not run statements on the
// connection while it hears of a row.
class ChangeListener {
  public:
    enum class Kind { Insert, Update, Delete };
    struct Change {
        Kind kind;
        size_t table;              // the position among the tables it watches
        long long oldRow, newRow;  // row ids
    };
    // A delete of many rows in one statement: the condition that names them, with its values.
    struct Condition {
        const std::string& sql;
        const std::vector<std::string>& values;
        const std::vector<bool>& numeric;
        // Every row it meets was written in the open transaction.
        bool rowsAreNew;
    };
    virtual void changing(Connection& c, const Change& change) = 0;
    // Before a delete of many rows of a watched table: a listener that takes what it needs of
    // them at once, in one statement of its own, returns true and hears none of them one by one.
    virtual bool deletingWhere(Connection& /*c*/, size_t /*table*/, const Condition& /*where*/) {
        return false;
    }
    // The outermost batch is about to commit: the last moment to write into its transaction.
    virtual void committing(Connection& /*c*/) {}
    // The batch's changes were rolled back (or could not be committed).
    virtual void rolledBack(Connection& /*c*/) noexcept {}
    // The connection closes: an open batch commits without a further committing().
    virtual void closing(Connection& /*c*/) noexcept {}

  protected:
    ~ChangeListener() = default;
};

// One connection per store and process: to a file through SQLite, or to a database on a
// PostgreSQL server when the store's path is a connection text. Every database handle and
// recordset on the same store shares it; it closes when the last of them lets go, and only then
// is a file free to be compacted, replaced or deleted.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    // Beside: a second connection of this process, beside the one it shares; it may write, and
    // leaves the journal as the shared one set it.
    enum class Kind { Shared, Exclusive, ReadOnly, Beside };

    // Opens the file or connects to the server, or shares the connection this process already
    // holds on it.
    static std::shared_ptr<Connection> open(const std::filesystem::path& file, Kind kind);
    // The password for a server's connection text, kept for the running program only: the
    // window asks for it when the server wants one that libpq's own ways do not give.
    static void setServerPassword(const std::string& connectionText, const std::string& password);
    // A connection of its own for reading the file on another thread, beside the one this
    // process shares; it sees what the shared one has committed.
    static std::shared_ptr<Connection> openReader(const std::filesystem::path& file);
    // A connection of its own that may also write, beside the one this process shares: for
    // the search index, which another thread writes into its own file during an import.
    static std::shared_ptr<Connection> openBeside(const std::filesystem::path& file);
    // A connection that holds the index file of a store file and nothing of the store: for
    // reading the index, kept between searches for the pages it has read. None without the file.
    static std::shared_ptr<Connection> openIndexReader(const std::filesystem::path& file);
    // True while some handle of this process holds the file.
    static bool isOpen(const std::filesystem::path& file);

    // A store file keeps its search index in a file of its own beside it, so that one thread
    // may write the index while another writes the data: SQLite lets one writer at a time into
    // a file. Its tables are named "suche.…" on a connection that holds it.
    static constexpr const char* kIndexSchema = "suche";
    static std::filesystem::path indexFileOf(const std::filesystem::path& file);
    // Holds the index file, made empty where `create` and it is missing; outside a transaction.
    // Returns whether it is held. Held by connections of their own (openBeside()): a
    // connection that reads the index while its recordsets read the store would go on seeing
    // the index as it was when they began, and could not write it after another connection did.
    bool holdIndexFile(bool create);
    // Whether no other connection may open the file while this one holds it.
    bool exclusive() const { return kind_ == Kind::Exclusive; }

    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    sqlite3* handle() const { return db_; }
    // The file, or for a server store its connection text.
    const std::filesystem::path& file() const { return file_; }
    // Whether the store is on a server; its SQL then differs in places.
    bool isServer() const { return server_ != nullptr; }
    ServerSession* server() const { return server_.get(); }
    // On a server store: a second session to the same database, with the password this one
    // was given (for what must not share the first one's transactions).
    std::unique_ptr<ServerSession> connectAnother() const;
    std::unique_ptr<Statement> prepare(const std::string& sql);
    // Runs one statement without result rows; returns the number of rows it changed.
    long long execute(const std::string& sql, const std::vector<Variant>& params = {});
    // A statement kept for reuse, reset and ready for binding.
    Statement& cached(const std::string& sql);

    // A value kept with the connection under a key, for what is worked out once per query shape.
    std::shared_ptr<const void>& memo(const std::string& key) { return memo_[key]; }

    // The key columns of this store, for the translation of query texts.
    const jet::Catalog& catalog();

    // Changes made through this connection so far; a cheap test whether cached counts hold.
    long long totalChanges() const;
    // Rows changed by the last statement that changed any.
    long long changes() const;
    // The row id of the row the last insert wrote.
    long long lastInsertId() const;
    // On a server: a row id for a new row of the table, from its sequence.
    long long reserveRowId(const std::string& table);

    struct ColumnInfo {
        std::string name;
        bool hasDefault;
    };
    // The columns of a table, in their order; the server's row id column is none of them.
    std::vector<ColumnInfo> columnsOf(const std::string& table);
    // Those columns quoted and apart by commas, each after `prefix` ("t."): what "*" names in
    // the embedded store, where the server's "*" would add its row id.
    std::string columnList(const std::string& table, const std::string& prefix = {});

    // The listener hears of every change to these tables of the main database from now on;
    // several listeners may watch at once. unwatch() tells whether it was watching.
    void watch(ChangeListener& listener, std::vector<std::string> tables);
    bool unwatch(ChangeListener& listener);

    // On a server store nothing hears the rows as they change: the recordsets tell of each
    // before it changes (of an insert after it), as SQLite's hook does for a file. Nothing
    // happens on a file store, whose hook tells already.
    void tellRow(ChangeListener::Kind kind, const std::string& table, long long oldRow,
                 long long newRow);

    // Deletes the rows of a table that a condition names, in one statement; the listeners that
    // watch the table hear of it first. Returns the number of rows deleted (see
    // Recordset::deleteWhere for `counted`).
    long long deleteWhere(const std::string& table, const jet::Prepared& where, bool rowsAreNew,
                          bool counted = true);

    // Whether the store holds a table of that name (in a file store: in the given schema).
    bool hasTable(const std::string& name, const std::string& schema = "main");
    // Runs `create` (a CREATE TABLE … of `table`, with what goes with it) where the store
    // lacks the table. A server refuses even CREATE … IF NOT EXISTS to a login that may write
    // into the tables but not create any, as the set-up's roles are.
    void createIfMissing(const std::string& table, const std::vector<std::string>& create);
    // Whether a column of a table holds texts.
    bool isTextColumn(const std::string& table, const std::string& column);

    // While on, what is deleted is overwritten in the file rather than only marked free: for
    // data that must be gone, not merely unreachable.
    void setSecureDelete(bool on);

    // After many rows were written: a server whose own upkeep is off learns its tables anew,
    // so that it plans the next statements for what they hold (tables the login does not own
    // are left out). Where the upkeep is on, it measures them in its own process, and the clerk
    // does not wait. Never raises: the rows are written either way.
    void refreshStatistics() noexcept;
    // After the first rows went into tables the server has never measured: it measures those.
    // Until then it plans for each as if it held a row or two, and a look-up by a list of
    // numbers reads a whole table for each list. Never raises.
    void measureNewTables() noexcept;

    // "rowid is one of the row ids `select` gives", as a condition. The server takes the ids
    // as one array first, so that it looks the rows up by their index whatever it guesses of
    // the row ids' table (one filled in the same transaction looks empty to it).
    std::string rowIdAmong(const std::string& select, const std::string& rowid = "rowid") const;

    // A column as an ORDER BY term: a text in German order (the store's own collation where
    // `german` is false, for key columns), a number as a number; DESC where asked.
    std::string orderTerm(const std::string& table, const std::string& column, bool german,
                          bool descending);
    // A condition that a column is at or after (at or before) a bound value in that order.
    std::string atLeast(const std::string& table, const std::string& column, bool german,
                        const std::string& parameter);
    std::string atMost(const std::string& table, const std::string& column, bool german,
                       const std::string& parameter);
    // A condition that a column holds one of a list bound as one value (listValue()), of whole
    // numbers where asked. On a server the statement is best planned for its list, not kept.
    std::string isOneOf(const std::string& column, const std::string& parameter,
                        bool wholeNumbers = false);
    // The texts of a list as the one value isOneOf() binds.
    std::string listValue(const std::vector<std::string>& texts) const;

    // How the store compares texts of a table's column: by the column's collation.
    TextCompare columnCompare(const std::string& table, const std::string& column);
    // Whether that collation compares by bytes, so that a client may look its values up as
    // the store's "=" finds them.
    bool comparesBytes(const std::string& table, const std::string& column);

    // The import writes in batches: one transaction over many records.
    void beginBatch();
    void commitBatch();
    // On a server, sends the outermost batch's COMMIT behind the work sent ahead and returns
    // at once, so the next batch is worked out while the server stores this one; the number
    // it returns goes to awaitCommit(), which raises where the commit failed. A file commits
    // at once (and returns 0), as an inner batch only counts down.
    size_t commitBatchBehind();
    void awaitCommit(size_t ticket);
    // Whether awaitCommit() would return (or raise) at once.
    bool commitEnded(size_t ticket) const;
    // Drops everything since the outermost beginBatch(): a check that must leave no trace.
    void rollbackBatch() noexcept;
    // Whether a transaction is open. SQLite ends one on its own after some failures (a full
    // disk at commit): a ROLLBACK then would fail and hide the cause.
    bool inTransaction() const;
    // Ends the open transaction without its changes, if one is open; never raises.
    void rollbackOpen() noexcept;
    // Many reads side by side that must see the store as it stood when they began, whatever
    // another workstation commits meanwhile (the export's scans). On a server they read in a
    // transaction of one snapshot, which its cursors need anyway; a file's reads need none.
    // Returns whether a transaction was begun, for rollbackOpen() to end.
    bool beginReading();
    // On a server, the snapshot of the reading this connection began, named for another
    // connection to read in as well (beginReadingIn): both then see the same store.
    std::string shareReading();
    void beginReadingIn(const std::string& snapshot);
    bool inBatch() const { return batchDepth_ > 0; }

    [[noreturn]] void fail(const std::string& source, const std::string& context) const;

  private:
    struct Watcher {
        ChangeListener* listener;
        std::vector<std::string> tables;
        size_t lastTable = 0;
        bool quiet = false;  // hears no deleted or changed row of the running statement
    };
    // Tells every watcher; stops at the first that raises.
    template <typename Tell>
    void tellWatchers(Tell tell);
    template <typename Tell>
    void tellWatchersNoexcept(Tell tell) noexcept;
    static void changeHook(void* self, ::sqlite3* db, int op, const char* database,
                           const char* table, long long oldRow, long long newRow);
    void tellWatchersOfRow(ChangeListener::Kind kind, const char* table, long long oldRow,
                           long long newRow);

    friend class Statement;
    Connection(std::filesystem::path file, std::string key);
    static std::shared_ptr<Connection> connectServer(const std::string& text);
    static std::shared_ptr<Connection> createServer(const std::string& text,
                                                    const std::string& key);
    // Opens and configures the file, under a key of the registry or none.
    static std::shared_ptr<Connection> create(const std::filesystem::path& file,
                                              const std::string& key, Kind kind);
    void configure(Kind kind);
    std::string compared(const std::string& table, const std::string& column, bool german,
                         const std::string& op, const std::string& parameter);

    sqlite3* db_ = nullptr;
    std::unique_ptr<ServerSession> server_;
    long long serverChanges_ = 0, serverTotalChanges_ = 0, serverLastId_ = 0;
    // The server's database compares texts by their bytes (a "C" collation): its indexes then
    // serve the orders the program compares byte by byte.
    bool serverSortsBytes_ = false;
    bool holdsIndex_ = false;
    Kind kind_ = Kind::Shared;
    std::unordered_map<std::string, std::vector<long long>> reservedIds_;  // in reverse order
    struct Sequence {
        std::string name;     // of a table's row ids, quoted
        long long ahead = 0;  // how many the last look-up took
        // The next piece, asked for behind the work sent ahead: filled on the thread doing it.
        struct Coming {
            size_t job = 0;
            std::vector<long long> ids;  // in reverse order
        };
        std::shared_ptr<Coming> coming;
    };
    std::unordered_map<std::string, Sequence> sequences_;
    static std::string piece(const Sequence& sequence);  // the query for its next numbers
    std::filesystem::path file_;
    std::string key_;
    int batchDepth_ = 0;
    size_t commitOuterBatch(bool behind);
    void failedCommit() noexcept;
    std::vector<Watcher> watchers_;
    std::unordered_map<std::string, std::unique_ptr<Statement>> cache_;
    std::unordered_map<std::string, std::shared_ptr<const void>> memo_;
    std::unique_ptr<jet::Catalog> catalog_;
};

}  // namespace tolma::store
