#pragma once

#include <string>

namespace tolma::core {

// What the window around the routines does for them. The desktop program answers with its main
// window, the command-line tool with the terminal; a run without either keeps the shell that
// does nothing.
class Shell {
  public:
    virtual ~Shell() = default;
    // Lets the user's side work (and a pressed ESC reach `taste`).
    virtual void doEvents() {}
    // Shows what changed in the start view's state: Label2, progress, visibility.
    virtual void refreshView() {}
    virtual void unloadForm(const std::string& form) { (void)form; }
    virtual void showForm(const std::string& form) { (void)form; }

    // The shell of a run without windows.
    static Shell* none() {
        static Shell quiet;
        return &quiet;
    }
};

}  // namespace tolma::core
