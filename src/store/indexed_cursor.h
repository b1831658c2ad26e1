#pragma once

#include "store/recordset_impl.h"

namespace tolma::store {

// A cursor over rows counted from 0 (the keyset and the snapshot), moved by their place.
class IndexedCursor : public RecordsetImpl {
  public:
    using RecordsetImpl::RecordsetImpl;

    void moveFirst() override;
    void moveLast() override;
    void moveNext() override;
    void movePrevious() override;
    long position() override { return bof || eof ? -1 : index; }
    void setPosition(long p) override;
    void find(const std::string& criteria, bool fromStart) override;

  protected:
    // The first row after `after` (-1: from the first row) that meets the criteria.
    virtual std::optional<long> findIndex(const std::string& criteria, long after) = 0;
    // The count, or at least `rows` where the rest is not read yet.
    virtual long reach(long /*rows*/) { return count(); }
    void moveToIndex(long i);

    long index = -1;
};

}  // namespace tolma::store
