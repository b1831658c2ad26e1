#pragma once

#include <iosfwd>
#include <string>

#include "core/dialogs.h"

namespace tolma::cli {

// Messages on the terminal as "Titel: Text". Questions take their answers from --yes, --no or
// --answers (j/n in the order asked, then No); without these they are asked on a terminal and
// answered No otherwise.
class TerminalDialogs : public core::Dialogs {
  public:
    enum class Mode { Ask, Yes, No, Script };

    TerminalDialogs(std::ostream& out, std::istream& in, bool interactive)
        : out_(out), in_(in), interactive_(interactive) {}

    void setMode(Mode mode, std::string script = {}) {
        mode_ = mode;
        script_ = std::move(script);
    }

    int MsgBox(const std::string& text, int style, const std::string& title) override;
    void openInViewer(const std::string& path) override;

  private:
    bool answer();

    std::ostream& out_;
    std::istream& in_;
    bool interactive_;
    Mode mode_ = Mode::Ask;
    std::string script_;
    size_t asked_ = 0;
};

}  // namespace tolma::cli
