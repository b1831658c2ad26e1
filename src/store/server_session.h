#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "store/dao_error.h"

typedef struct pg_conn PGconn;
typedef struct pg_result PGresult;

namespace tolma::store {

using ServerValue = std::optional<std::string>;  // a value as text; none for NULL
using ServerRow = std::vector<ServerValue>;

// The rows of a query, every value as the server writes it as text.
struct ServerResult {
    std::vector<std::string> columns;
    std::vector<ServerRow> rows;
};

// One connection to a PostgreSQL server. Every failure is a DaoError whose German text names
// the cause and the server (as describeServer gives it) and never holds a password.
class ServerSession {
  public:
    // Connects with a connection text; a password given here overrides one in the text.
    static std::unique_ptr<ServerSession> connect(const std::string& text,
                                                  const std::string& password = {});
    ~ServerSession();
    ServerSession(const ServerSession&) = delete;
    ServerSession& operator=(const ServerSession&) = delete;

    // Runs a statement with its $1, $2, … bound as text; returns the rows it changed.
    long long execute(const std::string& sql, const std::vector<ServerValue>& params = {});
    ServerResult query(const std::string& sql, const std::vector<ServerValue>& params = {});

    // Runs a statement with its parameters as text (null for NULL) and keeps the result as the
    // server gave it; a failure raises.
    // `types` gives a parameter's type number where the text does not show it (0: inferred).
    std::shared_ptr<PGresult> run(const std::string& sql, const std::vector<const char*>& values,
                                  const std::vector<unsigned>& types = {});

    // The columns a statement's rows would have, without running it.
    std::shared_ptr<PGresult> describe(const std::string& sql, const std::vector<unsigned>& types);

    // BEGIN; behind the work sent ahead where there is some (a commit sent behind).
    void begin();
    void commit();
    // Sends COMMIT behind the work sent ahead and returns at once; the number it returns is
    // for awaitCommit(), which raises where the commit failed. Any other use of the connection
    // waits for it as for any work behind.
    size_t commitBehind();
    void awaitCommit(size_t ticket);
    // Whether that commit is done or given up, without waiting.
    bool commitEnded(size_t ticket) const;
    void rollback();
    // Runs `work` in one transaction: committed when it returns, rolled back when it raises.
    void transaction(const std::function<void()>& work);
    // Whether a transaction is open on the connection (also one that failed and waits for its
    // ROLLBACK).
    bool inTransaction();

    // The name of the statement prepared on the server for a text, prepared at its first use:
    // a statement run many times is parsed and planned once.
    const std::string& prepared(const std::string& sql, const std::vector<unsigned>& types);
    // Runs a prepared statement, or sends it without waiting for its answer (an insert with its
    // row id given): such statements go one after the other without a round trip each, and a
    // failure among them is raised by the next statement that waits.
    std::shared_ptr<PGresult> runPrepared(const std::string& name,
                                          const std::vector<const char*>& values);
    void sendPrepared(const std::string& name, const std::vector<const char*>& values);
    // Sends a statement as run() runs it, without waiting for its answer.
    void sendText(const std::string& sql, const std::vector<const char*>& values,
                  const std::vector<unsigned>& types);
    // Gathers a row for `table` (its `columns` quoted and apart by commas) that is written
    // through COPY with the others of the same table before the next statement runs: many
    // rows at a time cost the server far less than an insert each. A failure among them is
    // raised by that statement.
    void queueCopy(const std::string& table, const std::string& columns,
                   const std::vector<ServerValue>& row);

    // Runs a query behind the work sent ahead and hands its rows to `take`, on the thread that
    // does that work; returns the number for awaitJob(). A failure is raised as any behind.
    size_t queryBehind(const std::string& sql, std::function<void(ServerResult&&)> take);
    // Waits until the job of that number is done or skipped after a failure; raises nothing.
    void awaitJob(size_t number);

    // Waits for what was sent and writes the rows gathered; raises the first failure.
    void drain();

    // Takes out of the rows gathered for `table` those whose columns hold exactly the texts
    // given (column name, unquoted, and its text); returns how many, or nothing where a list
    // of the table's rows lacks one of the columns and cannot be judged. A row deleted before
    // it was ever written costs no COPY of its own.
    std::optional<long long> dropGathered(
        const std::string& table, const std::vector<std::pair<std::string, std::string>>& equal);
    // While a table is spared, statements leave its gathered rows unwritten: they are known to
    // look only at rows that none of them can be.
    void spare(const std::string& table) { spared_ = table; }
    void spareNone() { spared_.clear(); }
    // Whether the open transaction made triggers, which may write where a statement does not say.
    bool madeTriggers() const { return triggers_; }
    // Whether rows of a table (quoted, as rows are gathered under) may have reached the server
    // since the transaction began: through COPY, or a statement that inserts or updates.
    bool wroteTo(const std::string& table) const;

    // The name of a table and of its column from the numbers a result gives for them.
    std::string tableName(unsigned oid);
    std::string columnName(unsigned oid, int number);

    // Writes rows into a table through COPY in text format; returns the rows written.
    long long copyIn(const std::string& table, const std::vector<std::string>& columns,
                     const std::vector<ServerRow>& rows);

    const std::string& server() const { return server_; }

    // A notification of another session, as LISTEN hears it.
    struct Notice {
        std::string channel, payload;
    };
    // The notifications that came since the last call, without waiting; those this session
    // sent itself are left out. Reads only while no statement waits for its answer.
    std::vector<Notice> notices();
    // Whether the connection to the server broke (a restart, the network).
    bool isBroken() const;

  private:
    ServerSession(PGconn* conn, std::string server, std::vector<std::string> secrets);
    [[noreturn]] void fail(const std::string& what) const;
    // Waits for what was sent and writes the rows gathered for the tables the statement names
    // (all of them for another kind of statement, or an empty text); for a statement that is
    // itself sent `behind`, the rows go ahead of it without waiting.
    void drainFor(const std::string& sql, bool behind = false);
    // The rows of a result, which it frees; raises where the result is a failure.
    ServerResult rowsOf(PGresult* answer) const;
    // COMMIT, raising where the server refused it or took the transaction back.
    void sendCommit();
    // Writes the rows gathered for the tables `sql` names (all for an empty text); `behind`
    // writes them on a thread of its own, see behind().
    void writeCopies(const std::string& sql, bool behind = false);
    // One COPY of rows in COPY's text form; returns the rows written.
    long long copyText(const std::string& table, const std::string& columns,
                       const std::string& data);
    // Rows gathered for COPY, by table and column list in the order they first came.
    struct CopyRows {
        std::string table, columns, data;
        // Lines taken out before they were written (begin, end), and where the lines stand by
        // the text of one column, learnt as far as `indexedTo` once a delete asks.
        std::vector<std::pair<size_t, size_t>> dropped;
        size_t droppedBytes = 0;
        int indexedColumn = -1;
        size_t indexedTo = 0;
        std::unordered_multimap<std::string, size_t> lineAt;
        // The lines still to be written.
        std::string kept() const;
    };
    std::vector<CopyRows> copies_;
    // Work no one waits for, done in order on a thread of its own while this one goes on: the
    // COPYs of gathered rows and the statements sent without waiting for their answer, so the
    // server stores a piece while the program works out the next. Every other use of the
    // connection waits for that work first (awaitBehind) and raises its failure there: to the
    // caller, it was done in its place between the statements.
    // Returns the job's number, counted from 1 in the order the jobs are done. A job that
    // commits is noted where it fails or is skipped, for awaitCommit() to raise.
    size_t behind(std::function<void()> job, bool commits = false);
    void work();
    void awaitBehind(bool raise = true);
    bool idle() const;
    void copyAll(const std::vector<CopyRows>& copies);
    std::thread worker_;
    mutable std::mutex behindLock_;
    std::condition_variable behindMoved_;
    struct Job {
        std::function<void()> run;
        bool commits = false;
    };
    std::deque<Job> jobs_;
    bool working_ = false, stopping_ = false;
    std::exception_ptr behindFailed_;  // the first failure behind; what follows it is skipped
    size_t jobsSent_ = 0, jobsDone_ = 0;
    // The commits sent behind that were not done, by number, and the failure that stopped them.
    std::map<size_t, std::exception_ptr> lostCommits_;
    size_t copyBytes_ = 0;
    bool triggers_ = false;  // the transaction made triggers
    // The tables rows went to since BEGIN (quoted); "*" where a statement's could not be told.
    std::set<std::string> wrote_;
    std::string spared_;                         // a table whose gathered rows stay unwritten
    std::map<std::string, std::string> textOf_;  // prepared statement's name → text

    PGconn* conn_;
    std::string server_;                // describeServer of the connection text
    std::vector<std::string> secrets_;  // passwords, kept only to clean messages of them
    std::map<std::pair<unsigned, int>, std::string> names_;  // (table, 0) and (table, column)
    std::map<std::string, std::string> prepared_;            // text → name
};

// Connects and makes sure the database holds a store that was set up; raises a DaoError with
// the cause otherwise.
void checkServerStore(const std::string& text, const std::string& password = {});

// Whether a failed connect wants a password that neither the text nor the caller gave: the
// GUI asks for one and connects again.
bool needsPassword(const DaoError& e);

// A name quoted for SQL: "betr-nr".
std::string quoteIdentifier(const std::string& name);
// One line of COPY's text format appended to `out`: values apart by tabs, NULL as \N, and
// backslash, tab and line ends escaped.
void appendCopyLine(std::string& out, const ServerRow& row);

}  // namespace tolma::store
