#include <QApplication>

#include "core/error_log.h"
#include "core/globals.h"
#include "core/program_paths.h"
#include "core/start.h"
#include "core/version.h"
#include "transfer/import_driver.h"
#include "ui/main_window.h"
#include "ui/qt_dialogs.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(tolma::core::kProductName);
    QApplication::setApplicationVersion(tolma::core::kVersionText);

    tolma::ui::MainWindow window;
    tolma::ui::QtDialogs dialogs(&window);
    tolma::core::Globals g;
    g.dialogs = &dialogs;
    g.doEvents = [] { QApplication::processEvents(); };
    // The one command-line argument is a transfer file, passed on as it stands.
    const QStringList args = QApplication::arguments();
    if (args.size() > 1) g.commandLine = args.mid(1).join(' ').toStdString();

    g.Upd_1_Start = [](tolma::core::Globals& globals, const std::string& path) {
        tolma::transfer::Upd_1_Start(globals, path);
    };
    const auto paths = tolma::core::resolvePaths(tolma::core::executableDir(), std::nullopt);
    g.dataDir = paths.dataDir;
    window.show();
    tolma::core::A_Start(g, paths.home);
    window.setWindowTitle(QString::fromStdString(g.caption));
    window.setEnabled(g.startView.MDIForm1Enabled);
    window.onClose = [&g] { tolma::core::A_Log_anbieten(g); };
    return QApplication::exec();
}
