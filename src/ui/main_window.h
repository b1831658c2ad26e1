#pragma once

#include <QMainWindow>

class QMdiArea;

namespace tolma::ui {

// MDIForm1: the main window that holds every other window of the program.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    static constexpr int kWidthTwips = 12165;
    static constexpr int kHeightTwips = 8940;

    explicit MainWindow(QWidget* parent = nullptr);

    QMdiArea* mdiArea() const { return mdiArea_; }

private:
    QMdiArea* mdiArea_;
};

}  // namespace tolma::ui
