#include "ui/disclosure_window.h"

#include <QApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "core/error_log.h"
#include "core/output_file.h"
#include "print/qt/painter_printer.h"
#include "protection/disclosure_report.h"
#include "protection/retention.h"
#include "store/connection.h"
#include "text/text.h"
#include "ui/command_buttons.h"
#include "ui/keyboard.h"

namespace tolma::ui {
namespace {

constexpr const char* kTitle = "Auskunft über eine Person";

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

// Bad input is told and logged; the window stays as it is.
void refuse(core::Globals& g, const std::string& message) {
    core::A_Error_Log(g, "Frm_Auskunft", "TOLMA_4x_Access", "0", message, "Fehlerortung: ", "0");
    core::showMessage(g, message, core::msg::vbExclamation, kTitle);
}

}  // namespace

DisclosureWindow::DisclosureWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      name_(new QLineEdit(this)),
      firstNames_(new QLineEdit(this)),
      born_(new QLineEdit(this)),
      table_(new QTableWidget(this)),
      status_(new QLabel(this)) {
    setObjectName("Frm_Auskunft");
    setWindowTitle(kTitle);
    auto* outer = new QVBoxLayout(this);
    auto* boxes = new QGridLayout;
    const struct {
        const char* label;
        const char* name;
        QLineEdit* box;
    } fields[] = {{"&Name:", "Text_Name", name_},
                  {"&Vornamen:", "Text_Vornamen", firstNames_},
                  {"&Geburtsdatum:", "Text_Geburtsdatum", born_}};
    int row = 0;
    for (const auto& f : fields) {
        auto* label = new QLabel(f.label, this);
        label->setBuddy(f.box);
        f.box->setObjectName(f.name);
        boxes->addWidget(label, row, 0);
        boxes->addWidget(f.box, row++, 1);
        connect(f.box, &QLineEdit::returnPressed, this, &DisclosureWindow::search);
    }
    born_->setPlaceholderText("TT.MM.JJJJ");
    born_->setMaxLength(10);
    auto* find = new QPushButton("Suchen", this);
    find->setObjectName("Command_Suchen");
    connect(find, &QPushButton::clicked, this, &DisclosureWindow::search);
    boxes->addWidget(find, 0, 2);
    boxes->setColumnStretch(1, 1);
    outer->addLayout(boxes);

    table_->setObjectName("Tabelle_Personen");
    table_->setColumnCount(4);
    table_->setHorizontalHeaderLabels({"Personennummer", "Name", "Vornamen", "Geburtsdatum"});
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);
    prepareGrid(table_, "Gefundene Personen");
    outer->addWidget(table_, 1);
    status_->setObjectName("Label_Status");
    status_->setWordWrap(true);
    outer->addWidget(status_);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    const auto made =
        addNamedButtons(this, buttons,
                        {{"Command_PDF", "Als PDF speichern...", [this] { save(true); }},
                         {"Command_CSV", "Als CSV speichern...", [this] { save(false); }},
                         {"Command_Schliessen", "Schließen", [this] { emit closeRequested(); }}});
    outer->addLayout(buttons);
    chainTabOrder({name_, firstNames_, born_, find, table_, made[0], made[1], made[2]});
    assignMnemonics(this);
    addCloseKeys(this, [this] { emit closeRequested(); });
}

void DisclosureWindow::search() {
    protection::PersonQuery query{name_->text().toStdString(), firstNames_->text().toStdString(),
                                  text::trimBlanks(born_->text().toStdString())};
    if (text::trimBlanks(query.name).empty()) {
        refuse(g_, "Bitte den Namen der Person eingeben.");
        return;
    }
    if (!query.geburtsdatum.empty() && !protection::storedDay(query.geburtsdatum)) {
        refuse(g_, "Das Geburtsdatum ist kein Tag in der Form TT.MM.JJJJ: " + query.geburtsdatum);
        return;
    }
    found_.clear();
    query_ = query;
    try {
        if (g_.stores.db_daten.isSet())
            found_ = protection::findPersons(*g_.stores.db_daten.connection(), query_);
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Auskunft.Suchen", e);
    }
    table_->setRowCount(static_cast<int>(found_.size()));
    for (int r = 0; r < static_cast<int>(found_.size()); ++r) {
        const auto& m = found_[static_cast<size_t>(r)];
        const QStringList cells = {q(m.persNr), q(m.famName), q(m.vornamen), q(m.gebDatum)};
        for (int c = 0; c < cells.size(); ++c)
            table_->setItem(r, c, new QTableWidgetItem(cells[c]));
    }
    table_->resizeColumnsToContents();
    if (!found_.empty()) table_->selectRow(0);
    status_->setText(found_.empty() ? "Keine Person gefunden."
                     : found_.size() == 1
                         ? "1 Person gefunden."
                         : QString("%1 Personen gefunden; bitte eine wählen.").arg(found_.size()));
}

void DisclosureWindow::save(bool pdf) {
    const int row = table_->currentRow();
    if (row < 0 || row >= static_cast<int>(found_.size())) {
        refuse(g_, "Bitte zuerst eine Person suchen und in der Liste wählen.");
        return;
    }
    const std::string persNr = found_[static_cast<size_t>(row)].persNr;
    const std::string file =
        g_.dialogs ? g_.dialogs->chooseSaveFile(
                         pdf ? "Auskunft als PDF speichern" : "Auskunft als CSV speichern",
                         g_.paths.pfad_dat + "auskunft_" + persNr + (pdf ? ".pdf" : ".csv"),
                         pdf ? "PDF-Dateien|*.pdf|" : "CSV-Dateien|*.csv|")
                   : "";
    if (file.empty()) return;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    try {
        store::Connection& c = *g_.stores.db_daten.connection();
        const auto d =
            protection::gatherDisclosure(c, persNr, text::localTime(g_.clock(), "%d.%m.%Y"));
        const std::string bytes =
            pdf ? print::paintPdf([&](print::Printer& p) { protection::printDisclosure(p, d); })
                : protection::disclosureCsv(d);
        protection::writeDisclosure(c, d, query_, text::localTime(g_.clock(), "%d.%m.%Y %H:%M:%S"),
                                    file, bytes);
        QApplication::restoreOverrideCursor();
        status_->setText("Die Auskunft wurde gespeichert: " + q(file));
    } catch (const std::exception& e) {
        QApplication::restoreOverrideCursor();
        core::logTrapped(g_, "Frm_Auskunft.Speichern", e);
        core::showMessage(g_,
                          "Die Auskunft konnte nicht gespeichert werden: " + file + "\n" +
                              core::describeError(e).text,
                          core::msg::vbExclamation, kTitle);
    }
}

}  // namespace tolma::ui
