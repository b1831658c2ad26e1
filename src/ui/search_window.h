#pragma once

#include <QWidget>
#include <vector>

#include "core/globals.h"
#include "search/search_index.h"

class QComboBox;
class QLineEdit;
class QTableWidget;
class QTimer;

namespace tolma::ui {

// "Datei › Suchen...": one box for businesses and persons; the hits appear while typing, a double
// click or Enter shows the business in the record view, and the hits stay.
class SearchWindow : public QWidget {
    Q_OBJECT

  public:
    explicit SearchWindow(core::Globals& g, QWidget* parent = nullptr);
    // Searches at once with what the box holds.
    void search();
    QTableWidget* table() const { return table_; }
    QLineEdit* box() const { return box_; }

  signals:
    void closeRequested();
    void recordLoaded();

  private:
    void open(int row);

    core::Globals& g_;
    QLineEdit* box_;
    QComboBox* kind_;
    QTableWidget* table_;
    QTimer* pause_;
    std::vector<search::Hit> hits_;
};

}  // namespace tolma::ui
