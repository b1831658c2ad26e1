#pragma once

#include <QLineEdit>
#include <QPlainTextEdit>

namespace tolma::ui {

// A read-only box of the record view on one line. It asks its row for the width its value
// needs, so that a long value takes room from boxes whose values are short; a value that still
// does not fit stands whole in the box's tooltip, below the box's own tooltip if it has one.
class ValueBox : public QLineEdit {
    Q_OBJECT

  public:
    explicit ValueBox(QWidget* parent = nullptr);
    void setOwnToolTip(const QString& text);
    void setValue(const QString& text);
    QSize sizeHint() const override;
    bool showsWholeValue() const;  // the value fits between the box's margins

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    void updateToolTip();
    QString ownToolTip_;
};

// A read-only box that wraps its value into a given number of lines. A value longer than that
// can be scrolled, and stands whole in the tooltip as well.
class WrappingBox : public QPlainTextEdit {
    Q_OBJECT

  public:
    WrappingBox(int lines, QWidget* parent = nullptr);
    void setOwnToolTip(const QString& text);
    void setValue(const QString& text);
    bool showsWholeValue() const;

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    void updateToolTip();
    QString ownToolTip_;
};

}  // namespace tolma::ui
