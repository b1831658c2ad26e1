#include "ui/search_window.h"

#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMdiSubWindow>
#include <QProgressDialog>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "browse/list_form.h"
#include "core/error_log.h"
#include "store/connection.h"
#include "ui/keyboard.h"

namespace tolma::ui {

SearchWindow::SearchWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      box_(new QLineEdit(this)),
      kind_(new LabelledComboBox(this)),
      table_(new QTableWidget(this)),
      pause_(new QTimer(this)),
      count_(new QLabel(this)),
      more_(new QPushButton("Mehr anzeigen", this)) {
    setObjectName("Frm_Suchen");
    setWindowTitle("Suchen");
    auto* outer = new QVBoxLayout(this);
    auto* row = new QHBoxLayout;
    auto* label = new QLabel("&Suchbegriff:", this);
    label->setBuddy(box_);
    row->addWidget(label);
    box_->setObjectName("Text_Suche");
    box_->installEventFilter(this);
    box_->setPlaceholderText("z. B. Meyer Bäckerei Hauptstraße");
    row->addWidget(box_, 1);
    kind_->setObjectName("Auswahl_Art");
    kind_->setAccessibleName("Suchen nach");
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
    prepareGrid(table_, "Treffer");
    // Every column in view: the short ones as wide as their contents, the texts share the rest.
    auto* header = table_->horizontalHeader();
    for (int c : {0, 1, 2, 6, 7}) header->setSectionResizeMode(c, QHeaderView::ResizeToContents);
    for (int c : {3, 4, 5}) header->setSectionResizeMode(c, QHeaderView::Stretch);
    outer->addWidget(table_, 1);
    auto* buttons = new QHBoxLayout;
    count_->setObjectName("Label_Treffer");
    buttons->addWidget(count_);
    more_->setObjectName("Command_Mehr");
    more_->setVisible(false);
    buttons->addWidget(more_);
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
    connect(more_, &QPushButton::clicked, this, [this] { showHits(true); });
    connect(kind_, &QComboBox::currentIndexChanged, this, &SearchWindow::search);
    connect(box_, &QLineEdit::returnPressed, this,
            [this] { open(std::max(0, table_->currentRow())); });
    // Enter on a hit and a double click both activate it.
    connect(table_, &QTableWidget::activated, this,
            [this](const QModelIndex& index) { open(index.row()); });
    connect(show, &QPushButton::clicked, this, [this] { open(table_->currentRow()); });
    connect(close, &QPushButton::clicked, this, &SearchWindow::closeRequested);
    chainTabOrder({box_, kind_, table_, more_, show, close});
    assignMnemonics(this);
    addCloseKeys(this, [this] { emit closeRequested(); });
}

void SearchWindow::search() {
    showHits(false);
}

void SearchWindow::showHits(bool more) {
    pause_->stop();
    limit_ = more ? kMostHits : kFirstHits;
    hits_.clear();
    const QString query = box_->text().trimmed();
    try {
        if (g_.stores.db_daten.isSet()) {
            store::Connection& c = *g_.stores.db_daten.connection();
            if (!search::hasIndex(c) && !query.isEmpty()) {
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
            // One more than shown tells whether there are more.
            hits_ = search::find(c, query.toStdString(), kind, limit_ + 1);
        }
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Suchen.Suchen", e);
    }
    const bool cut = static_cast<int>(hits_.size()) > limit_;
    if (cut) hits_.resize(static_cast<size_t>(limit_));
    table_->setRowCount(static_cast<int>(hits_.size()));
    for (int r = 0; r < static_cast<int>(hits_.size()); ++r) {
        const auto& h = hits_[static_cast<size_t>(r)];
        const QStringList cells = {
            h.person ? "Person" : "Betrieb",      QString::fromStdString(h.betrNr),
            QString::fromStdString(h.betrHistNr), QString::fromStdString(h.name),
            QString::fromStdString(h.strasse),    QString::fromStdString(h.ort),
            QString::fromStdString(h.gemKz),      h.abgemeldet ? "abgemeldet" : ""};
        for (int c = 0; c < cells.size(); ++c) {
            auto* item = new QTableWidgetItem(cells[c]);
            item->setToolTip(cells[c]);
            table_->setItem(r, c, item);
        }
    }
    if (!hits_.empty()) table_->selectRow(0);
    if (query.isEmpty())
        count_->clear();
    else if (hits_.empty())
        count_->setText("keine Treffer");
    else if (cut && !more)
        count_->setText(QString("die ersten %1 Treffer; es gibt weitere").arg(hits_.size()));
    else if (cut)
        count_->setText(QString("die ersten %1 Treffer; bitte genauer suchen").arg(hits_.size()));
    else
        count_->setText(QString("%1 Treffer").arg(hits_.size()));
    more_->setVisible(cut && !more);
}

// Down in the box goes into the hits.
bool SearchWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == box_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Down && table_->rowCount() > 0) {
        table_->setFocus();
        if (table_->currentRow() < 0) table_->selectRow(0);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void SearchWindow::open(int row) {
    if (row < 0 || row >= static_cast<int>(hits_.size())) return;
    const auto& h = hits_[static_cast<size_t>(row)];
    browse::showFoundBusiness(g_, h.gemKz, h.betrNr, h.betrHistNr, h.person, h.persNr);
    emit recordLoaded();
    // The record view lies behind the window: the window steps aside, the hits stay for the
    // next one.
    if (auto* frame = qobject_cast<QMdiSubWindow*>(parentWidget())) frame->showMinimized();
}

}  // namespace tolma::ui
