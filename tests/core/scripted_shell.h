#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/shell.h"

namespace tolma::test {

// A shell that a test scripts: what happens at each DoEvents (an ESC after so many records) and
// at each redraw, and which forms the routines closed and showed.
struct ScriptedShell : core::Shell {
    std::function<void()> onEvents;
    std::function<void()> onRefresh;
    std::vector<std::string> unloaded, shown;

    void doEvents() override {
        if (onEvents) onEvents();
    }
    void refreshView() override {
        if (onRefresh) onRefresh();
    }
    void unloadForm(const std::string& form) override { unloaded.push_back(form); }
    void showForm(const std::string& form) override { shown.push_back(form); }
};

}  // namespace tolma::test
