#include "ui/list_window.h"

#include <QButtonGroup>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QShortcut>
#include <QTableView>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <string_view>

#include "ui/command_buttons.h"
#include "ui/data_control_widget.h"
#include "ui/keyboard.h"
#include "ui/list_model.h"
#include "ui/print_support.h"

namespace tolma::ui {
namespace {

// Names are what a clerk reads a list by: they keep this many characters where the others can
// give up room, and they get what is spare.
constexpr int kNameCharacters = 24;

// Takes up to `excess` pixels from the columns `which`, each in proportion to what it has
// beyond its heading in two lines, never below that; returns what is still missing (below
// zero where rounding took a few pixels too many).
int narrowColumns(std::vector<int>& widths, const std::vector<int>& floors,
                  const std::vector<int>& which, int excess) {
    int beyond = 0;
    for (int c : which)
        beyond += std::max(0, widths[static_cast<size_t>(c)] - floors[static_cast<size_t>(c)]);
    if (excess <= 0 || beyond <= 0) return excess;
    const long wanted = std::min(excess, beyond);
    for (int c : which) {
        const int own = widths[static_cast<size_t>(c)] - floors[static_cast<size_t>(c)];
        if (own <= 0) continue;
        // Rounded up, so that the columns fit.
        const int cut = std::min(own, static_cast<int>((own * wanted + beyond - 1) / beyond));
        widths[static_cast<size_t>(c)] -= cut;
        excess -= cut;
    }
    return excess;
}

}  // namespace

ListWindow::ListWindow(core::Globals& g, std::unique_ptr<browse::ListForm> form, QWidget* parent)
    : QWidget(parent),
      g_(g),
      form_(std::move(form)),
      frame1_(new QGroupBox("Suchkriterien", this)),
      grid_(new QTableView(this)),
      model_(nullptr),
      blaettern_(nullptr),
      label1_(new QLabel(this)),
      reader_(new QTimer(this)) {
    reader_->setSingleShot(true);
    reader_->setInterval(50);  // asks now and then whether the rest of a long list is read
    connect(reader_, &QTimer::timeout, this, [this] { readOn(); });
    setObjectName(form_->name());
    setWindowTitle(form_->persons ? "  TOLMA_3x_Access  (Auswahlliste - Personen)"
                                  : " TOLMA_3x_Access  (Auswahlliste - Betriebe)");
    auto* outer = new QVBoxLayout(this);
    buildSearchBoxes();
    outer->addWidget(frame1_);
    auto* frame2 = new QGroupBox("Auswahlliste", this);
    frame2->setObjectName("Frame2");
    auto* list = new QVBoxLayout(frame2);
    buildGrid();
    list->addWidget(grid_);
    auto* under = new QHBoxLayout;
    form_->data.Caption = "blättern";
    blaettern_ = new DataControlWidget(
        form_->data, [this] { selectCurrentRow(); }, frame2);
    under->addWidget(blaettern_);
    label1_->setObjectName("Label1");
    under->addWidget(label1_, 1);
    list->addLayout(under);
    outer->addWidget(frame2, 1);
    outer->addLayout(buildButtons());
    setUpKeyboard();

    connect(grid_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) {
                if (syncing_ || !current.isValid()) return;
                try {
                    form_->data.Recordset().setAbsolutePosition(current.row());
                } catch (const std::exception&) {
                }
                browse::updateCounter(*form_);
                label1_->setText(QString::fromStdString(form_->Label1));
                blaettern_->refresh();
            });
    refreshFromCore();
}

void ListWindow::buildSearchBoxes() {
    frame1_->setObjectName("Frame1");
    auto* search = new QGridLayout(frame1_);
    const auto& columns = form_->columns();
    int cell = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        if (!columns[i].label) continue;
        auto* box = new QLineEdit(frame1_);
        box->setObjectName(QString("Text1_%1").arg(i));
        box->setMaxLength(columns[i].maxLength);
        box->installEventFilter(this);
        // Enter opens the row the search found, as "OK" does.
        connect(box, &QLineEdit::returnPressed, this, [this] { command(0); });
        auto* label = new QLabel(QString::fromUtf8(columns[i].label), frame1_);
        label->setBuddy(box);
        search->addWidget(label, cell / 3, (cell % 3) * 2, Qt::AlignRight);
        search->addWidget(box, cell / 3, (cell % 3) * 2 + 1);
        ++cell;
        const int index = static_cast<int>(i);
        connect(box, &QLineEdit::textEdited, this, [this, index](const QString& text) {
            form_->Text1[static_cast<size_t>(index)] = text.toStdString();
            browse::Text1_Change(g_, *form_, index);
            selectCurrentRow();
        });
        boxes_.push_back(box);
    }
}

void ListWindow::buildGrid() {
    grid_->setObjectName("DBGrid1");
    QFont mono("Courier New");
    mono.setStyleHint(QFont::Monospace);
    mono.setFamilies({"Courier New", "Liberation Mono", "DejaVu Sans Mono"});
    grid_->setFont(mono);
    grid_->setSelectionBehavior(QAbstractItemView::SelectRows);
    grid_->setSelectionMode(QAbstractItemView::SingleSelection);
    grid_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    // A long name is cut at its last character that fits, not at its first word.
    grid_->setWordWrap(false);
    grid_->verticalHeader()->setDefaultSectionSize(grid_->fontMetrics().height() + 4);
    model_ = new RecordsetTableModel(form_->data, form_->columns(), this);
    grid_->setModel(model_);
    measureColumns();
    grid_->horizontalHeader()->setDefaultAlignment(
        Qt::Alignment::fromInt(Qt::AlignCenter | Qt::TextWordWrap));
    grid_->viewport()->installEventFilter(this);  // its width is the columns' to fill
    grid_->installEventFilter(this);              // Enter opens the row, as OK does
    prepareGrid(grid_, form_->persons ? "Auswahlliste der Personen" : "Auswahlliste der Betriebe");
    connect(grid_, &QTableView::doubleClicked, this, [this] { command(0); });
}

// Wide enough for the caption and, for names, for a good part of the name.
void ListWindow::measureColumns() {
    const auto& columns = form_->columns();
    for (int c = 0; c < static_cast<int>(columns.size()); ++c) {
        const auto& column = columns[static_cast<size_t>(c)];
        const int caption =
            grid_->fontMetrics().horizontalAdvance(QString::fromUtf8(column.caption)) + 20;
        const int content = grid_->fontMetrics().horizontalAdvance('M') *
                            std::min(column.maxLength > 0 ? column.maxLength : 12, 18);
        naturalWidths_.push_back(std::max(caption, content));
        grid_->setColumnWidth(c, naturalWidths_.back());
        // Narrowed, a heading breaks between its words into two lines, for which the header has
        // room: the wider line at its best break is what it must keep.
        const QStringList words = QString::fromUtf8(column.caption).split(' ');
        const auto advance = [this](const QStringList& part) {
            return grid_->fontMetrics().horizontalAdvance(part.join(' '));
        };
        int twoLines = advance(words);
        for (qsizetype i = 1; i < words.size(); ++i)
            twoLines =
                std::min(twoLines, std::max(advance(words.mid(0, i)), advance(words.mid(i))));
        captionWidths_.push_back(twoLines + 20);
    }
}

QHBoxLayout* ListWindow::buildButtons() {
    auto* buttons = new QHBoxLayout;
    if (!form_->persons) {
        options_ = new QButtonGroup(this);
        const char* captions[] = {"Alle", "Aktuelle", "Abgemeldete"};
        for (int i = 0; i < 3; ++i) {
            auto* option = new QRadioButton(captions[i], this);
            option->setObjectName(QString("Option1_%1").arg(i));
            option->setChecked(i == 0);
            options_->addButton(option, i);
            buttons->addWidget(option);
        }
        connect(options_, &QButtonGroup::idClicked, this, [this](int index) {
            browse::Option1_Click(g_, *form_, index);
            reloadModel();
            selectCurrentRow();
        });
    }
    buttons->addStretch(1);
    addCommandButtons(this, buttons, "Command1", {{0, "OK"}, {1, "Abbrechen"}},
                      [this](int i) { command(i); });
    auto* frame3 = new QGroupBox("drucken", this);
    frame3->setObjectName("Frame3");
    auto* print = new QHBoxLayout(frame3);
    addCommandButtons(frame3, print, "Command1", {{3, "Satz"}, {4, "Liste"}},
                      [this](int i) { command(i); });
    buttons->addWidget(frame3);
    return buttons;
}

ListWindow::~ListWindow() {
    browse::Form_Unload(g_, *form_);
}

void ListWindow::showRestriction(const QString& what) {
    auto* label = new QLabel("Gezählt in der Auswertung: " + what, this);
    label->setObjectName("Label_Auswertung");
    label->setWordWrap(true);
    QFont bold = label->font();
    bold.setBold(true);
    label->setFont(bold);
    static_cast<QBoxLayout*>(layout())->insertWidget(0, label);
    const QString title = windowTitle();
    setWindowTitle(title.trimmed().endsWith(')')
                       ? title.left(title.lastIndexOf(')')) + ": " + what + ")"
                       : title + " – " + what);
    if (!options_) return;
    options_->setExclusive(false);
    for (auto* option : options_->buttons()) option->setChecked(false);
    options_->setExclusive(true);
    connect(options_, &QButtonGroup::buttonClicked, label,
            [this, label, title, what](QAbstractButton* option) {
                label->setFont(font());
                label->setText(withoutMnemonic(option->text()) +
                               " Betriebe: die Einschränkung auf „" + what + "“ ist aufgehoben.");
                setWindowTitle(title);
            });
}

void ListWindow::setUpKeyboard() {
    // Tab goes from the search boxes through the grid to the arrows and the buttons.
    std::vector<QWidget*> chain(boxes_.begin(), boxes_.end());
    chain.push_back(grid_);
    for (auto* arrow : blaettern_->findChildren<QToolButton*>()) chain.push_back(arrow);
    for (auto* option : findChildren<QRadioButton*>()) chain.push_back(option);
    for (const char* name : {"Command1_0", "Command1_1", "Command1_3", "Command1_4"})
        chain.push_back(findChild<QPushButton*>(name));
    chainTabOrder(chain);
    assignMnemonics(this);
    addCloseKeys(this, [this] { command(1); });
    // The key that sorts by a column, as a click into its search box does.
    auto* sort = new QShortcut(QKeySequence(Qt::Key_F3), this);
    sort->setContext(Qt::WidgetWithChildrenShortcut);
    connect(sort, &QShortcut::activated, this, [this] {
        for (auto* box : boxes_)
            if (box->hasFocus()) return sortBy(box->objectName().mid(6).toInt());
        if (grid_->hasFocus() && grid_->currentIndex().isValid())
            sortBy(grid_->currentIndex().column());
    });
    // Typing to find is what a list is opened for.
    if (!boxes_.empty() && form_->Frame1Visible)
        boxes_.front()->setFocus();
    else
        grid_->setFocus();
}

void ListWindow::sortBy(int column) {
    browse::Text1_Click(g_, *form_, column);
    for (auto* box : boxes_) box->clear();
    reloadModel();
    selectCurrentRow();
}

void ListWindow::fitColumns() {
    const int columns = static_cast<int>(naturalWidths_.size());
    std::vector<int> widths = naturalWidths_, names, others;
    const int nameWidth = kNameCharacters * grid_->fontMetrics().horizontalAdvance('M');
    for (int c = 0; c < columns; ++c) {
        if (std::string_view(form_->columns()[static_cast<size_t>(c)].field).ends_with("name")) {
            names.push_back(c);
            widths[static_cast<size_t>(c)] = std::max(widths[static_cast<size_t>(c)], nameWidth);
        } else {
            others.push_back(c);
        }
    }
    int excess = -grid_->viewport()->width();
    for (int w : widths) excess += w;
    excess = narrowColumns(widths, captionWidths_, others, excess);
    excess = narrowColumns(widths, captionWidths_, names, excess);
    if (excess < 0) {
        if (names.empty()) names.push_back(columns - 1);
        const int spare = -excess, share = spare / static_cast<int>(names.size());
        for (int c : names) widths[static_cast<size_t>(c)] += share;
        widths[static_cast<size_t>(names.front())] +=
            spare - share * static_cast<int>(names.size());
    }
    bool narrowed = false;
    for (int c = 0; c < columns; ++c) {
        grid_->setColumnWidth(c, widths[static_cast<size_t>(c)]);
        narrowed =
            narrowed || widths[static_cast<size_t>(c)] < naturalWidths_[static_cast<size_t>(c)];
    }
    auto* header = grid_->horizontalHeader();
    header->setMinimumHeight(narrowed ? 2 * header->fontMetrics().height() + 8 : 0);
}

void ListWindow::refreshFromCore() {
    frame1_->setVisible(form_->Frame1Visible);
    reloadModel();
    selectCurrentRow();
    label1_->setText(QString::fromStdString(form_->Label1));
}

void ListWindow::reloadModel() {
    model_->reload();
    reader_->start();
}

// The rest of a long list is read behind its first screen: once it is all there, the grid and
// the counter show it.
void ListWindow::readOn() {
    const bool whole = browse::readAhead(*form_, 0);
    model_->grow();
    if (!whole) {
        reader_->start();
        return;
    }
    // The count is whole now; the grid stays where the clerk has scrolled it.
    syncing_ = true;
    label1_->setText(QString::fromStdString(form_->Label1));
    blaettern_->refresh();
    syncing_ = false;
}

void ListWindow::selectCurrentRow() {
    // A search may have read the rest of a long list to reach its row.
    model_->grow();
    syncing_ = true;
    const auto& rs = form_->data.Recordset();
    if (rs.isSet() && !rs.Eof() && !rs.Bof()) {
        const int row = static_cast<int>(rs.AbsolutePosition());
        const QModelIndex index = model_->index(row, std::max(0, form_->gridColumn));
        grid_->setCurrentIndex(index);
        grid_->scrollTo(index);
        browse::updateCounter(*form_);
    }
    label1_->setText(QString::fromStdString(form_->Label1));
    blaettern_->refresh();
    syncing_ = false;
}

void ListWindow::command(int index) {
    // Printing moves the list's row and puts it back: the grid is shown anew afterwards.
    if (index == 3 || index == 4) {
        if (index == 3)
            printRecordFromList(g_, *form_, this);
        else
            printListFromList(g_, *form_, this);
        refreshFromCore();
        return;
    }
    if (browse::Command1_Click(g_, *form_, index)) {
        if (index == 0) emit recordLoaded();
        emit closeRequested();
    }
}

bool ListWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == grid_->viewport() && event->type() == QEvent::Resize) fitColumns();
    if (watched == grid_ && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            command(0);
            return true;
        }
    }
    if (event->type() == QEvent::MouseButtonPress) {
        // A click on a search box sorts the list by its column.
        for (auto* box : boxes_)
            if (watched == box) sortBy(box->objectName().mid(6).toInt());
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace tolma::ui
