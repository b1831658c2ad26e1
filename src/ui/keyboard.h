#pragma once

#include <QColor>
#include <QComboBox>
#include <QKeySequence>
#include <QList>
#include <QString>
#include <functional>
#include <vector>

class QAbstractItemView;
class QMdiSubWindow;
class QWidget;

namespace tolma::ui {

// The letters the main window's menu bar answers to with Alt. A form in the main window leaves
// them to the menu: the same letter twice in one window would make both keys do nothing.
inline constexpr const char* kMenuLetters = "dbeh";

// The caption with an Alt mnemonic: its own one where it has it, else the first letter (a
// word's first letter preferred) that is not in `used`, which takes the letter. A caption
// without a free letter stays as it is.
QString withMnemonic(const QString& caption, QString& used);

// The caption as it reads: without the mnemonic's ampersand.
QString withoutMnemonic(const QString& caption);

// Gives every push button, check box, radio button and buddy label under `root` that has no
// mnemonic yet one of its own, unique within `root` and apart from `reserved`. Captions keep
// their text: the mnemonic is an underline.
void assignMnemonics(QWidget* root, const QString& reserved = kMenuLetters);

// Tab visits the widgets in this order.
void chainTabOrder(const std::vector<QWidget*>& widgets);

// A grid or table that Tab leaves (the arrow keys move within it), named for assistive
// technology, whose current cell shows a frame that stands out from the selected row.
void prepareGrid(QAbstractItemView* grid, const QString& name);

// `keys` (Escape unless said otherwise) do what the window's Abbrechen, Schließen or Zurück does.
void addCloseKeys(QWidget* window, const std::function<void()>& cancel,
                  const QList<QKeySequence>& keys = {QKeySequence(Qt::Key_Escape)});

// The keys that close a window as its frame's close button does: Ctrl+W and Ctrl+F4, whatever
// the desktop's key scheme; none for a window that stays.
void setFrameCloseKeys(QMdiSubWindow* window, bool closable);

// Colours that meet contrast AA: the selection's text on its background, the focus frame on a
// selected and on a plain cell.
QColor selectionBackground();
QColor selectionText();
QColor focusFrame(bool onSelection);

// A combo box named for assistive technology by its buddy label or accessible name.
class LabelledComboBox : public QComboBox {
    Q_OBJECT

  public:
    explicit LabelledComboBox(QWidget* parent = nullptr);
};

// For every window: the selection colours above in the application's palette, and the names of
// the labelled combo boxes.
void setUpAccessibility();

// The contrast ratio of two colours (1 to 21), from their relative luminance.
double contrastRatio(const QColor& a, const QColor& b);

}  // namespace tolma::ui
