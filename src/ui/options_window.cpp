#include "ui/options_window.h"

#include <QApplication>
#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "core/error_log.h"
#include "protection/retention.h"
#include "relocation/store_move.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/server_address.h"
#include "transfer/import_driver.h"
#include "transfer/journal.h"
#include "ui/keyboard.h"

namespace tolma::ui {

OptionsWindow::OptionsWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      check1_(new QCheckBox("Filter aktiviert", this)),
      list1_(new QListWidget(this)),
      text7_(new QLineEdit(this)) {
    setObjectName("Frm_Optionen");
    setWindowTitle(" TOLMA_3x_Access  (Optionen)");
    auto* outer = new QHBoxLayout(this);

    outer->addLayout(buildStores(), 1);
    outer->addWidget(buildFilter(), 1);
    assignMnemonics(this);
    addCloseKeys(this, [this] { findChild<QPushButton*>("Command3_1")->click(); });
    activate();
}

// The two stores, the error log, the import runs kept, the period before deletion, the search
// index and the way back.
QVBoxLayout* OptionsWindow::buildStores() {
    auto* stores = new QVBoxLayout;
    for (int i = 0; i < 2; ++i) stores->addWidget(buildStoreFrame(i));
    auto* log = new QGroupBox("Error-Log-Datei", this);
    log->setObjectName("Frame4_0");
    auto* logLayout = new QHBoxLayout(log);
    const char* logCaptions[] = {"Anzeigen", "Löschen"};
    for (int i = 0; i < 2; ++i) {
        auto* button = new QPushButton(logCaptions[i], log);
        button->setObjectName(QString("Command2_%1").arg(i));
        connect(button, &QPushButton::clicked, this,
                [this, i] { run([&] { options::Command2_Click(g_, form_, i); }); });
        logLayout->addWidget(button);
    }
    stores->addWidget(log);

    stores->addWidget(buildRunsFrame());
    stores->addWidget(buildRetentionFrame());
    stores->addWidget(buildIndexFrame());
    stores->addWidget(buildCopyFrame());
    stores->addStretch(1);
    auto* back = new QPushButton("Zurück", this);
    back->setObjectName("Command3_1");
    connect(back, &QPushButton::clicked, this, [this] {
        takeSelection();
        bool close = false;
        run([&] {
            // A path typed into a box counts as given when the window is left.
            bool pathsTaken = true;
            for (int i = 0; i < 2; ++i)
                pathsTaken =
                    options::changeStorePath(g_, form_, i, paths_[i]->text().toStdString()) &&
                    pathsTaken;
            close = pathsTaken && options::Command3_Click(g_, form_, 1);
        });
        if (close) emit closeRequested();
    });
    stores->addWidget(back, 0, Qt::AlignRight);
    return stores;
}

// One store's path and what can be done with it.
QGroupBox* OptionsWindow::buildStoreFrame(int i) {
    const char* frameCaptions[] = {"Datenbank (BETRIEBSBEZOGENE DATEN)",
                                   "Datenbank (MELDUNGSBEZOGENE DATEN)"};
    const char* kindCaptions[] = {"Daten-Art in \"meldungsbezogen\" ändern",
                                  "Daten-Art in \"betriebsbezogen\" ändern"};
    auto* frame = new QGroupBox(frameCaptions[i], this);
    frame->setObjectName(QString("Frame1_%1").arg(i));
    auto* grid = new QGridLayout(frame);
    paths_[i] = new QLineEdit(frame);
    paths_[i]->setObjectName(QString("Text6_%1").arg(i));
    paths_[i]->setPlaceholderText("Datei oder postgresql://rechner/datenbank");
    paths_[i]->setToolTip(
        "Pfad der Datenbankdatei oder Verbindungsangabe eines Datenbankservers, z. B. "
        "postgresql://benutzer@rechner/tolma oder service=tolma");
    paths_[i]->setAccessibleName(i == 0 ? "Pfad der betriebsbezogenen Datenbank"
                                        : "Pfad der meldungsbezogenen Datenbank");
    grid->addWidget(paths_[i], 0, 0, 1, 3);
    const std::pair<const char*, QString> buttons[] = {{"Command11", "Datenbank-Pfad ändern"},
                                                       {"Command12", kindCaptions[i]},
                                                       {"Command4", "Datenbank leeren"}};
    for (int b = 0; b < 3; ++b) {
        auto* button = new QPushButton(buttons[b].second, frame);
        button->setObjectName(QString("%1_%2").arg(buttons[b].first).arg(i));
        grid->addWidget(button, 1, b);
        connect(button, &QPushButton::clicked, this, [this, b, i] {
            run([&] {
                if (b == 0) options::Command11_Click(g_, form_, i);
                if (b == 1) options::Command12_Click(g_, form_, i);
                if (b == 2) options::Command4_Click(g_, form_, i);
            });
            emit storeChanged();
        });
    }
    frames_[i] = frame;
    return frame;
}

QGroupBox* OptionsWindow::buildRunsFrame() {
    // How many import runs keep what they changed, for taking them back.
    auto* runs = new QGroupBox("Import zurücknehmen", this);
    runs->setObjectName("Frame_Importlaeufe");
    auto* runsLayout = new QHBoxLayout(runs);
    runsLayout->addWidget(new QLabel("Aufzeichnungen der letzten", runs));
    auto* kept = new QSpinBox(runs);
    kept->setObjectName("Spin_Importlaeufe");
    kept->setAccessibleName("Zahl der aufbewahrten Importläufe");
    kept->setRange(1, 999);
    kept->setValue(transfer::keptImportRuns(g_));
    runsLayout->addWidget(kept);
    runsLayout->addWidget(new QLabel("Importläufe aufbewahren", runs));
    runsLayout->addStretch(1);
    connect(kept, &QSpinBox::valueChanged, this,
            [this](int n) { run([&] { transfer::setKeptImportRuns(g_, n); }); });
    return runs;
}

QGroupBox* OptionsWindow::buildRetentionFrame() {
    // The period that "Extras › Löschfristen..." proposes.
    auto* frame = new QGroupBox("Löschfristen", this);
    frame->setObjectName("Frame_Loeschfristen");
    auto* row = new QHBoxLayout(frame);
    auto* label = new QLabel("Aufbewahrung nach der Abmeldung:", frame);
    auto* years = new QSpinBox(frame);
    years->setObjectName("Spin_Aufbewahrung");
    years->setAccessibleName("Aufbewahrung nach der Abmeldung in Jahren");
    years->setRange(1, 99);
    years->setValue(protection::retentionYears(g_));
    label->setBuddy(years);
    row->addWidget(label);
    row->addWidget(years);
    row->addWidget(new QLabel("Jahre", frame));
    row->addStretch(1);
    connect(years, &QSpinBox::valueChanged, this,
            [this](int n) { run([&] { protection::setRetentionYears(g_, n); }); });
    return frame;
}

QGroupBox* OptionsWindow::buildIndexFrame() {
    // The search's index, built anew where an administrator changed the store with other tools.
    auto* index = new QGroupBox("Suchen", this);
    index->setObjectName("Frame_Suchindex");
    auto* indexLayout = new QHBoxLayout(index);
    auto* rebuild = new QPushButton("Suchindex neu aufbauen", index);
    rebuild->setObjectName("Command_Suchindex");
    indexLayout->addWidget(rebuild);
    indexLayout->addStretch(1);
    connect(rebuild, &QPushButton::clicked, this, [this] {
        run([&] {
            if (!g_.stores.db_daten.isSet()) return;
            QProgressDialog progress("Der Suchindex wird aufgebaut ...", QString(), 0, 100, this);
            progress.setWindowTitle("Suchindex neu aufbauen");
            progress.setMinimumDuration(300);
            search::buildIndex(*g_.stores.db_daten.connection(), [&](long done, long total) {
                progress.setValue(total ? static_cast<int>(done * 100 / total) : 100);
                QApplication::processEvents();
            });
            core::showMessage(g_, "Der Suchindex wurde neu aufgebaut!", core::msg::vbInformation,
                              "Suchindex neu aufbauen");
        });
    });
    return index;
}

QGroupBox* OptionsWindow::buildCopyFrame() {
    // The open store moved to a server, or from one back into a file.
    auto* frame = new QGroupBox("Datenbank kopieren", this);
    frame->setObjectName("Frame_Kopieren");
    auto* row = new QHBoxLayout(frame);
    auto* copy = new QPushButton("Kopieren nach ...", frame);
    copy->setObjectName("Command_Kopieren");
    copy->setToolTip(
        "Kopiert die geöffnete Datenbank mit Importläufen, Protokoll und Suchindex in eine neue "
        "Datei oder auf einen eingerichteten Datenbankserver");
    row->addWidget(copy);
    row->addStretch(1);
    connect(copy, &QPushButton::clicked, this, [this] { run([&] { copyStore(); }); });
    return frame;
}

void OptionsWindow::copyStore() {
    if (!g_.stores.db_daten.isSet()) return;
    const std::string title = "Datenbank kopieren";
    bool given = false;
    const std::string target =
        QInputDialog::getText(this, QString::fromStdString(title),
                              "Ziel der Kopie: eine neue Datei oder die Verbindungsangabe eines "
                              "eingerichteten Datenbankservers\n(z. B. "
                              "postgresql://rechner/datenbank oder service=tolma):",
                              QLineEdit::Normal, QString(), &given)
            .trimmed()
            .toStdString();
    if (!given || target.empty()) return;
    if (store::isServerText(target) && !store::passwordIn(target).empty()) {
        core::showMessage(g_,
                          "Die Verbindungsangabe darf kein Kennwort enthalten. Es wurde nichts "
                          "kopiert.",
                          core::msg::vbExclamation, title);
        return;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const auto report = relocation::copyOpenStore(g_, target);
    QApplication::restoreOverrideCursor();
    std::string text;
    for (const auto& line : report.lines) text += (text.empty() ? "" : "\n") + line;
    core::showMessage(g_, text,
                      report.outcome == relocation::CopyOutcome::Copied ? core::msg::vbInformation
                                                                        : core::msg::vbExclamation,
                      title);
}

// The municipality filter: the list, its marks and the lookup by number.
QGroupBox* OptionsWindow::buildFilter() {
    auto* frame5 = new QGroupBox("Gemeinden/LRA", this);
    frame5->setObjectName("Frame5");
    auto* f5 = new QVBoxLayout(frame5);
    auto* frame2 = new QGroupBox(frame5);
    frame2->setObjectName("Frame2");
    auto* f2 = new QHBoxLayout(frame2);
    check1_->setObjectName("Check1");
    connect(check1_, &QCheckBox::clicked, this,
            [this](bool on) { run([&] { options::Check1_Click(g_, form_, on); }); });
    f2->addWidget(check1_);
    f5->addWidget(frame2);
    list1_->setObjectName("List1");
    list1_->setAccessibleName("Liste der Gemeinden und Landratsämter");
    list1_->setSelectionMode(QAbstractItemView::MultiSelection);
    list1_->setUniformItemSizes(true);
    f5->addWidget(list1_, 1);
    auto* frame3 = new QGroupBox("Markierungen", frame5);
    frame3->setObjectName("Frame3");
    auto* f3 = new QHBoxLayout(frame3);
    filterButtons_[0] = new QPushButton("alle setzen", frame3);
    filterButtons_[0]->setObjectName("Command7");
    filterButtons_[0]->setToolTip("alle angezeigten Gemeinden markieren");
    filterButtons_[2] = new QPushButton("alle löschen", frame3);
    filterButtons_[2]->setObjectName("Command9");
    filterButtons_[2]->setToolTip("Markierungen aller angezeigten Gemeinden löschen");
    f3->addWidget(filterButtons_[0]);
    f3->addWidget(filterButtons_[2]);
    f5->addWidget(frame3);
    auto* all = new QPushButton("alle anzeigen", frame5);
    all->setObjectName("Command6");
    all->setToolTip("alle angezeigten Gemeinden markieren");
    f5->addWidget(all);
    auto* frame6 = new QGroupBox("Kennzahl-Filter: ", frame5);
    frame6->setObjectName("Frame6");
    auto* f6 = new QHBoxLayout(frame6);
    text7_->setObjectName("Text7");
    text7_->setToolTip("Kennzahl Gemeinde/LRA");
    text7_->setAccessibleName("Kennzahl Gemeinde/LRA");
    filterButtons_[1] = new QPushButton("anzeigen", frame6);
    filterButtons_[1]->setObjectName("Command8");
    filterButtons_[1]->setToolTip("Anzeige von Gemeinden/LRA mit der ausgewählten Kennzahl");
    f6->addWidget(text7_);
    f6->addWidget(filterButtons_[1]);
    f5->addWidget(frame6);

    connect(filterButtons_[0], &QPushButton::clicked, this,
            [this] { run([&] { options::Command7_Click(g_, form_); }); });
    connect(filterButtons_[2], &QPushButton::clicked, this,
            [this] { run([&] { options::Command9_Click(g_, form_); }); });
    connect(all, &QPushButton::clicked, this,
            [this] { run([&] { options::Command6_Click(g_, form_); }); });
    connect(filterButtons_[1], &QPushButton::clicked, this, [this] {
        form_.Text7 = text7_->text().toStdString();
        run([&] { options::Command8_Click(g_, form_); });
    });
    return frame5;
}

OptionsWindow::~OptionsWindow() {
    options::Form_Unload(g_);
}

void OptionsWindow::activate() {
    takeSelection();
    run([&] { options::Form_Activate(g_, form_); });
}

void OptionsWindow::takeSelection() {
    for (int i = 0; i < list1_->count() && static_cast<size_t>(i) < form_.selected.size(); ++i)
        form_.selected[static_cast<size_t>(i)] = list1_->item(i)->isSelected();
}

template <class Handler>
void OptionsWindow::run(Handler&& handler) {
    takeSelection();
    // No failure of a handler may cross the event loop.
    try {
        handler();
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Optionen", e);
    }
    refreshFromCore();
    g_.shell->refreshView();
}

void OptionsWindow::refreshFromCore() {
    for (int i = 0; i < 2; ++i) {
        frames_[i]->setEnabled(form_.frameEnabled[i]);
        paths_[i]->setText(QString::fromStdString(g_.forms.optionen.Text6[i]));
    }
    check1_->setChecked(form_.Check1);
    for (auto* b : filterButtons_) b->setEnabled(form_.filterControlsEnabled);
    text7_->setEnabled(form_.filterControlsEnabled);
    list1_->setEnabled(form_.filterControlsEnabled);
    // The whole list at once: eleven thousand entries take no noticeable time.
    list1_->setUpdatesEnabled(false);
    QStringList entries;
    entries.reserve(static_cast<int>(form_.List1.size()));
    for (const auto& e : form_.List1) entries << QString::fromStdString(e);
    if (list1_->count() != entries.size()) {
        list1_->clear();
        list1_->addItems(entries);
    } else {
        for (int i = 0; i < entries.size(); ++i)
            if (list1_->item(i)->text() != entries[i]) list1_->item(i)->setText(entries[i]);
    }
    QItemSelection selection;
    for (int i = 0; i < entries.size(); ++i)
        if (form_.selected[static_cast<size_t>(i)])
            selection.select(list1_->model()->index(i, 0), list1_->model()->index(i, 0));
    list1_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    list1_->setUpdatesEnabled(true);
    QApplication::restoreOverrideCursor();
    if (form_.MousePointer == 11) QApplication::setOverrideCursor(Qt::WaitCursor);
}

}  // namespace tolma::ui
