#pragma once

#include <QWidget>
#include <memory>
#include <vector>

#include "browse/list_form.h"
#include "core/globals.h"

class QGroupBox;
class QLabel;
class QLineEdit;
class QTableView;

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
    // The width at which every column of the grid shows whole.
    int widthForAllColumns() const;
    // Narrows the columns wider than their headings' widest words, each by a share of what it
    // has beyond that, until all of them fit into `width`; a narrowed heading takes two lines.
    void narrowColumnsTo(int width);
    // Shows the form's state: rows, current row, counter, search frame.
    void refreshFromCore();

  signals:
    void closeRequested();
    void recordLoaded();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void command(int index);
    void selectCurrentRow();

    core::Globals& g_;
    std::unique_ptr<browse::ListForm> form_;
    std::vector<QLineEdit*> boxes_;
    std::vector<int> captionWidths_;  // per column: its heading's widest word
    QGroupBox* frame1_;
    QTableView* grid_;
    RecordsetTableModel* model_;
    DataControlWidget* blaettern_;
    QLabel* label1_;
    bool syncing_ = false;
};

}  // namespace tolma::ui
