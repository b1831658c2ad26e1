#include "ui/evaluation_window.h"

#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "core/error_log.h"
#include "core/output_file.h"
#include "print/qt/evaluation_paint.h"
#include "ui/command_buttons.h"
#include "ui/keyboard.h"
#include "ui/list_window.h"

namespace tolma::ui {
namespace {

// The chart of the window's result, drawn anew with the window.
class ChartView : public QWidget {
  public:
    ChartView(const std::optional<evaluation::Result>& result, QWidget* parent)
        : QWidget(parent), result_(result) {
        setMinimumHeight(200);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.fillRect(rect(), Qt::white);
        if (result_)
            print::paintEvaluationChart(p, QRectF(rect()).adjusted(8, 8, -8, -8), *result_);
    }

  private:
    const std::optional<evaluation::Result>& result_;
};

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

// What the chart shows, in words: a screen reader has no eyes for bars.
QString chartDescription(const evaluation::Result& r) {
    QStringList months;
    for (const auto& [month, c] : r.months)
        months << QString("%1.%2: %3 Anmeldungen, %4 Abmeldungen, Saldo %5")
                      .arg(month.month, 2, 10, QChar('0'))
                      .arg(month.year)
                      .arg(c.anmeldungen)
                      .arg(c.abmeldungen)
                      .arg(c.saldo());
    return "Anmeldungen und Abmeldungen je Monat als Balken, der Saldo als Linie. " +
           months.join("; ") + ".";
}

}  // namespace

EvaluationWindow::EvaluationWindow(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      from_(new QLineEdit(this)),
      to_(new QLineEdit(this)),
      scope_(new LabelledComboBox(this)),
      grouping_(new LabelledComboBox(this)),
      municipality_(new QLineEdit(this)),
      counted_(new QLabel(this)),
      table_(new QTableWidget(this)),
      chart_(new ChartView(result_, this)) {
    setObjectName("Frm_Auswertung");
    setWindowTitle("Auswertungen");
    auto* outer = new QVBoxLayout(this);

    outer->addWidget(buildChoice());

    counted_->setObjectName("Label_Zeitraum");
    outer->addWidget(counted_);
    table_->setObjectName("Tabelle_Auswertung");
    table_->setColumnCount(6);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    prepareGrid(table_, "Ergebnis der Auswertung");
    table_->installEventFilter(this);  // Enter on a number opens what it counts
    outer->addWidget(table_, 3);
    chart_->setObjectName("Diagramm");
    chart_->setAccessibleName("Diagramm je Monat");
    outer->addWidget(chart_, 2);

    outer->addLayout(buildButtons());
    chainTabOrder(
        {from_, to_, grouping_, scope_, municipality_, findChild<QPushButton*>("Command_Auswerten"),
         table_, findChild<QPushButton*>("Command_Drucken"), findChild<QPushButton*>("Command_CSV"),
         findChild<QPushButton*>("Command_Grafik"), findChild<QPushButton*>("Command_Schliessen")});
    assignMnemonics(this);
    addCloseKeys(this, [this] { emit closeRequested(); });
    connect(grouping_, &QComboBox::currentIndexChanged, this, &EvaluationWindow::evaluate);
    connect(table_, &QTableWidget::cellClicked, this, &EvaluationWindow::cellClicked);

    try {
        sections_ = evaluation::loadSections(g_.paths.dataDir / "wz2008_abschnitte.csv");
        const auto period = evaluation::defaultPeriod(g_);
        from_->setText(q(evaluation::monthText(period.first)));
        to_->setText(q(evaluation::monthText(period.second)));
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Auswertung.Form_Load", e);
    }
    evaluate();
}

// The period, the grouping, the municipalities and the button that counts.
QGroupBox* EvaluationWindow::buildChoice() {
    auto* choice = new QGroupBox("Auswahl", this);
    auto* grid = new QGridLayout(choice);
    for (auto* edit : {from_, to_}) {
        edit->setPlaceholderText("MM.JJJJ");
        edit->setMaxLength(7);
        edit->setToolTip("Monat als MM.JJJJ oder JJJJ-MM");
    }
    from_->setObjectName("Datum_Von");
    to_->setObjectName("Datum_Bis");
    scope_->setObjectName("Auswahl_Gemeinden");
    scope_->addItems({"alle Gemeinden", "Gemeinden des Filters", "eine Gemeinde (Gemeinde-KZ):"});
    municipality_->setObjectName("Text_Gemeinde");
    municipality_->setMaxLength(8);
    grouping_->setObjectName("Auswahl_Gruppierung");
    grouping_->addItems({"Wirtschaftsabschnitt (WZ 2008)", "Gemeinde", "Rechtsform", "Meldegrund"});
    const auto label = [choice](const char* text, QWidget* buddy) {
        auto* l = new QLabel(text, choice);
        l->setBuddy(buddy);
        return l;
    };
    grid->addWidget(label("Zeitraum von:", from_), 0, 0);
    grid->addWidget(from_, 0, 1);
    grid->addWidget(label("bis:", to_), 0, 2);
    grid->addWidget(to_, 0, 3);
    grid->addWidget(label("Gruppierung:", grouping_), 0, 4);
    grid->addWidget(grouping_, 0, 5);
    grid->addWidget(label("Gemeinden:", scope_), 1, 0);
    grid->addWidget(scope_, 1, 1, 1, 3);
    municipality_->setAccessibleName("Gemeinde-KZ");
    grid->addWidget(municipality_, 1, 4);
    auto* run = new QPushButton("Auswerten", choice);
    run->setObjectName("Command_Auswerten");
    grid->addWidget(run, 1, 5);
    connect(run, &QPushButton::clicked, this, &EvaluationWindow::evaluate);
    return choice;
}

QHBoxLayout* EvaluationWindow::buildButtons() {
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    addNamedButtons(this, buttons,
                    {{"Command_Drucken", "Drucken", [this] { print(); }},
                     {"Command_CSV", "CSV speichern", [this] { saveCsv(); }},
                     {"Command_Grafik", "Grafik speichern", [this] { saveChart(); }},
                     {"Command_Schliessen", "Schließen", [this] { emit closeRequested(); }}});
    return buttons;
}

void EvaluationWindow::evaluate() {
    evaluation::Query query;
    for (auto [edit, month] : {std::pair{from_, &query.from}, std::pair{to_, &query.to}}) {
        const std::string text = edit->text().trimmed().toStdString();
        const auto parsed = evaluation::parseMonth(text);
        if (!parsed) {
            core::showMessage(g_, evaluation::badMonthMessage(text), core::msg::vbExclamation,
                              "Auswertungen");
            edit->setFocus();
            return;
        }
        *month = *parsed;
    }
    query.grouping = static_cast<evaluation::Grouping>(grouping_->currentIndex());
    query.scope = static_cast<evaluation::Query::Scope>(scope_->currentIndex());
    query.municipality = municipality_->text().trimmed().toStdString();
    if (query.to < query.from) {
        core::showMessage(g_, "Der Beginn des Zeitraums liegt nach seinem Ende!",
                          core::msg::vbExclamation, "Auswertungen");
        return;
    }
    try {
        result_ = evaluation::evaluate(g_, query, sections_);
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Frm_Auswertung.Auswerten", e);
        result_.reset();
    }
    table_->clearContents();
    table_->setRowCount(0);
    counted_->clear();
    chart_->setAccessibleDescription(QString());
    if (!result_) return;
    counted_->setText(q(evaluation::headline(query)));
    table_->setAccessibleDescription(counted_->text());
    chart_->setAccessibleDescription(chartDescription(*result_));
    table_->setHorizontalHeaderLabels({evaluation::groupingCaption(query.grouping), "Anmeldungen",
                                       "Ummeldungen", "Abmeldungen", "Saldo", "Nebenerwerb"});
    auto add = [&](const std::string& name, const evaluation::Counts& c, bool sum) {
        const int row = table_->rowCount();
        table_->insertRow(row);
        const long values[] = {c.anmeldungen, c.ummeldungen, c.abmeldungen, c.saldo(),
                               c.nebenerwerb};
        auto* first = new QTableWidgetItem(QString::fromStdString(name));
        table_->setItem(row, 0, first);
        for (int i = 0; i < 5; ++i) {
            auto* item =
                new QTableWidgetItem(QString::fromStdString(evaluation::germanNumber(values[i])));
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            table_->setItem(row, i + 1, item);
        }
        if (sum)
            for (int i = 0; i < 6; ++i) {
                QFont f = table_->item(row, i)->font();
                f.setBold(true);
                table_->item(row, i)->setFont(f);
            }
    };
    for (const auto& [name, counts] : result_->lines) add(name, counts, false);
    add("Summe", result_->sum, true);
    table_->resizeColumnsToContents();
    table_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    chart_->update();
}

bool EvaluationWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == table_ && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if ((key == Qt::Key_Return || key == Qt::Key_Enter) && table_->currentIndex().isValid()) {
            cellClicked(table_->currentRow(), table_->currentColumn());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void EvaluationWindow::cellClicked(int row, int column) {
    if (!result_ || column < 1 || column == 4) return;  // the balance counts nothing of its own
    const bool sum = row >= static_cast<int>(result_->lines.size());
    std::vector<std::pair<std::string, std::string>> states;
    auto collect = [&](const std::vector<evaluation::Counted>& counted) {
        for (const auto& c : counted)
            if ((column == 1 && c.kind == 1) || (column == 2 && c.kind == 2) ||
                (column == 3 && c.kind == 3) || (column == 5 && c.nebenerwerb))
                states.emplace_back(c.betrNr, c.betrHistNr);
    };
    if (sum)
        for (const auto& [line, counted] : result_->counted) collect(counted);
    else if (auto it = result_->counted.find(result_->lines[static_cast<size_t>(row)].first);
             it != result_->counted.end())
        collect(it->second);
    if (states.empty()) return;
    // Only a list that this click opens is marked, never one the clerk had open before.
    const auto before = window()->findChildren<ListWindow*>();
    emit openStates(states);
    for (auto* list : window()->findChildren<ListWindow*>())
        if (!before.contains(list) && !list->form().persons)
            list->showRestriction(
                q(evaluation::countedDescription(*result_, static_cast<size_t>(row), column)));
}

void EvaluationWindow::print() {
    if (!result_) return;
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, this);
    if (dialog.exec() != QDialog::Accepted) return;
    // Printed to a PDF file, Qt would write the file unchecked: it goes through the program's
    // one way of writing a file instead.
    if (printer.outputFormat() == QPrinter::PdfFormat && !printer.outputFileName().isEmpty())
        save(printer.outputFileName(),
             [&](const std::string& path) { print::saveEvaluationPdf(path, *result_); });
    else
        print::printEvaluation(printer, *result_);
}

void EvaluationWindow::save(const QString& file,
                            const std::function<void(const std::string&)>& write) {
    try {
        write(file.toStdString());
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Auswertungen", e);
        core::showMessage(g_,
                          "Die Datei '" + file.toStdString() +
                              "' konnte nicht geschrieben werden!\n" + core::describeError(e).text,
                          core::msg::vbExclamation, "Auswertungen");
    }
}

void EvaluationWindow::saveCsv() {
    if (!result_) return;
    const QString file = QFileDialog::getSaveFileName(
        this, "CSV speichern", QString::fromStdString(g_.paths.pfad_dat + "auswertung.csv"),
        "CSV-Dateien (*.csv)");
    if (file.isEmpty()) return;
    // Counts only, no names: readable as the umask allows.
    save(file, [&](const std::string& path) {
        core::writeFileAtomically(path, evaluation::tableCsv(*result_), core::FileAccess::Shared);
    });
}

void EvaluationWindow::saveChart() {
    if (!result_) return;
    const QString file = QFileDialog::getSaveFileName(
        this, "Grafik speichern", QString::fromStdString(g_.paths.pfad_dat + "auswertung.png"),
        "PNG-Bilder (*.png)");
    if (file.isEmpty()) return;
    save(file, [&](const std::string& path) { print::saveEvaluationChart(path, *result_); });
}

}  // namespace tolma::ui
