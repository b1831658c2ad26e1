#include "store/indexed_cursor.h"

#include <algorithm>

#include "store/dao_error.h"

namespace tolma::store {

void IndexedCursor::moveToIndex(long i) {
    rowCache.reset();
    deleted = false;
    // A place past the rows read so far makes them be read up to it, or to the end.
    const long n = reach(std::max(i + 1, 1L));
    index = i;
    if (n == 0) {
        bof = eof = true;
        index = -1;
    } else if (i < 0) {
        bof = true;
        eof = false;
        index = -1;
    } else if (i >= n) {
        eof = true;
        bof = false;
        index = n;
    } else {
        bof = eof = false;
    }
}

void IndexedCursor::moveFirst() {
    if (reach(1) == 0) throwNoCurrentRecord();
    moveToIndex(0);
}

void IndexedCursor::moveLast() {
    if (count() == 0) throwNoCurrentRecord();
    moveToIndex(count() - 1);
}

void IndexedCursor::moveNext() {
    if (eof) throwNoCurrentRecord();
    // After a Delete the slot already holds the row that followed.
    moveToIndex(deleted ? index : index + 1);
}

void IndexedCursor::movePrevious() {
    if (bof) throwNoCurrentRecord();
    moveToIndex(index - 1);
}

void IndexedCursor::setPosition(long p) {
    if (p < 0 || p >= reach(p + 1))
        throwDao(kRecordsetSource, err::kInvalidArgument, "Ungültiges Argument.");
    moveToIndex(p);
}

void IndexedCursor::find(const std::string& criteria, bool fromStart) {
    long after = fromStart || bof ? -1 : (deleted ? index - 1 : index);
    if (!fromStart && eof) {
        noMatch = true;
        return;
    }
    auto i = findIndex(criteria, after);
    noMatch = !i;
    if (i) moveToIndex(*i);
}

}  // namespace tolma::store
