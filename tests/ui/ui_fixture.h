#pragma once
// What the UI tests share: scripted answers for the program's questions and dialogs.
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "browse/data_controls.h"
#include "core/dialogs.h"
#include "core/globals.h"
#include "transfer/import_driver.h"
#include "ui/main_window.h"

namespace uitest {

// Scripted answers, a scripted file dialog, and the messages shown.
class ScriptedDialogs : public tolma::core::Dialogs {
  public:
    std::string file;
    std::vector<std::string> shown;
    std::vector<int> styles;
    int MsgBox(const std::string& text, int style, const std::string&) override {
        shown.push_back(text);
        styles.push_back(style);
        return tolma::core::msg::hasYesNo(style) ? tolma::core::msg::vbYes : tolma::core::msg::vbOK;
    }
    void openInViewer(const std::string&) override {}
    std::function<void()> whileChoosing;  // looks at the windows while the dialog stands
    std::string chooseFile(const std::string&, const std::string&, int) override {
        if (whileChoosing) whileChoosing();
        return file;
    }
    std::string saveFile;  // what the save dialog answers; empty: cancelled
    std::string chooseSaveFile(const std::string&, const std::string&,
                               const std::string&) override {
        return saveFile;
    }
};

// The program's state and its main window as the desktop program makes them, with the scripted
// dialogs and the default stores of the build, shown; returns the home, emptied, for A_Start.
inline std::filesystem::path makeProgram(std::unique_ptr<tolma::core::Globals>& g,
                                         std::unique_ptr<tolma::ui::MainWindow>& window,
                                         ScriptedDialogs& dialogs, const std::string& homeName) {
    const auto home = std::filesystem::temp_directory_path() / homeName;
    std::filesystem::remove_all(home);
    g = std::make_unique<tolma::core::Globals>();
    tolma::browse::attachDataControls(*g);
    g->dialogs = &dialogs;
    g->paths.dataDir = TOLMA_STORE_DIR;
    window = std::make_unique<tolma::ui::MainWindow>(*g);  // the core's shell
    window->show();
    return home;
}

}  // namespace uitest
