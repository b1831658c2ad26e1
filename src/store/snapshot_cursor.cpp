#include "store/snapshot_cursor.h"

namespace tolma::store {

SnapshotCursor::SnapshotCursor(std::shared_ptr<Connection> connection, std::string source,
                               const jet::Prepared& query)
    : IndexedCursor(std::move(connection), std::move(source)) {
    params = query.values;
    numericParams = query.shape->numeric;
    const std::string& sql = query.shape->sql;
    const jet::SelectParts& parts = query.shape->parts;
    auto st = conn->prepare(sql);
    bindParams(*st);
    describe(*st, sql, parts.tables, "");
    if (parts.tables.size() == 1) qualifier = parts.tables[0].qualifier;
    while (st->step()) {
        std::vector<Variant> row;
        for (int i = 0; i < st->columnCount(); ++i) row.push_back(st->column(i));
        rows.push_back(std::move(row));
    }
    moveToIndex(rows.empty() ? -1 : 0);
}

std::vector<Variant> SnapshotCursor::rowAt(long p) {
    if (p < 0 || p >= count()) throwNoCurrentRecord();
    return rows[static_cast<size_t>(p)];
}

long long SnapshotCursor::currentRowid() {
    requireUpdatable();  // a snapshot is never written, so this refuses
    return -1;
}

// The criteria run over each row in turn, its values standing in for the columns.
std::optional<long> SnapshotCursor::findIndex(const std::string& criteria, long after) {
    const std::string crit = jet::translate(criteria, &conn->catalog());
    std::string list;
    for (size_t i = 0; i < fields().size(); ++i) {
        std::string col = fields()[i].name;
        if (auto dot = col.find('.'); dot != std::string::npos) col = col.substr(dot + 1);
        list += (i ? ", " : "") + std::string("?") + std::to_string(i + 1) + " AS " + bracket(col);
    }
    std::string q = qualifier.empty() ? "[snapshot]" : qualifier;
    auto st = conn->prepare("SELECT 1 FROM (SELECT " + list + ") AS " + q + " WHERE " + crit);
    for (long i = after + 1; i < static_cast<long>(rows.size()); ++i) {
        st->reset();
        for (size_t j = 0; j < fields().size(); ++j) st->bind(static_cast<int>(j + 1), rows[i][j]);
        if (st->step()) return i;
    }
    return std::nullopt;
}

}  // namespace tolma::store
