#pragma once

#include <QWidget>
#include <vector>

#include "core/globals.h"
#include "search/search_index.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;
class QTimer;

namespace tolma::ui {

// "Datei › Suchen...": one box for businesses and persons; the hits appear while typing, a double
// click or Enter shows the business in the record view, and the hits stay. A line says how many
// hits there are; where there are more than shown, "Mehr anzeigen" shows more.
class SearchWindow : public QWidget {
    Q_OBJECT

  public:
    explicit SearchWindow(core::Globals& g, QWidget* parent = nullptr);
    // Searches at once with what the box holds.
    void search();
    QTableWidget* table() const { return table_; }
    QLineEdit* box() const { return box_; }
    // The hits shown at first, and at most after "Mehr anzeigen".
    static constexpr int kFirstHits = 200, kMostHits = 5000;

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  signals:
    void closeRequested();
    void recordLoaded();

  private:
    void open(int row);
    void showHits(bool more);

    core::Globals& g_;
    QLineEdit* box_;
    QComboBox* kind_;
    QTableWidget* table_;
    QTimer* pause_;
    QLabel* count_;
    QPushButton* more_;
    int limit_ = kFirstHits;
    std::vector<search::Hit> hits_;
};

}  // namespace tolma::ui
