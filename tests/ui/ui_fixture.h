#pragma once
// What the UI tests share: scripted answers for the program's questions and dialogs.
#include <functional>
#include <string>
#include <vector>

#include "core/dialogs.h"

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
};

}  // namespace uitest
