#pragma once

#include <chrono>
#include <iosfwd>

#include "core/globals.h"

namespace tolma::cli {

// While it lives, Ctrl-C acts as ESC on the record view: `taste` becomes 27 at the next
// DoEvents, and long work stops between two records. On a terminal the start view's label is
// shown as progress.
class InterruptAsEscape : public core::Shell {
  public:
    InterruptAsEscape(core::Globals& g, std::ostream& err, bool showProgress);
    ~InterruptAsEscape();
    InterruptAsEscape(const InterruptAsEscape&) = delete;
    InterruptAsEscape& operator=(const InterruptAsEscape&) = delete;

    void doEvents() override;
    void refreshView() override;

  private:
    core::Globals& g_;
    std::ostream& err_;
    bool showProgress_;
    std::chrono::steady_clock::time_point lastShown_;
    core::Shell* previousShell_;
};

}  // namespace tolma::cli
