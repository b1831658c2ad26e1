#include "ui/import_windows.h"

#include <QApplication>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "core/error_log.h"
#include "store/connection.h"
#include "transfer/import_journal.h"

namespace tolma::ui {
namespace {

// The questions of a take-back have "Nein" as their default answer, so that a second Enter
// does not confirm what a first one started.
class NoByDefault : public core::Dialogs {
  public:
    explicit NoByDefault(core::Dialogs& inner) : inner_(inner) {}
    int MsgBox(const std::string& text, int style, const std::string& title) override {
        if (core::msg::hasYesNo(style)) style |= core::msg::vbDefaultButton2;
        return inner_.MsgBox(text, style, title);
    }
    void openInViewer(const std::string& path) override { inner_.openInViewer(path); }
    std::string chooseFile(const std::string& startDirectory, const std::string& filter,
                           int filterIndex) override {
        return inner_.chooseFile(startDirectory, filter, filterIndex);
    }

  private:
    core::Dialogs& inner_;
};

}  // namespace

CheckReportWindow::CheckReportWindow(const std::string& path, const transfer::ImportCheck& report,
                                     QWidget* parent)
    : QDialog(parent) {
    setObjectName("Frm_Pruefung");
    setWindowTitle("Transferdatei prüfen");
    auto* layout = new QVBoxLayout(this);
    auto* text = new QPlainTextEdit(this);
    text->setObjectName("Text_Bericht");
    text->setReadOnly(true);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text->setPlainText(QString::fromStdString(transfer::checkReportText(path, report)));
    layout->addWidget(text, 1);
    auto* close = new QPushButton("Schließen", this);
    close->setObjectName("Command_Schliessen");
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    layout->addWidget(close, 0, Qt::AlignRight);
    resize(720, 560);
}

void checkTransferFileFromMenu(core::Globals& g, QWidget* parent) {
    const std::string file =
        g.dialogs ? g.dialogs->chooseFile(
                        g.pfad_dat, "Alle Dateien (*.*)|*.*| Update-Dateien (*.tml)|*.tml|", 2)
                  : "";
    if (file.empty()) {
        core::showMessage(g, "Es wurde keine Update-Datei ausgewählt!", core::msg::vbInformation,
                          "Auswahl einer Update-Datei!");
        return;
    }
    transfer::ImportCheck report;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const auto outcome = transfer::checkTransferFile(g, file, report);
    QApplication::restoreOverrideCursor();
    if (outcome == transfer::ImportOutcome::Failed && report.businesses == 0 &&
        !report.warnings.empty()) {
        core::showMessage(g, report.warnings.front(), core::msg::vbExclamation,
                          "Transferdatei prüfen");
        return;
    }
    CheckReportWindow window(file, report, parent);
    window.exec();
}

TakeBackWindow::TakeBackWindow(core::Globals& g, QWidget* parent)
    : QDialog(parent), g_(g), table_(new QTableWidget(this)) {
    setObjectName("Frm_Zuruecknehmen");
    setWindowTitle("Import zurücknehmen");
    auto* layout = new QVBoxLayout(this);
    auto* hint =
        new QLabel("Zurückgenommen werden der gewählte Importlauf und alle späteren.", this);
    layout->addWidget(hint);
    table_->setObjectName("Liste_Laeufe");
    table_->setColumnCount(5);
    table_->setHorizontalHeaderLabels({"Lauf", "Datum", "Datei", "Betriebe", "Zurückgenommen"});
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(table_, 1);
    auto* buttons = new QHBoxLayout;
    auto* undo = new QPushButton("Zurücknehmen", this);
    undo->setObjectName("Command_Zuruecknehmen");
    auto* close = new QPushButton("Schließen", this);
    close->setObjectName("Command_Schliessen");
    // Taking back removes stored data: Enter closes the window, only a click takes back.
    undo->setAutoDefault(false);
    close->setDefault(true);
    buttons->addStretch(1);
    buttons->addWidget(undo);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    connect(undo, &QPushButton::clicked, this, &TakeBackWindow::takeBack);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    resize(720, 360);
    fill();
}

void TakeBackWindow::fill() {
    std::vector<transfer::ImportRun> runs;
    try {
        if (g_.db_daten.isSet()) runs = transfer::importRuns(*g_.db_daten.connection());
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Zuruecknehmen.Form_Load", e);
    }
    table_->setRowCount(static_cast<int>(runs.size()));
    int row = 0;
    // The newest run first: it is the one most often taken back.
    for (auto it = runs.rbegin(); it != runs.rend(); ++it, ++row) {
        const QStringList cells = {QString::number(it->lauf), QString::fromStdString(it->datum),
                                   QString::fromStdString(it->datei), QString::number(it->betriebe),
                                   it->zurueckgenommen ? "ja" : "nein"};
        for (int c = 0; c < cells.size(); ++c)
            table_->setItem(row, c, new QTableWidgetItem(cells[c]));
    }
    table_->resizeColumnsToContents();
    if (!runs.empty()) table_->selectRow(0);
}

void TakeBackWindow::takeBack() {
    const auto selected = table_->selectionModel()->selectedRows();
    std::optional<long> from;
    if (!selected.isEmpty()) from = table_->item(selected.front().row(), 0)->text().toLong();
    struct Restore {
        core::Globals& g;
        core::Dialogs* dialogs;
        ~Restore() { g.dialogs = dialogs; }
    } restore{g_, g_.dialogs};
    std::optional<NoByDefault> safe;
    if (restore.dialogs) g_.dialogs = &safe.emplace(*restore.dialogs);
    const auto result = transfer::Import_zuruecknehmen(g_, from);
    if (result.outcome == transfer::TakeBackOutcome::Done) emit storeChanged();
    fill();
}

}  // namespace tolma::ui
