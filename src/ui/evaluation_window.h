#pragma once

#include <QWidget>
#include <functional>
#include <optional>
#include <string>

#include "core/globals.h"
#include "evaluation/evaluation.h"

class QComboBox;
class QGroupBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QTableWidget;

namespace tolma::ui {

// "Extras › Auswertungen...": the period, the municipalities and the grouping; the table with
// its "Summe" line, the chart below it; printing, CSV and the chart as a picture. A click on a
// number opens the business list of what it counts, marked with what that is.
class EvaluationWindow : public QWidget {
    Q_OBJECT

  public:
    explicit EvaluationWindow(core::Globals& g, QWidget* parent = nullptr);
    // Counts anew with the choices on screen.
    void evaluate();
    const std::optional<evaluation::Result>& result() const { return result_; }
    QTableWidget* table() const { return table_; }

  signals:
    void closeRequested();
    // The states counted in a cell, for the business list.
    void openStates(const std::vector<std::pair<std::string, std::string>>& states);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QGroupBox* buildChoice();
    QHBoxLayout* buildButtons();
    void print();
    void saveCsv();
    void saveChart();
    // Writes a file through `write`; a failure is logged and told, never thrown at Qt.
    void save(const QString& file, const std::function<void(const std::string&)>& write);
    void cellClicked(int row, int column);

    core::Globals& g_;
    std::vector<evaluation::Section> sections_;
    QLineEdit *from_, *to_;  // months as MM.JJJJ or JJJJ-MM
    QComboBox *scope_, *grouping_;
    QLineEdit* municipality_;
    QLabel* counted_;  // what the table counts
    QTableWidget* table_;
    QWidget* chart_;
    std::optional<evaluation::Result> result_;
};

}  // namespace tolma::ui
