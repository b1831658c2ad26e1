#pragma once

#include "store/indexed_cursor.h"

namespace tolma::store {

// A grouped or distinct query, whose rows have no row ids to come back to: read whole at
// opening, read-only.
class SnapshotCursor : public IndexedCursor {
  public:
    SnapshotCursor(std::shared_ptr<Connection> connection, std::string source,
                   const jet::Prepared& query);

    long count() override { return static_cast<long>(rows.size()); }
    std::vector<Variant> rowAt(long p) override;

  protected:
    std::vector<Variant> loadCurrent() override { return rows[static_cast<size_t>(index)]; }
    long long currentRowid() override;
    std::optional<long> findIndex(const std::string& criteria, long after) override;

  private:
    std::vector<std::vector<Variant>> rows;
    std::string qualifier;  // the one table's name or alias, for criteria that name it
};

}  // namespace tolma::store
