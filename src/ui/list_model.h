#pragma once

#include <QAbstractTableModel>
#include <list>
#include <unordered_map>
#include <vector>

#include "browse/list_form.h"

namespace tolma::ui {

// The rows of a list's data control for its grid, fetched when the grid shows them: a list of
// a hundred thousand businesses opens as fast as one of ten.
class RecordsetTableModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    RecordsetTableModel(browse::DataControl& control,
                        const std::vector<browse::ListColumn>& columns, QObject* parent = nullptr);

    // The data control has a new recordset.
    void reload();
    // The rows read since behind a long list's first screen join the grid.
    void grow();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

  private:
    const std::vector<store::Variant>& row(int r) const;

    browse::DataControl& control_;
    const std::vector<browse::ListColumn>& columns_;
    std::vector<int> fieldIndex_;
    int rows_ = 0;
    // The rows seen last, so that scrolling back does not fetch them again.
    mutable std::unordered_map<int, std::vector<store::Variant>> cache_;
    mutable std::list<int> order_;
};

}  // namespace tolma::ui
