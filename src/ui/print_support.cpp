#include "ui/print_support.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QPdfWriter>
#include <QPrintDialog>
#include <QWidget>
#include <filesystem>
#include <string_view>

#include "core/error_log.h"
#include "core/output_file.h"
#include "print/list_report.h"
#include "print/print_menu.h"

namespace tolma::ui {
namespace {

// The printing's shared state and the present printer live as long as the main window, as the
// old Printer object and the module's values lived as long as the program.
class PrintSupport : public QObject {
  public:
    explicit PrintSupport(QObject* owner) : QObject(owner) { state.source = &source; }
    QtPrinterSource source;
    print::PrintState state;
};

PrintSupport& printSupport(QWidget* parent) {
    QObject* owner =
        parent ? static_cast<QObject*>(parent->window()) : QCoreApplication::instance();
    for (QObject* child : owner->children())
        if (auto* support = dynamic_cast<PrintSupport*>(child)) {
            support->source.setParent(parent);
            return *support;
        }
    auto* support = new PrintSupport(owner);
    support->source.setParent(parent);
    return *support;
}

// No exception may cross the event loop.
template <class Body>
void guarded(core::Globals& g, const std::string& procedure, Body&& body) {
    try {
        body();
    } catch (const std::exception& e) {
        core::logTrapped(g, procedure, e);
    }
}

}  // namespace

// A PDF file as the printer: the pages in memory, the file written when the document ends.
class QtPrinterSource::FilePrinter {
  public:
    FilePrinter(const QPrinter& like, std::filesystem::path path)
        : path_(std::move(path)), writer_(&buffer_), painter_(writer_, *this) {
        buffer_.open(QIODevice::WriteOnly);
        writer_.setPageLayout(like.pageLayout());
        writer_.setResolution(like.resolution());
        writer_.setCreator("TOLMA_4x_Access");
    }
    print::Printer& printer() { return painter_; }

  private:
    class Painter : public print::PainterPrinter {
      public:
        Painter(QPdfWriter& device, FilePrinter& owner) : PainterPrinter(device), owner_(owner) {}

      protected:
        void endDocument() override {
            PainterPrinter::endDocument();
            const QByteArray bytes = owner_.buffer_.data();
            owner_.buffer_.buffer().clear();
            owner_.buffer_.seek(0);
            core::writeFileAtomically(
                owner_.path_,
                std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())),
                core::FileAccess::Private);
        }

      private:
        FilePrinter& owner_;
    };

    std::filesystem::path path_;
    QBuffer buffer_;
    QPdfWriter writer_;
    Painter painter_;
};

QtPrinterSource::QtPrinterSource() : printer_(QPrinter::HighResolution), painter_(printer_) {}
QtPrinterSource::~QtPrinterSource() = default;

int QtPrinterSource::ShowPrinter(const std::string& title) {
    QPrintDialog dialog(&printer_, parent_);
    dialog.setWindowTitle(QString::fromStdString(title));
    // The reports print whole: no page range, no selection.
    dialog.setOption(QAbstractPrintDialog::PrintPageRange, false);
    dialog.setOption(QAbstractPrintDialog::PrintSelection, false);
    if (dialog.exec() != QDialog::Accepted) return print::kDialogCancelled;
    file_.reset();
    if (printer_.outputFormat() == QPrinter::PdfFormat && !printer_.outputFileName().isEmpty())
        file_ = std::make_unique<FilePrinter>(
            printer_, std::filesystem::path(printer_.outputFileName().toStdString()));
    return printer_.isValid() ? 0 : static_cast<int>(print::kPrinterError);
}

print::Printer& QtPrinterSource::present() {
    return file_ ? file_->printer() : painter_;
}

void printRecordFromList(core::Globals& g, browse::ListForm& form, QWidget* parent) {
    guarded(g, std::string(form.name()) + ".Command1_Click",
            [&] { print::printRecordOfRow(g, printSupport(parent).state, form); });
}

void printListFromList(core::Globals& g, browse::ListForm& form, QWidget* parent) {
    guarded(g, std::string(form.name()) + ".Command1_Click",
            [&] { print::printList(g, printSupport(parent).state, form); });
}

void printMenuEntry(core::Globals& g, const std::string& entry, QWidget* parent) {
    guarded(g, entry, [&] {
        print::PrintState& state = printSupport(parent).state;
        if (entry == "menue_druck_betrieb")
            print::menue_druck_betrieb(g, state);
        else if (entry == "menue_druck_Person")
            print::menue_druck_Person(g, state);
    });
}

}  // namespace tolma::ui
