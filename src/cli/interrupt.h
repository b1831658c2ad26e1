#pragma once

#include <iosfwd>

#include "core/globals.h"

namespace tolma::cli {

// While it lives, Ctrl-C acts as ESC on the record view: `taste` becomes 27 at the next
// DoEvents, and long work stops between two records. On a terminal the start view's label is
// shown as progress.
class InterruptAsEscape {
  public:
    InterruptAsEscape(core::Globals& g, std::ostream& err, bool showProgress);
    ~InterruptAsEscape();
    InterruptAsEscape(const InterruptAsEscape&) = delete;
    InterruptAsEscape& operator=(const InterruptAsEscape&) = delete;

  private:
    std::ostream& err_;
    bool showProgress_;
};

}  // namespace tolma::cli
