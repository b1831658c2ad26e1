#include "ui/record_view.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGridLayout>
#include <QGroupBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QTabWidget>
#include <QVBoxLayout>

#include "browse/record_view.h"
#include "ui/data_control_widget.h"
#include "ui/keyboard.h"
#include "ui/pictures.h"
#include "ui/record_view_layout.h"
#include "ui/twips.h"
#include "ui/value_box.h"

namespace tolma::ui {
namespace {

browse::DataControl* controlByName(core::Globals& g, const std::string& name) {
    auto& d = browse::dataControls(g);
    browse::DataControl* all[] = {
        &d.DATA_ORG,       &d.DATA_ORG_RF,  &d.DATA_GEMEINDE, &d.DATA_BETR,   &d.DATA_Meld,
        &d.DATA_ADR,       &d.DATA_BETRErl, &d.DATA_BETRHwk,  &d.DATA_TAET,   &d.DATA_Bez_Betr_Pers,
        &d.DATA_PERSStaat, &d.DATA_PERS,    &d.DATA_PERSErl,  &d.DATA_PERSHwk};
    for (auto* c : all)
        if (c->name() == name) return c;
    return nullptr;
}

const std::string* stateBox(core::Globals& g, const std::string& name) {
    auto& v = g.forms.startView;
    if (name == "Text_Korrekturmeldung") return &v.Text_Korrekturmeldung;
    if (name == "Text_Schwerpunkt") return &v.Text_Schwerpunkt;
    if (name == "Text_Ummeldung") return &v.Text_Ummeldung;
    if (name == "TextPers_8") return &v.TextPers_8;
    return nullptr;
}

// A grid of label and box pairs with the view's tight spacing.
void spaceGrid(const QWidget* view, QGridLayout* grid) {
    const auto& room = layout::spacing();
    grid->setVerticalSpacing(twipsToPixels(view, room.rowGap));
    grid->setHorizontalSpacing(twipsToPixels(view, room.columnGap));
}

void setFrameMargins(const QWidget* view, QLayout* inside) {
    const auto& room = layout::spacing();
    const int side = twipsToPixels(view, room.frameMargin);
    inside->setContentsMargins(side, twipsToPixels(view, room.frameTop), side, side);
}

void setText(QWidget* w, const QString& text) {
    if (auto* line = qobject_cast<ValueBox*>(w))
        line->setValue(text);
    else if (auto* wrapping = qobject_cast<WrappingBox*>(w))
        wrapping->setValue(text);
    else if (auto* plain = qobject_cast<QPlainTextEdit*>(w)) {
        if (plain->toPlainText() != text) plain->setPlainText(text);
    }
}

}  // namespace

// The layout tables, as the builder sees them.
struct FrameBuild {
    const layout::FrameDef* def;
};

RecordView::RecordView(core::Globals& g, QWidget* parent)
    : QWidget(parent),
      g_(g),
      label2_(new QLabel(this)),
      image1_(new QLabel(this)),
      image2_(new QLabel(this)),
      frameUeberschrift_(new QGroupBox(this)),
      tabs_(new QTabWidget(this)),
      frameAnzahl_(new QGroupBox("Anzahl Personen-Datensätze", this)),
      dataPers_(nullptr),
      command3_(new QPushButton("zurück", this)),
      progress_(new QProgressBar(this)) {
    setObjectName("Frm_Start");
    setWindowTitle("Frm_Start");
    // Keys reach the view from its boxes; it is no Tab stop of its own, which would show no focus.
    setFocusPolicy(Qt::ClickFocus);
    // Where large text makes the view larger than the screen, it scrolls as a whole.
    auto* whole = new QVBoxLayout(this);
    whole->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName("Rollbereich");
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);  // no Tab stop without a focus to show
    whole->addWidget(scroll);
    auto* content = new QWidget;
    auto* outer = new QVBoxLayout(content);
    const int gap = twipsToPixels(this, layout::spacing().frameGap);
    outer->setContentsMargins(gap, gap, gap, gap);
    outer->setSpacing(gap);

    outer->addLayout(buildTop());

    // Middle: the tabs, or in their place the start picture.
    tabs_->setObjectName("SSTab1");
    for (int i = 0; i < static_cast<int>(layout::tabs().size()); ++i)
        tabs_->addTab(buildTab(i),
                      QString::fromUtf8(layout::tabs()[static_cast<size_t>(i)].caption));
    connect(tabs_, &QTabWidget::currentChanged, this, [this](int tab) {
        if (refreshing_) return;
        browse::SSTab1_Click(g_, tab);
        refreshFromCore();
    });
    image2_->setObjectName("Image2");
    image2_->setPixmap(startPicture(640, 400));
    image2_->setAlignment(Qt::AlignCenter);
    auto* middle = new QGridLayout;
    middle->addWidget(tabs_, 0, 0);
    middle->addWidget(image2_, 0, 0);
    outer->addLayout(middle, 1);

    outer->addLayout(buildBottom());
    scroll->setWidget(content);

    // Alt with a letter turns to a tab or presses a button; the boxes are reached by Tab.
    QString used = kMenuLetters;
    for (int i = 0; i < tabs_->count(); ++i)
        tabs_->setTabText(i, withMnemonic(tabs_->tabText(i), used));
    for (auto* button : content->findChildren<QPushButton*>())
        button->setText(withMnemonic(button->text(), used));
    refreshFromCore();
}

// The action label and the heading of the business.
QHBoxLayout* RecordView::buildTop() {
    auto* top = new QHBoxLayout;
    image1_->setObjectName("Image1");
    image1_->setPixmap(sidePicture(84, 70));
    top->addWidget(image1_);
    auto* frame1 = new QGroupBox("Aktion", this);
    frame1->setObjectName("Frame1");
    auto* f1 = new QVBoxLayout(frame1);
    setFrameMargins(this, f1);
    label2_->setObjectName("Label2");
    label2_->setText(QString::fromStdString(g_.forms.startView.Label2));
    QFont bold = label2_->font();
    bold.setBold(true);
    label2_->setFont(bold);
    label2_->setWordWrap(true);
    f1->addWidget(label2_);
    top->addWidget(frame1, 1);
    frameUeberschrift_->setObjectName("Frame_Ueberschrift");
    auto* head = new QGridLayout(frameUeberschrift_);
    spaceGrid(this, head);
    setFrameMargins(this, head);
    int row = 0, column = 0;
    for (const auto& def : layout::headingFields()) addField(head, row, column, 2, &def);
    top->addWidget(frameUeberschrift_, 4);
    return top;
}

// The persons' counter with the way back, and the progress.
QHBoxLayout* RecordView::buildBottom() {
    auto* bottom = new QHBoxLayout;
    frameAnzahl_->setObjectName("Frame_Anzahl");
    auto* fa = new QHBoxLayout(frameAnzahl_);
    setFrameMargins(this, fa);
    dataPers_ = new DataControlWidget(
        browse::dataControls(g_).DATA_PERS, [this] { moved(); }, frameAnzahl_);
    controls_.push_back(dataPers_);
    fa->addWidget(dataPers_);
    command3_->setObjectName("Command3");
    connect(command3_, &QPushButton::clicked, this, &RecordView::zurueck);
    fa->addWidget(command3_);
    bottom->addWidget(frameAnzahl_);
    auto* frameProgress = new QGroupBox("Fortschritt", this);
    frameProgress->setObjectName("Frame_Progress");
    auto* fp = new QHBoxLayout(frameProgress);
    setFrameMargins(this, fp);
    progress_->setObjectName("ProgressBar1");
    progress_->setTextVisible(false);
    fp->addWidget(progress_);
    bottom->addWidget(frameProgress, 1);
    return bottom;
}

void RecordView::addField(QGridLayout* grid, int& row, int& column, int columns, const void* raw) {
    const auto& def = *static_cast<const layout::FieldDef*>(raw);
    const QString toolTip = def.toolTip ? QString::fromUtf8(def.toolTip) : QString();
    const bool memo = def.lines == layout::Lines::memo;
    QWidget* box;
    if (memo) {
        auto* plain = new QPlainTextEdit(this);
        plain->setReadOnly(true);
        plain->setMaximumHeight(90);
        plain->setToolTip(toolTip);
        box = plain;
    } else if (def.lines == layout::Lines::two) {
        auto* wrapping = new WrappingBox(2, this);
        wrapping->setMinimumWidth(70);
        wrapping->setOwnToolTip(toolTip);
        box = wrapping;
    } else {
        auto* line = new ValueBox(this);
        line->setMinimumWidth(70);
        line->setOwnToolTip(toolTip);
        box = line;
    }
    box->setObjectName(def.name);
    Binding b{box, def.control ? controlByName(g_, def.control) : nullptr, def.field};
    if (!def.control) b.text = stateBox(g_, def.field);
    bindings_.push_back(b);
    if (!def.label) {  // a raw code that a decoded box shows in its place
        box->setVisible(false);
        return;
    }
    const QString caption = QString::fromUtf8(def.label);
    if (memo && caption.isEmpty()) {
        grid->addWidget(box, row++, 0, 1, columns * 2);
        column = 0;
        return;
    }
    auto* label = new QLabel(caption, this);
    label->setBuddy(box);
    grid->addWidget(label, row, column * 2, Qt::AlignRight);
    grid->addWidget(box, row, column * 2 + 1);
    if (memo) {
        grid->addWidget(box, row, column * 2 + 1, 1, columns * 2 - column * 2 - 1);
        ++row;
        column = 0;
        return;
    }
    if (++column == columns) {
        column = 0;
        ++row;
    }
}

QGroupBox* RecordView::buildFrame(const FrameBuild& build) {
    const layout::FrameDef& def = *build.def;
    auto* frame = new QGroupBox(def.caption ? QString::fromUtf8(def.caption) : QString(), this);
    frame->setObjectName(def.name);
    auto* grid = new QGridLayout(frame);
    spaceGrid(this, grid);
    setFrameMargins(this, grid);
    const int columns = def.columns ? def.columns : def.fields.size() > 4 ? 2 : 1;
    int row = 0, column = 0;
    if (def.dataControl) {
        grid->addWidget(new QLabel("Anzahl Datensätze:", this), row, 0, Qt::AlignRight);
        auto* dc = new DataControlWidget(
            *controlByName(g_, def.dataControl), [this] { moved(); }, frame);
        controls_.push_back(dc);
        grid->addWidget(dc, row++, 1, 1, columns * 2 - 1, Qt::AlignLeft);
    }
    for (const auto& field : def.fields) addField(grid, row, column, columns, &field);
    if (column != 0) ++row;
    for (const auto& inner : def.inner) {
        FrameBuild b{&inner};
        grid->addWidget(buildFrame(b), row++, 0, 1, columns * 2);
    }
    if (def.button) {
        auto* button = new QPushButton(QString::fromUtf8(def.buttonCaption), frame);
        button->setObjectName(def.button);
        connect(button, &QPushButton::clicked, this, &RecordView::personenAnzeigen);
        grid->addWidget(button, row++, 0, 1, columns * 2, Qt::AlignRight);
    }
    // The box columns take no stretch factor: a stretched column ignores the width its boxes ask
    // for, and a long value would be cut while a short one stands in a wide box.
    // A frame stretched to the height of its neighbour keeps its rows together at the top.
    grid->setRowStretch(row, 1);
    return frame;
}

QWidget* RecordView::buildTab(int index) {
    const layout::TabDef& def = layout::tabs()[static_cast<size_t>(index)];
    auto* page = new QWidget;
    auto* pageLayout = new QVBoxLayout(page);
    const int gap = twipsToPixels(this, layout::spacing().frameGap);
    pageLayout->setContentsMargins(gap, gap, gap, gap);
    pageLayout->setSpacing(gap);
    if (!def.loose.empty()) {
        auto* grid = new QGridLayout;
        spaceGrid(this, grid);
        int row = 0, column = 0;
        for (const auto& field : def.loose) addField(grid, row, column, 3, &field);
        pageLayout->addLayout(grid);
    }
    // Frames side by side in two columns where there is room, each a group of its own.
    auto* frames = new QGridLayout;
    frames->setSpacing(gap);
    int cell = 0;
    for (const auto& frame : def.frames) {
        FrameBuild b{&frame};
        const bool wide = frame.fields.size() > 10;
        if (wide && cell % 2 == 1) ++cell;
        frames->addWidget(buildFrame(b), cell / 2, cell % 2, 1, wide ? 2 : 1);
        cell += wide ? 2 : 1;
    }
    pageLayout->addLayout(frames);
    pageLayout->addStretch(1);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);
    scroll->setWidget(page);
    return scroll;
}

QSize RecordView::missingRoomInView() {
    image2_->hide();
    tabs_->show();
    frameUeberschrift_->show();
    frameAnzahl_->show();
    dataPers_->show();
    command3_->show();
    // Only the page in view is laid out: each tab is turned to in turn, without its click.
    refreshing_ = true;
    const int current = tabs_->currentIndex();
    QSize missing(0, 0);
    for (int i = 0; i < tabs_->count(); ++i) {
        tabs_->setCurrentIndex(i);
        QCoreApplication::processEvents();
        missing = missing.expandedTo(missingRoom());
    }
    tabs_->setCurrentIndex(current);
    refreshing_ = false;
    refreshFromCore();
    return missing;
}

QSize RecordView::missingRoom() const {
    const auto* scroll = qobject_cast<const QScrollArea*>(tabs_->currentWidget());
    if (!scroll || !scroll->widget()) return {0, 0};
    const QSize need = scroll->widget()->sizeHint(), have = scroll->viewport()->size();
    return {need.width() - have.width(), need.height() - have.height()};
}

void RecordView::focusTabs() {
    if (tabs_->isVisible()) tabs_->setFocus(Qt::OtherFocusReason);
}

void RecordView::moved() {
    g_.shell->refreshView();
    refreshFromCore();
}

void RecordView::refreshFromCore() {
    if (refreshing_) return;
    refreshing_ = true;
    for (const auto& b : bindings_) {
        const std::string text =
            b.control ? b.control->fieldText(b.field) : (b.text ? *b.text : std::string());
        setText(b.widget, QString::fromStdString(text));
    }
    for (auto* c : controls_) c->refresh();
    const auto& v = g_.forms.startView;
    label2_->setText(QString::fromStdString(v.Label2));
    image1_->setVisible(v.Image1Visible);
    image2_->setVisible(v.Image2Visible);
    tabs_->setVisible(v.SSTab1Visible);
    frameUeberschrift_->setVisible(v.Frame_UeberschriftVisible);
    frameAnzahl_->setVisible(v.Frame_AnzahlVisible);
    dataPers_->setVisible(v.DATA_PERSVisible);
    command3_->setVisible(v.Command3Visible);
    if (tabs_->currentIndex() != v.SSTab1Tab) tabs_->setCurrentIndex(v.SSTab1Tab);
    progress_->setMaximum(std::max(1, v.ProgressBar1Max));
    progress_->setValue(std::min(v.ProgressBar1Value, std::max(1, v.ProgressBar1Max)));
    const bool wait = v.MousePointer == 11;
    if (wait != waitCursor_) {
        waitCursor_ = wait;
        if (wait)
            QApplication::setOverrideCursor(Qt::WaitCursor);
        else
            QApplication::restoreOverrideCursor();
    }
    refreshing_ = false;
}

void RecordView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        browse::Form_KeyPress(g_, 27);
    else if (!event->text().isEmpty())
        browse::Form_KeyPress(g_, event->text().at(0).unicode());
    QWidget::keyPressEvent(event);
}

}  // namespace tolma::ui
