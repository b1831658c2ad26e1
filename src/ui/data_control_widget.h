#pragma once

#include <QWidget>
#include <functional>

class QLabel;

namespace tolma::browse {
class DataControl;
}

namespace tolma::ui {

// A data control on a form: the arrows first, previous, next, last and its caption between
// them. A move raises the control's Reposition; `moved` lets the form show the new row.
class DataControlWidget : public QWidget {
    Q_OBJECT

  public:
    DataControlWidget(browse::DataControl& control, std::function<void()> moved,
                      QWidget* parent = nullptr);
    void refresh();  // shows the control's caption

  private:
    void move(int which);

    browse::DataControl& control_;
    std::function<void()> moved_;
    QLabel* caption_;
};

}  // namespace tolma::ui
