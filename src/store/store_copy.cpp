#include "store/store_copy.h"

#include <algorithm>

#include "store/dao_error.h"
#include "store/jet_sql.h"
#include "store/server_session.h"
#include "text/text.h"

namespace tolma::store {
namespace {

// Rows go to a server in pieces of this many: one COPY per piece, memory kept small.
constexpr size_t kPiece = 20000;

long long countOf(Connection& c, const std::string& table) {
    auto st = c.prepare("SELECT count(*) FROM " + jet::quoteName(table));
    return st->step() ? st->columnInteger(0) : 0;
}

std::vector<std::string> commonColumns(Connection& from, Connection& to, const std::string& table) {
    std::vector<std::string> target;
    for (const auto& c : to.columnsOf(table)) target.push_back(text::lowerAscii(c.name));
    std::vector<std::string> out;
    for (const auto& c : from.columnsOf(table))
        if (std::find(target.begin(), target.end(), text::lowerAscii(c.name)) != target.end())
            out.push_back(c.name);
    return out;
}

// Whether a table has row ids to keep: every table of a file has them, a server's table where
// the program made it with one.
bool keepsRowIds(Connection& c, const std::string& table) {
    if (!c.isServer()) return true;
    return !c.server()
                ->query(
                    "SELECT 1 FROM information_schema.columns WHERE table_schema = "
                    "current_schema() AND table_name = $1 AND column_name = 'rowid'",
                    {text::lowerAscii(table)})
                .rows.empty();
}

ServerValue valueOf(const Statement& st, int i) {
    if (st.isNull(i)) return std::nullopt;
    return std::string(st.columnText(i));
}

long long copyToServer(Statement& rows, ServerSession& server, const std::string& table,
                       const std::vector<std::string>& columns, bool ids) {
    std::vector<std::string> names;
    if (ids) names.push_back("rowid");
    names.insert(names.end(), columns.begin(), columns.end());
    std::vector<ServerRow> piece;
    long long written = 0;
    const int n = static_cast<int>(names.size());
    auto flush = [&] {
        if (!piece.empty()) written += server.copyIn(text::lowerAscii(table), names, piece);
        piece.clear();
    };
    while (rows.step()) {
        ServerRow row;
        row.reserve(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) row.push_back(valueOf(rows, i));
        piece.push_back(std::move(row));
        if (piece.size() >= kPiece) flush();
    }
    flush();
    if (!ids) return written;
    // New rows written later take ids after the copied ones.
    server.execute("SELECT setval(pg_get_serial_sequence($1, 'rowid'), max(rowid)) FROM " +
                       quoteIdentifier(text::lowerAscii(table)) + " HAVING count(*) > 0",
                   {quoteIdentifier(text::lowerAscii(table))});
    return written;
}

long long copyToFile(Statement& rows, Connection& to, const std::string& table,
                     const std::vector<std::string>& columns, bool ids) {
    std::string names = ids ? "rowid" : "", marks = ids ? "?1" : "";
    for (size_t i = 0; i < columns.size(); ++i) {
        const int k = static_cast<int>(i) + (ids ? 2 : 1);
        names += (names.empty() ? "" : ", ") + jet::quoteName(columns[i]);
        marks += (marks.empty() ? "?" : ", ?") + std::to_string(k);
    }
    auto insert = to.prepare("INSERT INTO " + jet::quoteName(table) + " (" + names + ") VALUES (" +
                             marks + ")");
    long long written = 0;
    const int n = static_cast<int>(columns.size()) + (ids ? 1 : 0);
    while (rows.step()) {
        insert->reset();
        for (int i = 0; i < n; ++i) insert->bind(i + 1, rows.column(i));
        insert->step();
        ++written;
    }
    return written;
}

}  // namespace

std::vector<std::string> tableNames(Connection& c) {
    std::vector<std::string> out;
    if (c.isServer()) {
        const auto r = c.server()->query(
            "SELECT table_name FROM information_schema.tables WHERE table_schema = "
            "current_schema() AND table_type = 'BASE TABLE' ORDER BY table_name");
        for (const auto& row : r.rows) out.push_back(row[0].value_or(""));
        return out;
    }
    auto st = c.prepare(
        "SELECT name FROM main.sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' "
        "ESCAPE '\\' ORDER BY name");
    while (st->step()) out.push_back(st->column(0).toString());
    return out;
}

long long rowsIn(Connection& c, const std::vector<std::string>& tables) {
    long long n = 0;
    for (const auto& t : tables)
        if (c.hasTable(t)) n += countOf(c, t);
    return n;
}

std::vector<CopiedTable> copyTables(Connection& from, Connection& to,
                                    const std::vector<std::string>& tables,
                                    const std::function<void()>& prepareTarget,
                                    std::vector<std::string>* left) {
    std::vector<CopiedTable> done;
    to.beginBatch();
    try {
        if (prepareTarget) prepareTarget();
        for (const auto& table : tables) {
            if (left && !to.hasTable(table)) {
                left->push_back(table);
                continue;
            }
            const auto columns = commonColumns(from, to, table);
            if (columns.empty()) continue;
            const bool ids = keepsRowIds(from, table) && keepsRowIds(to, table);
            std::string list = ids ? "rowid" : "";
            for (const auto& c : columns) list += (list.empty() ? "" : ", ") + jet::quoteName(c);
            auto rows = from.prepare("SELECT " + list + " FROM " + jet::quoteName(table) +
                                     " ORDER BY " + (ids ? "rowid" : "1"));
            const long long written = to.isServer()
                                          ? copyToServer(*rows, *to.server(), table, columns, ids)
                                          : copyToFile(*rows, to, table, columns, ids);
            const long long there = countOf(to, table), here = countOf(from, table);
            if (there != here || written != here)
                throwDao("DAO.Database", err::kEngineError,
                         "Die Kopie der Tabelle " + table +
                             " ist unvollständig: " + std::to_string(here) +
                             " Zeilen in der Quelle, " + std::to_string(there) + " im Ziel.");
            done.push_back({table, here});
        }
        to.commitBatch();
    } catch (...) {
        to.rollbackBatch();
        throw;
    }
    return done;
}

}  // namespace tolma::store
