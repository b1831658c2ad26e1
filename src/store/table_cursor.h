#pragma once

#include "store/recordset_impl.h"

namespace tolma::store {

// A table by its name: a live view of the whole table in the order of its row ids, so that
// rows added by anyone are found by a later move or find.
class TableCursor : public RecordsetImpl {
  public:
    TableCursor(std::shared_ptr<Connection> connection, std::string source,
                const std::string& table);

    long count() override;
    void moveFirst() override;
    void moveLast() override;
    void moveNext() override;
    void movePrevious() override;
    long position() override;
    void setPosition(long p) override;
    std::vector<Variant> rowAt(long p) override;
    void find(const std::string& criteria, bool fromStart) override;

  protected:
    std::vector<Variant> loadCurrent() override { return fetchByKeys(&rowid); }
    long long currentRowid() override;
    void inserted() override;

  private:
    std::optional<long long> rowidBy(const std::string& sql, std::optional<long long> bound);
    void positionAt(std::optional<long long> r);
    // The row id at a place of the table's order.
    std::optional<long long> rowidAt(long p);

    long long rowid = 0;
    long cachedCount = 0;
    long long cachedCountChanges = -1;
};

}  // namespace tolma::store
