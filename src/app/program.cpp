#include "app/program.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLibraryInfo>
#include <QTranslator>

#include "browse/data_controls.h"
#include "core/menu.h"
#include "core/start.h"
#include "transfer/import_driver.h"
#include "ui/keyboard.h"
#include "ui/main_window.h"
#include "ui/qt_dialogs.h"

namespace tolma::app {
namespace {

// ESC during an import or export: the main window's menu and children are disabled then, so
// the key is caught for the whole application.
class EscapeFilter : public QObject {
  public:
    explicit EscapeFilter(core::Globals& g) : g_(g) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress &&
            static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape &&
            !g_.startView.MDIForm1Enabled)
            g_.taste = 27;
        return QObject::eventFilter(watched, event);
    }

  private:
    core::Globals& g_;
};

}  // namespace

bool loadGermanQtTranslations(QCoreApplication& app) {
    auto* translator = new QTranslator(&app);
    if (!translator->load("qtbase_de", QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        delete translator;
        return false;
    }
    QCoreApplication::installTranslator(translator);
    return true;
}

Program::Program(core::Dialogs* dialogs) {
    browse::attachDataControls(g_);
    ui::setUpAccessibility();
    if (!dialogs) {
        qtDialogs_ = std::make_unique<ui::QtDialogs>(nullptr);
        dialogs = qtDialogs_.get();
    }
    g_.dialogs = dialogs;
    window_ = std::make_unique<ui::MainWindow>(g_);
    if (qtDialogs_) qtDialogs_->setParentWidget(window_.get());
    escapeFilter_ = std::make_unique<EscapeFilter>(g_);
    QCoreApplication::instance()->installEventFilter(escapeFilter_.get());

    // DoEvents: the window is kept alive without slowing long work down.
    sinceEvents_.start();
    g_.doEvents = [this] {
        if (sinceEvents_.elapsed() < 40) return;
        sinceEvents_.restart();
        QApplication::processEvents();
    };
    sinceRefresh_.start();
    g_.refreshView = [this] {
        // During long work the view is redrawn a few times a second, not for every record.
        if (!g_.startView.MDIForm1Enabled && sinceRefresh_.elapsed() < 100) return;
        sinceRefresh_.restart();
        window_->refreshFromCore();
    };
    g_.Upd_1_Start = [](core::Globals& globals, const std::string& path) {
        transfer::Upd_1_Start(globals, path);
    };
}

Program::~Program() {
    // The window's forms call back into the core's state while they close.
    g_.refreshView = [] {};
    window_.reset();
    g_.dialogs = nullptr;
}

void Program::start(const std::filesystem::path& home) {
    core::MDIForm_Load(g_, core::App_PrevInstance(core::instanceLockFile()));
    if (window_->needsWholeScreen())
        window_->showMaximized();
    else
        window_->show();
    window_->fitRecordView();
    core::A_Start(g_, home);
    window_->refreshFromCore();
}

}  // namespace tolma::app
