#include "ui/keyboard.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMdiSubWindow>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QShortcut>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <algorithm>
#include <cmath>

namespace tolma::ui {
namespace {

// The position of the caption's own mnemonic, or -1.
qsizetype ownMnemonic(const QString& caption) {
    for (qsizetype i = 0; i + 1 < caption.size(); ++i) {
        if (caption[i] != '&') continue;
        if (caption[i + 1] == '&') {
            ++i;  // a literal ampersand
            continue;
        }
        return caption[i + 1].isLetterOrNumber() ? i + 1 : -1;
    }
    return -1;
}

// Letters and digits a German keyboard has keys for.
bool isMnemonicLetter(QChar c) {
    return (c.unicode() < 128 && c.isLetterOrNumber()) || QString("äöüß").contains(c.toLower());
}

// The current cell drawn with a frame of its own: the style's focus rectangle hardly
// differs from the selected row it stands in.
class FocusFrameDelegate : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        QStyleOptionViewItem plain(option);
        const bool focus = plain.state & QStyle::State_HasFocus;
        plain.state &= ~QStyle::State_HasFocus;
        QStyledItemDelegate::paint(painter, plain, index);
        if (!focus) return;
        painter->save();
        QPen pen(focusFrame(plain.state & QStyle::State_Selected), 2);
        pen.setJoinStyle(Qt::MiterJoin);
        painter->setPen(pen);
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(QRectF(plain.rect).adjusted(1, 1, -1, -1));
        painter->restore();
    }
};

// A combo box that assistive technology names by its label and reads its choice as its value.
// Qt's own interface gives its current text for both.
class LabelledComboBoxInterface : public QAccessibleWidget {
  public:
    explicit LabelledComboBoxInterface(QComboBox* box)
        : QAccessibleWidget(box, QAccessible::ComboBox) {}
    QString text(QAccessible::Text t) const override {
        const auto* box = static_cast<const QComboBox*>(widget());
        if (t == QAccessible::Value) return box->currentText();
        return QAccessibleWidget::text(t);  // the accessible name, else the buddy label's text
    }
};

QAccessibleInterface* labelledComboBoxInterface(const QString& className, QObject* object) {
    if (className == QLatin1String(LabelledComboBox::staticMetaObject.className()))
        if (auto* box = qobject_cast<QComboBox*>(object)) return new LabelledComboBoxInterface(box);
    return nullptr;
}

double channel(int value) {
    const double c = value / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& c) {
    const QColor rgb = c.toRgb();
    return 0.2126 * channel(rgb.red()) + 0.7152 * channel(rgb.green()) +
           0.0722 * channel(rgb.blue());
}

}  // namespace

QString withMnemonic(const QString& caption, QString& used) {
    if (const qsizetype own = ownMnemonic(caption); own >= 0) {
        used += caption[own].toLower();
        return caption;
    }
    // A lone ampersand is text, not a mnemonic.
    QString text = caption;
    for (qsizetype i = 0; i < text.size(); ++i)
        if (text[i] == '&') text.insert(i++, '&');
    const auto free = [&](qsizetype i) {
        return isMnemonicLetter(text[i]) && !used.contains(text[i].toLower()) &&
               (i == 0 || text[i - 1] != '&');
    };
    // A word's first letter, else any plain letter, else an umlaut.
    qsizetype chosen = -1;
    for (qsizetype i = 0; i < text.size() && chosen < 0; ++i)
        if ((i == 0 || !text[i - 1].isLetterOrNumber()) && text[i].unicode() < 128 && free(i))
            chosen = i;
    for (qsizetype i = 0; i < text.size() && chosen < 0; ++i)
        if (text[i].unicode() < 128 && free(i)) chosen = i;
    for (qsizetype i = 0; i < text.size() && chosen < 0; ++i)
        if (free(i)) chosen = i;
    if (chosen < 0) return caption;
    used += text[chosen].toLower();
    return text.insert(chosen, '&');
}

QString withoutMnemonic(const QString& caption) {
    QString text;
    for (qsizetype i = 0; i < caption.size(); ++i) {
        if (caption[i] == '&' && i + 1 < caption.size()) ++i;  // "&&" stands for one
        text += caption[i];
    }
    return text;
}

void assignMnemonics(QWidget* root, const QString& reserved) {
    std::vector<QWidget*> captioned;
    for (auto* b : root->findChildren<QAbstractButton*>())
        if (!qobject_cast<QToolButton*>(b) && !b->text().isEmpty()) captioned.push_back(b);
    for (auto* l : root->findChildren<QLabel*>())
        if (l->buddy()) captioned.push_back(l);
    const auto caption = [](QWidget* w) {
        auto* label = qobject_cast<QLabel*>(w);
        return label ? label->text() : static_cast<QAbstractButton*>(w)->text();
    };
    // Where letters run short, what acts comes first: push buttons, the labels of boxes the
    // clerk fills, check and radio buttons (a group of these is also reached by the arrow keys),
    // then the labels of boxes that only show.
    const auto rank = [](QWidget* w) {
        if (qobject_cast<QPushButton*>(w)) return 0;
        auto* label = qobject_cast<QLabel*>(w);
        if (!label) return 2;
        auto* box = qobject_cast<QLineEdit*>(label->buddy());
        return box && box->isReadOnly() ? 3 : 1;
    };
    QString used = reserved;
    std::vector<QWidget*> open;
    for (auto* w : captioned) {
        if (const qsizetype own = ownMnemonic(caption(w)); own >= 0)
            used += caption(w)[own].toLower();
        else
            open.push_back(w);
    }
    const auto choices = [&](QWidget* w) {
        QString free;
        for (QChar c : caption(w))
            if (isMnemonicLetter(c) && !used.contains(c.toLower()) && !free.contains(c.toLower()))
                free += c.toLower();
        return free.size();
    };
    // The caption with the fewest letters left goes next, so that a short one is not left
    // without any by a long one that had others.
    while (!open.empty()) {
        auto next = std::min_element(open.begin(), open.end(), [&](QWidget* a, QWidget* b) {
            return std::pair(choices(a), rank(a)) < std::pair(choices(b), rank(b));
        });
        QWidget* w = *next;
        open.erase(next);
        const QString text = withMnemonic(caption(w), used);
        if (auto* label = qobject_cast<QLabel*>(w))
            label->setText(text);
        else
            static_cast<QAbstractButton*>(w)->setText(text);
    }
}

void chainTabOrder(const std::vector<QWidget*>& widgets) {
    for (size_t i = 1; i < widgets.size(); ++i) QWidget::setTabOrder(widgets[i - 1], widgets[i]);
}

void prepareGrid(QAbstractItemView* grid, const QString& name) {
    grid->setTabKeyNavigation(false);
    grid->setAccessibleName(name);
    grid->setItemDelegate(new FocusFrameDelegate(grid));
}

void addCloseKeys(QWidget* window, const std::function<void()>& cancel,
                  const QList<QKeySequence>& keys) {
    for (const QKeySequence& key : keys) {
        auto* shortcut = new QShortcut(key, window);
        shortcut->setContext(Qt::WidgetWithChildrenShortcut);
        QObject::connect(shortcut, &QShortcut::activated, window, cancel);
    }
}

void setFrameCloseKeys(QMdiSubWindow* window, bool closable) {
    QMenu* menu = window->systemMenu();
    if (!menu) return;
    // The frame's close entry carries the scheme's keys: Ctrl+W on some desktops, also Ctrl+F4 on
    // others.
    const QList<QKeySequence> scheme = QKeySequence::keyBindings(QKeySequence::Close);
    for (QAction* action : menu->actions())
        if (!action->shortcuts().isEmpty() && action->shortcuts() == scheme)
            action->setShortcuts(closable ? QList<QKeySequence>{QKeySequence(Qt::CTRL | Qt::Key_W),
                                                                QKeySequence(Qt::CTRL | Qt::Key_F4)}
                                          : QList<QKeySequence>{});
}

QColor selectionBackground() {
    return QColor(0, 84, 147);
}

QColor selectionText() {
    return Qt::white;
}

QColor focusFrame(bool onSelection) {
    return onSelection ? QColor(255, 214, 0) : QColor(0, 0, 0);
}

LabelledComboBox::LabelledComboBox(QWidget* parent) : QComboBox(parent) {}

void setUpAccessibility() {
    static const bool installed = [] {
        QAccessible::installFactory(&labelledComboBoxInterface);
        return true;
    }();
    (void)installed;
    QPalette palette = QApplication::palette();
    for (auto group : {QPalette::Active, QPalette::Inactive}) {
        palette.setColor(group, QPalette::Highlight, selectionBackground());
        palette.setColor(group, QPalette::HighlightedText, selectionText());
    }
    QApplication::setPalette(palette);
}

double contrastRatio(const QColor& a, const QColor& b) {
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

}  // namespace tolma::ui
