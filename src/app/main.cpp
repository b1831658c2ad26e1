#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>

#include "browse/data_controls.h"
#include "core/association.h"
#include "core/globals.h"
#include "core/program_paths.h"
#include "core/start.h"
#include "core/version.h"
#include "transfer/import_driver.h"
#include "ui/main_window.h"
#include "ui/qt_dialogs.h"

namespace {

// ESC during an import or export: the main window's menu and children are disabled then, so
// the key is caught for the whole application.
class EscapeFilter : public QObject {
  public:
    explicit EscapeFilter(tolma::core::Globals& g) : g_(g) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress &&
            static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape &&
            !g_.startView.MDIForm1Enabled)
            g_.taste = 27;
        return QObject::eventFilter(watched, event);
    }

  private:
    tolma::core::Globals& g_;
};

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(tolma::core::kProductName);
    QApplication::setApplicationVersion(tolma::core::kVersionText);

    tolma::core::Globals g;
    tolma::browse::attachDataControls(g);
    tolma::ui::MainWindow window(g);
    tolma::ui::QtDialogs dialogs(&window);
    g.dialogs = &dialogs;
    EscapeFilter escape(g);
    app.installEventFilter(&escape);

    // DoEvents: the window is kept alive without slowing long work down.
    QElapsedTimer sinceEvents;
    sinceEvents.start();
    g.doEvents = [&sinceEvents] {
        if (sinceEvents.elapsed() < 40) return;
        sinceEvents.restart();
        QApplication::processEvents();
    };
    QElapsedTimer sinceRefresh;
    sinceRefresh.start();
    g.refreshView = [&window, &sinceRefresh, &g] {
        // During long work the view is redrawn a few times a second, not for every record.
        if (!g.startView.MDIForm1Enabled && sinceRefresh.elapsed() < 100) return;
        sinceRefresh.restart();
        window.refreshFromCore();
    };
    g.Upd_1_Start = [](tolma::core::Globals& globals, const std::string& path) {
        tolma::transfer::Upd_1_Start(globals, path);
    };
    // The one command-line argument is a transfer file, passed on as it stands.
    const QStringList args = QApplication::arguments();
    if (args.size() > 1) g.commandLine = args.mid(1).join(' ').toStdString();

    const auto paths = tolma::core::resolvePaths(tolma::core::executableDir(), std::nullopt);
    g.dataDir = paths.dataDir;
    window.show();
    window.fitRecordView();
    tolma::core::useXdgFileAssociation(g, tolma::core::executableDir() / "tolma");
    tolma::core::A_Start(g, paths.home);
    window.refreshFromCore();
    return QApplication::exec();
}
