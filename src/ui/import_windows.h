#pragma once

#include <QDialog>

#include "core/globals.h"
#include "transfer/import_driver.h"

class QTableWidget;

namespace tolma::ui {

// "Transferdatei prüfen": the report of a check, read-only, to be saved as text or printed;
// "Einlesen" ends the window with kReadIn, for the caller to read the file in.
class CheckReportWindow : public QDialog {
    Q_OBJECT

  public:
    static constexpr int kReadIn = 2;
    CheckReportWindow(const std::string& path, const transfer::ImportCheck& report,
                      QWidget* parent = nullptr, core::Globals* g = nullptr);
    // Writes the report as a text file (UTF-8), whole or not at all; the cause when it fails.
    std::string saveAs(const std::string& file);

  private:
    void save();
    void print();

    core::Globals* g_;
    std::string text_;
};

// "Bearbeiten › Transferdatei prüfen...": chooses a file, checks it and shows the report.
void checkTransferFileFromMenu(core::Globals& g, QWidget* parent);

// "Import zurücknehmen": the recorded runs, and taking back the chosen one with all later ones.
class TakeBackWindow : public QDialog {
    Q_OBJECT

  public:
    explicit TakeBackWindow(core::Globals& g, QWidget* parent = nullptr);
    void fill();
    QTableWidget* table() const { return table_; }

  signals:
    void storeChanged();

  private:
    void takeBack();

    core::Globals& g_;
    QTableWidget* table_;
};

}  // namespace tolma::ui
