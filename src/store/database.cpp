#include "store/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>

#include "store/connection.h"
#include "store/dao_error.h"
#include "store/jet_sql.h"
#include "text/text.h"

namespace tolma::store {

namespace {
QueryTrace* activeTrace = nullptr;
}

QueryTrace::QueryTrace() : previous_(activeTrace) {
    activeTrace = this;
}

QueryTrace::~QueryTrace() {
    activeTrace = previous_;
}

void Database::trace(const std::string& text) const {
    if (activeTrace) activeTrace->entries_.push_back({connection()->file(), text});
}

Database Database::OpenDatabase(const std::filesystem::path& name, bool exclusive, bool readOnly,
                                const std::string& /*connect*/) {
    // The password of the old settings store has no counterpart in SQLite: the store is a
    // file in the program's own directory.
    Database db;
    auto kind = readOnly    ? Connection::Kind::ReadOnly
                : exclusive ? Connection::Kind::Exclusive
                            : Connection::Kind::Shared;
    db.connection_ = Connection::open(name, kind);
    return db;
}

Database Database::CreateDatabase(const std::filesystem::path& name) {
    if (std::filesystem::exists(name))
        throwDao("DAO.DBEngine", err::kDatabaseExists,
                 "Die Datenbank '" + name.string() + "' existiert bereits.");
    sqlite3* db = nullptr;
    const int rc =
        sqlite3_open_v2(name.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc == SQLITE_OK) sqlite3_exec(db, "PRAGMA user_version = 420", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    if (rc != SQLITE_OK)
        throwDao("DAO.DBEngine", err::kCannotOpen,
                 "Die Datenbank '" + name.string() + "' kann nicht angelegt werden.");
    return OpenDatabase(name);
}

const std::shared_ptr<Connection>& Database::connection() const {
    if (!connection_)
        throwDao("DAO.Database", err::kObjectNotSet,
                 "Objektvariable oder With-Blockvariable nicht festgelegt.");
    return connection_;
}

const std::filesystem::path& Database::Name() const {
    return connection()->file();
}

Recordset Database::OpenRecordset(const std::string& source, int /*type*/) const {
    trace(source);
    return Recordset::open(connection(), source);
}

long long Database::Execute(const std::string& sql) const {
    trace(sql);
    const auto& c = connection();
    const auto p = jet::prepare(sql, &c->catalog());
    auto st = c->prepare(p.shape->sql);
    st->bindValues(p.values, p.shape->numeric);
    while (st->step()) {
    }
    return c->changes();
}

std::optional<Variant> Database::lookup(const std::string& query, const std::string& field) const {
    trace(query);
    const auto p = jet::prepare(query, &connection()->catalog());
    Statement& st = connection()->cached(p.shape->sql);
    st.bindValues(p.values, p.shape->numeric);
    if (!st.step()) return std::nullopt;
    const std::string wanted = text::lower(field);
    for (int i = 0; i < st.columnCount(); ++i)
        if (text::lower(st.columnName(i)) == wanted) return st.column(i);
    throwDao("DAO.Fields", err::kItemNotFound, "Element in dieser Auflistung nicht gefunden.");
}

void Database::Close() {
    connection_.reset();
}

void CompactDatabase(const std::filesystem::path& source,
                     const std::filesystem::path& destination) {
    if (Connection::isOpen(source))
        throwDao("DAO.DBEngine", err::kDatabaseInUse,
                 "Die Datenbank '" + source.string() +
                     "' ist noch geöffnet und kann nicht komprimiert werden.");
    if (std::filesystem::exists(destination))
        throwDao("DAO.DBEngine", err::kDatabaseExists,
                 "Die Datenbank '" + destination.string() + "' existiert bereits.");
    {
        auto c = Connection::open(source, Connection::Kind::Shared);
        c->execute("VACUUM INTO ?1", {Variant(destination.string())});
    }
    // The last connection to let go takes the log into the file and removes it. A log still
    // there means a connection holds the store that this program does not count: the copy
    // renamed over the store would meet that log, written for the old file, at its next opening.
    std::error_code ec;
    if (std::filesystem::file_size(source.string() + "-wal", ec) > 0 && !ec) {
        std::filesystem::remove(destination, ec);
        throwDao("DAO.DBEngine", err::kDatabaseInUse,
                 "Die Datenbank '" + source.string() +
                     "' ist noch geöffnet und kann nicht komprimiert werden.");
    }
    // The copy must be on disk before anyone renames it over the store.
    int fd = ::open(destination.c_str(), O_RDONLY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace tolma::store
