#include "ui/list_model.h"

namespace tolma::ui {
namespace {
constexpr size_t kCachedRows = 512;
}

RecordsetTableModel::RecordsetTableModel(browse::DataControl& control,
                                         const std::vector<browse::ListColumn>& columns,
                                         QObject* parent)
    : QAbstractTableModel(parent), control_(control), columns_(columns) {
    reload();
}

void RecordsetTableModel::reload() {
    beginResetModel();
    cache_.clear();
    order_.clear();
    fieldIndex_.clear();
    rows_ = 0;
    const auto& rs = control_.Recordset();
    if (rs.isSet()) {
        rows_ = static_cast<int>(rs.KnownCount());
        for (const auto& c : columns_) fieldIndex_.push_back(rs.fieldIndex(c.field));
    }
    endResetModel();
}

void RecordsetTableModel::grow() {
    const auto& rs = control_.Recordset();
    if (!rs.isSet()) return;
    const int known = static_cast<int>(rs.KnownCount());
    if (known <= rows_) return;
    beginInsertRows({}, rows_, known - 1);
    rows_ = known;
    endInsertRows();
}

int RecordsetTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : rows_;
}

int RecordsetTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(columns_.size());
}

const std::vector<store::Variant>& RecordsetTableModel::row(int r) const {
    auto it = cache_.find(r);
    if (it != cache_.end()) return it->second;
    std::vector<store::Variant> values;
    try {
        values = control_.Recordset().rowAt(r);
    } catch (const std::exception&) {
        // A row deleted behind the list's back shows empty.
    }
    if (cache_.size() >= kCachedRows) {
        cache_.erase(order_.front());
        order_.pop_front();
    }
    order_.push_back(r);
    return cache_.emplace(r, std::move(values)).first->second;
}

QVariant RecordsetTableModel::data(const QModelIndex& index, int role) const {
    // A name longer than its column stands whole in the cell's tooltip.
    if ((role != Qt::DisplayRole && role != Qt::ToolTipRole) || !index.isValid() ||
        index.row() >= rows_)
        return {};
    const int field = fieldIndex_.at(static_cast<size_t>(index.column()));
    const auto& values = row(index.row());
    if (field < 0 || static_cast<size_t>(field) >= values.size()) return QString();
    const QString text = QString::fromStdString(values[static_cast<size_t>(field)].toString());
    if (role == Qt::ToolTipRole && text.isEmpty()) return {};
    return text;
}

QVariant RecordsetTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole) return {};
    if (orientation == Qt::Vertical) return section + 1;
    return QString::fromUtf8(columns_.at(static_cast<size_t>(section)).caption);
}

}  // namespace tolma::ui
