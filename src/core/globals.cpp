#include "core/globals.h"

namespace tolma::core {

std::int16_t showMessage(Globals& g, const std::string& text, int style, const std::string& title) {
    g.msg_text = text;
    g.msg_art = style;
    g.msg_titel = title;
    g.msg_antwort =
        static_cast<std::int16_t>(g.dialogs ? g.dialogs->MsgBox(text, style, title)
                                            : (msg::hasYesNo(style) ? msg::vbNo : msg::vbOK));
    return g.msg_antwort;
}

}  // namespace tolma::core
