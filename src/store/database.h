#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/recordset.h"

namespace tolma::store {

class Connection;

// A store opened by the old engine's OpenDatabase. Copies share the file's connection.
class Database {
  public:
    Database() = default;

    // Exclusive use takes the file's lock at once, so a second process fails here.
    static Database OpenDatabase(const std::filesystem::path& name, bool exclusive = false,
                                 bool readOnly = false, const std::string& connect = {});

    // Creates a new, empty store file; the system itself never does, only the build.
    static Database CreateDatabase(const std::filesystem::path& name);

    bool isSet() const { return connection_ != nullptr; }
    const std::filesystem::path& Name() const;
    Recordset OpenRecordset(const std::string& source, int type = dao::dbOpenDynaset) const;
    // A field of the first row of a query, or nothing without a row; the query's values are
    // bound, so that lookups with other values share one prepared statement.
    std::optional<Variant> lookup(const std::string& query, const std::string& field) const;
    // Runs a statement that returns no rows; the number of rows it changed.
    long long Execute(const std::string& sql) const;
    void Close();

    const std::shared_ptr<Connection>& connection() const;

  private:
    void trace(const std::string& text) const;

    std::shared_ptr<Connection> connection_;
};

// A test hook: while one lives, every query text opened through a Database of this process
// (OpenRecordset, lookup, Execute) is kept in it with its store's file, in order, so that a test
// can run the texts the routines compose. Without one, opening costs one test of a pointer.
// For one thread; the latest one made is the one that records.
class QueryTrace {
  public:
    struct Entry {
        std::filesystem::path store;
        std::string text;
    };
    QueryTrace();
    ~QueryTrace();
    QueryTrace(const QueryTrace&) = delete;
    QueryTrace& operator=(const QueryTrace&) = delete;

    const std::vector<Entry>& entries() const { return entries_; }

  private:
    friend class Database;
    std::vector<Entry> entries_;
    QueryTrace* previous_;
};

// Writes a compacted copy of a store under a new name. The source must be free of every
// connection of this process; the destination must not exist yet.
void CompactDatabase(const std::filesystem::path& source, const std::filesystem::path& destination);

}  // namespace tolma::store
