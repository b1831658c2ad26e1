#pragma once

#include <deque>
#include <string>
#include <vector>

#include "core/dialogs.h"

namespace tolma::test {

// Scripted answers and a record of every message shown.
class FakeDialogs : public core::Dialogs {
  public:
    struct Shown {
        std::string text;
        int style;
        std::string title;
    };
    std::vector<Shown> shown;
    std::deque<int> answers;  // for questions; No when empty
    std::vector<std::string> viewed;

    int MsgBox(const std::string& text, int style, const std::string& title) override {
        shown.push_back({text, style, title});
        if (!core::msg::hasYesNo(style)) return core::msg::vbOK;
        if (answers.empty()) return core::msg::vbNo;
        const int a = answers.front();
        answers.pop_front();
        return a;
    }
    void openInViewer(const std::string& path) override { viewed.push_back(path); }
};

}  // namespace tolma::test
