#include "cli/terminal_dialogs.h"

#include <istream>
#include <ostream>

namespace tolma::cli {
namespace {

// Message texts carry line feeds of their own; on the terminal one line is enough.
std::string oneLine(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\n' || c == '\r') {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else {
            out += c;
        }
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

}  // namespace

bool TerminalDialogs::answer() {
    switch (mode_) {
        case Mode::Yes:
            return true;
        case Mode::No:
            return false;
        case Mode::Script: {
            const size_t i = asked_++;
            return i < script_.size() &&
                   (script_[i] == 'j' || script_[i] == 'J' || script_[i] == 'y');
        }
        case Mode::Ask:
            break;
    }
    if (!interactive_) return false;
    out_ << " [j/n] " << std::flush;
    std::string line;
    if (!std::getline(in_, line)) return false;
    return !line.empty() && (line[0] == 'j' || line[0] == 'J' || line[0] == 'y' || line[0] == 'Y');
}

int TerminalDialogs::MsgBox(const std::string& text, int style, const std::string& title) {
    // A box without a title of its own carries the program's name.
    out_ << (title.empty() ? "TOLMA_4x_Access" : title) << ": " << oneLine(text);
    if (!core::msg::hasYesNo(style)) {
        out_ << "\n";
        return core::msg::vbOK;
    }
    const bool yes = answer();
    if (mode_ != Mode::Ask || !interactive_) out_ << (yes ? " -> Ja" : " -> Nein");
    out_ << "\n";
    return yes ? core::msg::vbYes : core::msg::vbNo;
}

void TerminalDialogs::openInViewer(const std::string& path) {
    out_ << "Fehlerprotokoll: " << path << "\n";
}

}  // namespace tolma::cli
