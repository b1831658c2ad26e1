#pragma once

#include <unordered_map>

#include "store/indexed_cursor.h"

namespace tolma::store {

// What a query shape needs on a connection, worked out once: its parts, the texts built from
// them and their prepared statements.
struct QueryPlan;

// A query whose rows have row ids: the keys of its rows are read at opening and each row is
// fetched by them when it is reached. A query on one table alone is writable.
class KeysetCursor : public IndexedCursor {
  public:
    static constexpr size_t kPrefetchRows = 16;

    KeysetCursor(std::shared_ptr<Connection> connection, std::string source,
                 const jet::Prepared& query);

    long count() override { return static_cast<long>(keys.size() / stride); }
    std::vector<Variant> rowAt(long p) override;

  protected:
    std::vector<Variant> loadCurrent() override { return rowAt(index); }
    long long currentRowid() override;
    std::optional<long> findIndex(const std::string& criteria, long after) override;
    void inserted() override;
    void removed() override;
    void storedRowsChanged() override { prefetched.clear(); }

  private:
    void readKeys();
    // The row ids of one row, as parameters after the query's own values.
    std::string keyCondition() const;
    // The order of the rows: the query's own, made total by the row ids.
    std::string orderBy() const;
    std::string keysetSql() const;
    std::string keyString(const long long* k) const;
    void buildKeyIndex();
    std::optional<long> findAppended(const std::string& crit, long after);

    std::shared_ptr<const QueryPlan> plan;
    // The row ids of each base table, row after row.
    std::vector<long long> keys;
    long origCount = 0;  // rows from the query; later ones were added through this recordset
    std::unordered_map<std::string, long> keyIndex;
    bool keyIndexValid = false;
    // The rows of a small query, read with their keys at opening: no fetch per row.
    std::vector<std::vector<Variant>> prefetched;
};

}  // namespace tolma::store
