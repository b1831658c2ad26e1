#pragma once

#include <QWidget>
#include <vector>

#include "core/globals.h"
#include "protection/disclosure.h"

class QLabel;
class QLineEdit;
class QTableWidget;

namespace tolma::ui {

// "Datei › Auskunft über eine Person...": name, first names and birth date; the persons that
// match, one to choose; the disclosure of the chosen one saved as PDF or CSV, and recorded.
class DisclosureWindow : public QWidget {
    Q_OBJECT

  public:
    explicit DisclosureWindow(core::Globals& g, QWidget* parent = nullptr);
    // Looks for the persons with what the boxes hold.
    void search();
    // Saves the chosen person's disclosure; the file is asked for through the dialogs.
    void save(bool pdf);
    QLineEdit* nameBox() const { return name_; }
    QLineEdit* firstNamesBox() const { return firstNames_; }
    QLineEdit* birthBox() const { return born_; }
    QTableWidget* table() const { return table_; }
    QLabel* status() const { return status_; }

  signals:
    void closeRequested();

  private:
    core::Globals& g_;
    QLineEdit *name_, *firstNames_, *born_;
    QTableWidget* table_;
    QLabel* status_;
    protection::PersonQuery query_;  // what found the persons listed
    std::vector<protection::PersonMatch> found_;
};

}  // namespace tolma::ui
