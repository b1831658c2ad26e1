#include "ui/import_windows.h"

#include <QApplication>
#include <QBuffer>
#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPdfWriter>
#include <QPlainTextEdit>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QTableWidget>
#include <QTextDocument>
#include <QVBoxLayout>
#include <string_view>

#include "core/error_log.h"
#include "core/menu.h"
#include "core/output_file.h"
#include "store/connection.h"
#include "transfer/import_driver.h"
#include "transfer/journal.h"
#include "ui/command_buttons.h"
#include "ui/keyboard.h"

namespace tolma::ui {

CheckReportWindow::CheckReportWindow(const std::string& path, const transfer::ImportCheck& report,
                                     QWidget* parent, core::Globals* g)
    : QDialog(parent), g_(g), text_(transfer::checkReportText(path, report)) {
    setObjectName("Frm_Pruefung");
    setWindowTitle("Transferdatei prüfen");
    auto* layout = new QVBoxLayout(this);
    auto* text = new QPlainTextEdit(this);
    text->setObjectName("Text_Bericht");
    text->setReadOnly(true);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text->setPlainText(QString::fromStdString(text_));
    text->setAccessibleName("Bericht");
    layout->addWidget(text, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    const auto made = addNamedButtons(this, buttons,
                                      {{"Command_Einlesen", "&Einlesen", [this] { done(kReadIn); }},
                                       {"Command_Speichern", "&Speichern...", [this] { save(); }},
                                       {"Command_Drucken", "&Drucken", [this] { print(); }},
                                       {"Command_Schliessen", "Schließen", [this] { accept(); }}});
    for (QPushButton* b : made) b->setAutoDefault(false);
    layout->addLayout(buttons);
    made.back()->setDefault(true);  // Enter closes; reading in takes a deliberate click
    assignMnemonics(this, QString());
    addCloseKeys(this, [this] { reject(); },
                 {QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence(Qt::CTRL | Qt::Key_F4)});
    resize(720, 560);
}

std::string CheckReportWindow::saveAs(const std::string& file) {
    try {
        // The report names businesses: for its owner's eyes only.
        core::writeFileAtomically(file, text_, core::FileAccess::Private);
        return {};
    } catch (const std::exception& e) {
        if (g_) core::logTrapped(*g_, "Frm_Pruefung.Speichern", e);
        const auto* failure = dynamic_cast<const core::FileWriteError*>(&e);
        return failure ? failure->cause() : e.what();
    }
}

void CheckReportWindow::save() {
    const QString file = QFileDialog::getSaveFileName(this, "Bericht speichern", "pruefung.txt",
                                                      "Textdateien (*.txt)");
    if (file.isEmpty()) return;
    if (const std::string cause = saveAs(file.toStdString()); !cause.empty())
        QMessageBox::warning(
            this, "Bericht speichern",
            "Der Bericht konnte nicht gespeichert werden.\n" + QString::fromStdString(cause));
}

void CheckReportWindow::print() {
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, this);
    dialog.setWindowTitle("Bericht drucken");
    if (dialog.exec() != QDialog::Accepted) return;
    QTextDocument document(QString::fromStdString(text_));
    document.setDefaultFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    try {
        if (printer.outputFormat() == QPrinter::PdfFormat && !printer.outputFileName().isEmpty()) {
            // A PDF file goes through the one writer, as every output does.
            QBuffer buffer;
            buffer.open(QIODevice::WriteOnly);
            {
                QPdfWriter pdf(&buffer);
                pdf.setPageLayout(printer.pageLayout());
                document.print(&pdf);
            }
            core::writeFileAtomically(printer.outputFileName().toStdString(),
                                      std::string_view(buffer.data().constData(),
                                                       static_cast<size_t>(buffer.data().size())),
                                      core::FileAccess::Private);
        } else {
            document.print(&printer);
        }
    } catch (const std::exception& e) {
        if (g_) core::logTrapped(*g_, "Frm_Pruefung.Drucken", e);
        QMessageBox::warning(
            this, "Bericht drucken",
            "Der Bericht konnte nicht gedruckt werden.\n" + QString::fromStdString(e.what()));
    }
}

void checkTransferFileFromMenu(core::Globals& g, QWidget* parent) {
    const std::string file =
        g.dialogs
            ? g.dialogs->chooseFile(g.paths.pfad_dat,
                                    "Alle Dateien (*.*)|*.*| Update-Dateien (*.tml)|*.tml|", 2)
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
    CheckReportWindow window(file, report, parent, &g);
    if (window.exec() == CheckReportWindow::kReadIn)
        core::importChosenFile(g, transfer::startImport, file);
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
    table_->setColumnCount(6);
    table_->setHorizontalHeaderLabels(
        {"Lauf", "Datum", "Datei", "Betriebe", "Zurückgenommen", "Nach Löschfrist gelöscht"});
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);
    prepareGrid(table_, "Importläufe");
    layout->addWidget(table_, 1);
    auto* buttons = new QHBoxLayout;
    auto* takeBackButton = new QPushButton("Zurücknehmen", this);
    takeBackButton->setObjectName("Command_Zuruecknehmen");
    auto* close = new QPushButton("Schließen", this);
    close->setObjectName("Command_Schliessen");
    // Taking back removes stored data: Enter closes the window, only a click takes back.
    takeBackButton->setAutoDefault(false);
    close->setDefault(true);
    buttons->addStretch(1);
    buttons->addWidget(takeBackButton);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    connect(takeBackButton, &QPushButton::clicked, this, &TakeBackWindow::takeBack);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    assignMnemonics(this, QString());
    addCloseKeys(this, [this] { reject(); },
                 {QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence(Qt::CTRL | Qt::Key_F4)});
    resize(720, 360);
    fill();
}

void TakeBackWindow::fill() {
    std::vector<transfer::ImportRun> runs;
    try {
        if (g_.stores.db_daten.isSet())
            runs = transfer::importRuns(*g_.stores.db_daten.connection());
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Zuruecknehmen.Form_Load", e);
    }
    table_->setRowCount(static_cast<int>(runs.size()));
    int row = 0;
    // The newest run first: it is the one most often taken back.
    for (auto it = runs.rbegin(); it != runs.rend(); ++it, ++row) {
        const QStringList cells = {
            QString::number(it->lauf),           QString::fromStdString(it->datum),
            QString::fromStdString(it->datei),   QString::number(it->betriebe),
            it->zurueckgenommen ? "ja" : "nein", it->bilderGeloescht ? "ja" : "nein"};
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
    const auto result = transfer::askAndTakeBack(g_, from);
    if (result.outcome == transfer::TakeBackOutcome::Done) emit storeChanged();
    fill();
}

}  // namespace tolma::ui
