#include "ui/protection_windows.h"

#include <QDateEdit>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "core/error_log.h"
#include "model/relations.h"
#include "protection/protocol.h"
#include "store/connection.h"
#include "text/text.h"
#include "ui/command_buttons.h"
#include "ui/keyboard.h"

namespace tolma::ui {
namespace {

QTableWidget* makeGrid(QWidget* parent, const char* name, const QString& accessible,
                       const QStringList& headers) {
    auto* grid = new QTableWidget(parent);
    grid->setObjectName(name);
    grid->setColumnCount(static_cast<int>(headers.size()));
    grid->setHorizontalHeaderLabels(headers);
    grid->setSelectionBehavior(QAbstractItemView::SelectRows);
    grid->setEditTriggers(QAbstractItemView::NoEditTriggers);
    grid->verticalHeader()->hide();
    grid->horizontalHeader()->setStretchLastSection(true);
    prepareGrid(grid, accessible);
    return grid;
}

void fillRow(QTableWidget* grid, int row, const QStringList& cells) {
    for (int c = 0; c < cells.size(); ++c) grid->setItem(row, c, new QTableWidgetItem(cells[c]));
}

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

int today(core::Globals& g) {
    return std::stoi(text::localTime(g.clock(), "%Y%m%d"));
}

}  // namespace

RetentionWindow::RetentionWindow(core::Globals& g, QWidget* parent)
    : QDialog(parent), g_(g), day_(new QDateEdit(this)) {
    setObjectName("Frm_Loeschfristen");
    setWindowTitle("Löschfristen");
    auto* layout = new QVBoxLayout(this);
    const int years = protection::retentionYears(g_);
    layout->addWidget(new QLabel(
        QString("Gelöscht werden Betriebe, die vor dem gewählten Tag abgemeldet wurden, mit allen "
                "ihren Daten und den Personen, die mit keinem anderen Betrieb verbunden sind. "
                "Vorgeschlagen ist der Tag vor %1 Jahren (Extras › Optionen).")
            .arg(years),
        this));
    layout->itemAt(0)->widget()->setProperty("wordWrap", true);
    auto* form = new QFormLayout;
    const int proposed = protection::yearsBefore(today(g_), years);
    day_->setObjectName("Datum_Abgemeldet_vor");
    day_->setDisplayFormat("dd.MM.yyyy");
    day_->setCalendarPopup(true);
    day_->setDate(QDate(proposed / 10000, proposed / 100 % 100, proposed % 100));
    auto* dayLabel = new QLabel("Abgemeldet vor dem:", this);
    dayLabel->setBuddy(day_);
    form->addRow(dayLabel, day_);
    layout->addLayout(form);

    businesses_ = makeGrid(this, "Liste_Betriebe", "Betriebe, die gelöscht werden",
                           {"Betriebsnummer", "Name", "Abgemeldet am"});
    persons_ = makeGrid(this, "Liste_Personen", "Personen der Betriebe",
                        {"Personennummer", "Name", "Verbleib"});
    auto* businessesLabel = new QLabel("Betriebe, die gelöscht werden:", this);
    businessesLabel->setBuddy(businesses_);
    auto* personsLabel = new QLabel("Personen dieser Betriebe:", this);
    personsLabel->setBuddy(persons_);
    layout->addWidget(businessesLabel);
    layout->addWidget(businesses_, 2);
    layout->addWidget(personsLabel);
    layout->addWidget(persons_, 1);
    summary_ = new QLabel(this);
    summary_->setObjectName("Label_Zeilen");
    summary_->setWordWrap(true);
    layout->addWidget(summary_);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    const auto made = addNamedButtons(this, buttons,
                                      {{"Command_Pruefen", "Prüfen", [this] { check(); }},
                                       {"Command_Loeschen", "Löschen...", [this] { remove(); }},
                                       {"Command_Schliessen", "Schließen", [this] { accept(); }}});
    for (QPushButton* b : made) b->setAutoDefault(false);
    delete_ = made[1];
    delete_->setEnabled(false);  // only what a check has shown can be deleted
    made[0]->setDefault(true);
    layout->addLayout(buttons);
    connect(day_, &QDateEdit::dateChanged, this, [this] { delete_->setEnabled(false); });
    assignMnemonics(this, QString());
    addCloseKeys(this, [this] { reject(); },
                 {QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence(Qt::CTRL | Qt::Key_F4)});
    resize(760, 560);
}

int RetentionWindow::chosenDay() const {
    const QDate d = day_->date();
    return d.year() * 10000 + d.month() * 100 + d.day();
}

void RetentionWindow::check() {
    try {
        if (!g_.stores.db_daten.isSet()) return;
        showPlan(protection::planDeletion(*g_.stores.db_daten.connection(), chosenDay()));
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Loeschfristen.Pruefen", e);
        core::showMessage(g_, "Die Prüfung ist gescheitert.", core::msg::vbExclamation,
                          "Löschfristen");
    }
}

void RetentionWindow::showPlan(const protection::DeletionPlan& plan) {
    businesses_->setRowCount(static_cast<int>(plan.businesses.size()));
    for (size_t i = 0; i < plan.businesses.size(); ++i) {
        const auto& b = plan.businesses[i];
        fillRow(businesses_, static_cast<int>(i), {q(b.nr), q(b.name), q(b.deregistered)});
    }
    persons_->setRowCount(static_cast<int>(plan.persons.size() + plan.kept.size()));
    int row = 0;
    for (const auto& p : plan.persons)
        fillRow(persons_, row++, {q(p.nr), q(p.name), "wird gelöscht"});
    for (const auto& p : plan.kept)
        fillRow(persons_, row++,
                {q(p.nr), q(p.name), "bleibt (mit einem anderen Betrieb verbunden)"});
    businesses_->resizeColumnsToContents();
    persons_->resizeColumnsToContents();
    QString rows;
    for (const auto& [table, n] : plan.rows) {
        const model::Relation* r = model::relationOf(table);
        rows += (rows.isEmpty() ? "" : ", ") +
                q(std::string(r && !r->title.empty() ? r->title : table)) + " " +
                QString::number(n);
    }
    summary_->setText(plan.businesses.empty()
                          ? QString("Keine Betriebe, die vor dem %1 abgemeldet wurden.")
                                .arg(q(protection::showDay(plan.before)))
                          : QString("Was gelöscht wird: %1").arg(rows));
    delete_->setEnabled(!plan.businesses.empty());
}

void RetentionWindow::remove() {
    const auto result = protection::deleteAfterPeriod(g_, chosenDay(), false, nullptr);
    if (result.outcome == protection::DeletionOutcome::Deleted) emit storeChanged();
    check();
}

ProtocolWindow::ProtocolWindow(core::Globals& g, QWidget* parent) : QDialog(parent) {
    setObjectName("Frm_Protokoll");
    setWindowTitle("Protokoll der Löschungen und Auskünfte");
    auto* layout = new QVBoxLayout(this);
    table_ = makeGrid(this, "Liste_Protokoll", "Protokoll",
                      {"Nr", "Zeit", "Benutzer", "Aktion", "Kriterium", "Betroffen", "Anzahl"});
    layout->addWidget(table_, 1);
    std::vector<protection::ProtocolEntry> entries;
    try {
        if (g.stores.db_daten.isSet())
            entries = protection::readProtocol(*g.stores.db_daten.connection());
    } catch (const std::exception& e) {
        core::logTrapped(g, "Frm_Protokoll.Form_Load", e);
    }
    table_->setRowCount(static_cast<int>(entries.size()));
    int row = 0;
    // The newest first: it is the one most often looked for.
    for (auto it = entries.rbegin(); it != entries.rend(); ++it)
        fillRow(table_, row++,
                {QString::number(it->nr), q(it->zeit), q(it->benutzer), q(it->aktion),
                 q(it->kriterium), q(it->betroffen), q(it->anzahl)});
    table_->resizeColumnsToContents();
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    addNamedButtons(this, buttons, {{"Command_Schliessen", "Schließen", [this] { accept(); }}});
    layout->addLayout(buttons);
    assignMnemonics(this, QString());
    addCloseKeys(this, [this] { reject(); },
                 {QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence(Qt::CTRL | Qt::Key_F4)});
    resize(900, 400);
}

}  // namespace tolma::ui
