#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "core/globals.h"

class QCoreApplication;
class QObject;

namespace tolma::ui {
class MainWindow;
class QtDialogs;
}  // namespace tolma::ui

namespace tolma::app {

// Qt's own texts in German: the file dialogs, the standard buttons, the context menus. Returns
// false where Debian's catalogue (qt6-translations-l10n) is not installed.
bool loadGermanQtTranslations(QCoreApplication& app);

// The desktop program as `tolma` starts it. The core's dialogs stand before the main window is
// built and before anything is asked, so the start's first question reaches the clerk.
class Program {
  public:
    // `dialogs` answers in place of Qt's message boxes (tests, the pictures of the windows).
    explicit Program(core::Dialogs* dialogs = nullptr);
    ~Program();

    core::Globals& globals() { return g_; }
    ui::MainWindow& window() { return *window_; }

    // MDIForm_Load with the warning of a second copy, the window in view, then A_Start with the
    // check of the file association (none without one).
    void start(const std::filesystem::path& home,
               std::function<void(core::Globals&)> checkFileAssociation = {});

  private:
    core::Globals g_;
    std::unique_ptr<ui::QtDialogs> qtDialogs_;
    std::unique_ptr<ui::MainWindow> window_;
    std::unique_ptr<QObject> escapeFilter_;
    std::unique_ptr<core::Shell> shell_;
};

}  // namespace tolma::app
