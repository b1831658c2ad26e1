#include "ui/value_box.h"

#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionFrame>
#include <QTextDocument>

namespace tolma::ui {
namespace {

// QLineEdit keeps this much room between its contents rectangle and the text on either side.
constexpr int kLineEditTextMargin = 2;

QString toolTipFor(const QString& own, const QString& value, bool whole) {
    if (whole || value.isEmpty()) return own;
    return own.isEmpty() ? value : own + "\n" + value;
}

}  // namespace

ValueBox::ValueBox(QWidget* parent) : QLineEdit(parent) {
    setReadOnly(true);
}

void ValueBox::setOwnToolTip(const QString& text) {
    ownToolTip_ = text;
    updateToolTip();
}

void ValueBox::setValue(const QString& text) {
    if (this->text() == text) return;
    setText(text);
    setCursorPosition(0);
    updateGeometry();
    updateToolTip();
}

QSize ValueBox::sizeHint() const {
    // QLineEdit asks for room for 17 'x'; a longer value asks for the rest as well.
    QSize hint = QLineEdit::sizeHint();
    const int extra =
        fontMetrics().horizontalAdvance(text()) - fontMetrics().horizontalAdvance(QChar('x')) * 17;
    if (extra > 0) hint.rwidth() += extra + 1;
    return hint;
}

bool ValueBox::showsWholeValue() const {
    QStyleOptionFrame option;
    initStyleOption(&option);
    const QRect contents = style()
                               ->subElementRect(QStyle::SE_LineEditContents, &option, this)
                               .marginsRemoved(textMargins());
    return fontMetrics().horizontalAdvance(text()) <= contents.width() - 2 * kLineEditTextMargin;
}

void ValueBox::resizeEvent(QResizeEvent* event) {
    QLineEdit::resizeEvent(event);
    updateToolTip();
}

void ValueBox::updateToolTip() {
    setToolTip(toolTipFor(ownToolTip_, text(), showsWholeValue()));
}

WrappingBox::WrappingBox(int lines, QWidget* parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    // The box scrolls once its last line comes nearer than the document's margin and one pixel
    // to the bottom: the height leaves room for that.
    const int margin = static_cast<int>(document()->documentMargin());
    setFixedHeight(fontMetrics().lineSpacing() * lines + 2 * margin + 2 * frameWidth() + 1);
}

void WrappingBox::setOwnToolTip(const QString& text) {
    ownToolTip_ = text;
    updateToolTip();
}

void WrappingBox::setValue(const QString& text) {
    if (toPlainText() == text) return;
    setPlainText(text);
    updateToolTip();
}

bool WrappingBox::showsWholeValue() const {
    return verticalScrollBar()->maximum() == 0;
}

void WrappingBox::resizeEvent(QResizeEvent* event) {
    QPlainTextEdit::resizeEvent(event);
    updateToolTip();
}

void WrappingBox::updateToolTip() {
    setToolTip(toolTipFor(ownToolTip_, toPlainText(), showsWholeValue()));
}

}  // namespace tolma::ui
