#include "app/program.h"

#include <QApplication>
#include <QElapsedTimer>
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
            !g_.forms.startView.MDIForm1Enabled)
            g_.view.taste = 27;
        return QObject::eventFilter(watched, event);
    }

  private:
    core::Globals& g_;
};

// The main window as the core's shell, with DoEvents and a redraw that keep long work fast.
class DesktopShell : public core::Shell {
  public:
    DesktopShell(core::Globals& g, ui::MainWindow& window) : g_(g), window_(window) {
        sinceEvents_.start();
        sinceRefresh_.start();
    }
    void doEvents() override {
        // The window is kept alive without slowing long work down.
        if (sinceEvents_.elapsed() < 40) return;
        sinceEvents_.restart();
        QApplication::processEvents();
    }
    void refreshView() override {
        // During long work the view is redrawn a few times a second, not for every record.
        if (!g_.forms.startView.MDIForm1Enabled && sinceRefresh_.elapsed() < 100) return;
        sinceRefresh_.restart();
        window_.refreshFromCore();
    }
    void unloadForm(const std::string& form) override { window_.unloadForm(form); }
    void showForm(const std::string& form) override { window_.showForm(form); }

  private:
    core::Globals& g_;
    ui::MainWindow& window_;
    QElapsedTimer sinceEvents_;
    QElapsedTimer sinceRefresh_;
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
    shell_ = std::make_unique<DesktopShell>(g_, *window_);
    g_.shell = shell_.get();
}

Program::~Program() {
    // The window's forms call back into the core's state while they close.
    g_.shell = core::Shell::none();
    window_.reset();
    g_.dialogs = nullptr;
}

void Program::start(const std::filesystem::path& home,
                    std::function<void(core::Globals&)> checkFileAssociation) {
    core::MDIForm_Load(g_, core::App_PrevInstance(core::instanceLockFile()));
    if (window_->needsWholeScreen())
        window_->showMaximized();
    else
        window_->show();
    window_->fitRecordView();
    core::A_Start(g_, home, {std::move(checkFileAssociation), transfer::startImport});
    window_->refreshFromCore();
}

}  // namespace tolma::app
