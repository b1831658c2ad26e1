#include "ui/main_window.h"

#include <QCloseEvent>
#include <QMdiArea>

#include "ui/twips.h"

namespace tolma::ui {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), mdiArea_(new QMdiArea(this)) {
    setObjectName("MDIForm1");
    // The caption of the design; the settings store's data kind replaces it at start-up.
    setWindowTitle("TOLMA_4x_Access (betriebsbezogene Daten)");
    setCentralWidget(mdiArea_);
    resize(twipsToPixels(this, kWidthTwips), twipsToPixels(this, kHeightTwips));
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (onClose) onClose();
    event->accept();
}

}  // namespace tolma::ui
