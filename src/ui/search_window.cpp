#include "ui/search_window.h"

#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "browse/list_form.h"
#include "core/error_log.h"
#include "store/connection.h"

namespace tolma::ui {

SearchWindow::SearchWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      box_(new QLineEdit(this)),
      kind_(new QComboBox(this)),
      table_(new QTableWidget(this)),
      pause_(new QTimer(this)) {
    setObjectName("Frm_Suchen");
    setWindowTitle("Suchen");
    auto* outer = new QVBoxLayout(this);
    auto* row = new QHBoxLayout;
    row->addWidget(new QLabel("Suchbegriff:", this));
    box_->setObjectName("Text_Suche");
    box_->setPlaceholderText("z. B. Meyer Bäckerei Hauptstraße");
    row->addWidget(box_, 1);
    kind_->setObjectName("Auswahl_Art");
    kind_->addItems({"Betriebe und Personen", "nur Betriebe", "nur Personen"});
    row->addWidget(kind_);
    outer->addLayout(row);
    table_->setObjectName("Tabelle_Treffer");
    table_->setColumnCount(8);
    table_->setHorizontalHeaderLabels(
        {"Art", "Betriebsnummer", "Hist.-Nr.", "Name", "Straße", "Ort", "Gemeinde-KZ", "Status"});
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);
    outer->addWidget(table_, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto* show = new QPushButton("Anzeigen", this);
    show->setObjectName("Command_Anzeigen");
    auto* close = new QPushButton("Schließen", this);
    close->setObjectName("Command_Schliessen");
    buttons->addWidget(show);
    buttons->addWidget(close);
    outer->addLayout(buttons);

    // Hits while typing, after a short pause.
    pause_->setSingleShot(true);
    pause_->setInterval(250);
    connect(box_, &QLineEdit::textChanged, pause_, qOverload<>(&QTimer::start));
    connect(pause_, &QTimer::timeout, this, &SearchWindow::search);
    connect(kind_, &QComboBox::currentIndexChanged, this, &SearchWindow::search);
    connect(box_, &QLineEdit::returnPressed, this,
            [this] { open(std::max(0, table_->currentRow())); });
    // Enter on a hit and a double click both activate it.
    connect(table_, &QTableWidget::activated, this,
            [this](const QModelIndex& index) { open(index.row()); });
    connect(show, &QPushButton::clicked, this, [this] { open(table_->currentRow()); });
    connect(close, &QPushButton::clicked, this, &SearchWindow::closeRequested);
}

void SearchWindow::search() {
    pause_->stop();
    hits_.clear();
    try {
        if (g_.db_daten.isSet()) {
            store::Connection& c = *g_.db_daten.connection();
            if (!search::hasIndex(c) && !box_->text().trimmed().isEmpty()) {
                // A store without the index gets it now, once.
                QProgressDialog progress("Der Suchindex wird aufgebaut ...", QString(), 0, 100,
                                         this);
                progress.setWindowTitle("Suchen");
                progress.setMinimumDuration(300);
                search::buildIndex(c, [&](long done, long total) {
                    progress.setValue(total ? static_cast<int>(done * 100 / total) : 100);
                    QApplication::processEvents();
                });
            }
            const auto kind = static_cast<search::Kind>(kind_->currentIndex());
            hits_ = search::find(c, box_->text().toStdString(), kind, 200);
        }
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Suchen.Suchen", e);
    }
    table_->setRowCount(static_cast<int>(hits_.size()));
    for (int r = 0; r < static_cast<int>(hits_.size()); ++r) {
        const auto& h = hits_[static_cast<size_t>(r)];
        const QStringList cells = {
            h.person ? "Person" : "Betrieb",      QString::fromStdString(h.betrNr),
            QString::fromStdString(h.betrHistNr), QString::fromStdString(h.name),
            QString::fromStdString(h.strasse),    QString::fromStdString(h.ort),
            QString::fromStdString(h.gemKz),      h.abgemeldet ? "abgemeldet" : ""};
        for (int c = 0; c < cells.size(); ++c)
            table_->setItem(r, c, new QTableWidgetItem(cells[c]));
    }
    table_->resizeColumnsToContents();
    if (!hits_.empty()) table_->selectRow(0);
}

void SearchWindow::open(int row) {
    if (row < 0 || row >= static_cast<int>(hits_.size())) return;
    const auto& h = hits_[static_cast<size_t>(row)];
    browse::showFoundBusiness(g_, h.gemKz, h.betrNr, h.betrHistNr, h.person);
    emit recordLoaded();
}

}  // namespace tolma::ui
