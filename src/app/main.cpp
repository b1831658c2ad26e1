#include <QApplication>

#include "core/version.h"
#include "ui/main_window.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(tolma::core::kProductName);
    QApplication::setApplicationVersion(tolma::core::kVersionText);
    tolma::ui::MainWindow window;
    window.show();
    return QApplication::exec();
}
