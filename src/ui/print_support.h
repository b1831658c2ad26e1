#pragma once

#include <QPrinter>
#include <memory>
#include <string>

#include "browse/list_form.h"
#include "core/globals.h"
#include "print/qt/painter_printer.h"
#include "print/record_report.h"

class QWidget;

namespace tolma::ui {

// CommonDialog1 and the Printer object of the desktop program: the print dialog chooses the
// printer, which stays the present one for the print menu's entries. Printing into a PDF file
// is painted in memory and written, like every output file, whole or not at all, readable by
// its owner only: the reports hold names, addresses and birth dates.
class QtPrinterSource : public print::PrinterSource {
  public:
    QtPrinterSource();
    ~QtPrinterSource() override;
    void setParent(QWidget* parent) { parent_ = parent; }
    int ShowPrinter(const std::string& title) override;
    print::Printer& present() override;

  private:
    class FilePrinter;

    QWidget* parent_ = nullptr;
    QPrinter printer_;
    print::PainterPrinter painter_;
    std::unique_ptr<FilePrinter> file_;  // while a PDF file is the printer
};

// The buttons "Satz" (Command1(3)) and "Liste" (Command1(4)) of a selection list.
void printRecordFromList(core::Globals& g, browse::ListForm& form, QWidget* parent);
void printListFromList(core::Globals& g, browse::ListForm& form, QWidget* parent);
// The print menu's entries "menue_druck_betrieb" and "menue_druck_Person".
void printMenuEntry(core::Globals& g, const std::string& entry, QWidget* parent);

}  // namespace tolma::ui
