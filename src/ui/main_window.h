#pragma once

#include <QMainWindow>
#include <functional>

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
    // Called when the window closes: the way down offers the error log.
    std::function<void()> onClose;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QMdiArea* mdiArea_;
};

}  // namespace tolma::ui
