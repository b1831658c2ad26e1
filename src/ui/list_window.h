#pragma once

#include <QWidget>
#include <memory>
#include <vector>

#include "browse/list_form.h"
#include "core/globals.h"

class QButtonGroup;
class QHBoxLayout;
class QGroupBox;
class QLabel;
class QLineEdit;
class QTableView;
class QTimer;

namespace tolma::ui {

class DataControlWidget;
class RecordsetTableModel;

// Frm_Auswahl_Betr and Frm_Auswahl_Pers: search boxes, the grid, the counter, the buttons.
class ListWindow : public QWidget {
    Q_OBJECT

  public:
    ListWindow(core::Globals& g, std::unique_ptr<browse::ListForm> form, QWidget* parent = nullptr);
    ~ListWindow() override;

    browse::ListForm& form() { return *form_; }
    // The columns fill the grid's width. Where room is short, the columns wider than their
    // headings in two lines give up a share of what they have beyond that, the names last; what
    // is spare goes to the names.
    void fitColumns();
    // Shows the form's state: rows, current row, counter, search frame.
    void refreshFromCore();
    // The list holds only what an evaluation's number counts: it says so above its grid and in
    // its title, with none of "Alle", "Aktuelle" and "Abgemeldete" checked, since each lists from
    // the whole store; once one is chosen, the list says that the restriction is gone rather
    // than growing unexplained.
    void showRestriction(const QString& what);

  signals:
    void closeRequested();
    void recordLoaded();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void buildSearchBoxes();
    void buildGrid();
    void measureColumns();
    QHBoxLayout* buildButtons();
    void setUpKeyboard();
    void command(int index);
    void sortBy(int column);
    void selectCurrentRow();
    // The grid gets the recordset anew; a long list's rest is read behind its first screen.
    void reloadModel();
    void readOn();

    core::Globals& g_;
    std::unique_ptr<browse::ListForm> form_;
    std::vector<QLineEdit*> boxes_;
    std::vector<int> naturalWidths_;  // per column: its caption or a good part of its values
    std::vector<int> captionWidths_;  // per column: its heading's width in two lines
    QGroupBox* frame1_;
    QTableView* grid_;
    RecordsetTableModel* model_;
    DataControlWidget* blaettern_;
    QLabel* label1_;
    QButtonGroup* options_ = nullptr;
    bool syncing_ = false;
    QTimer* reader_;
};

}  // namespace tolma::ui
