#include "core/globals.h"

namespace tolma::core {

std::int16_t showMessage(Globals& g, const std::string& text, int style, const std::string& title) {
    g.lastMessage.msg_text = text;
    g.lastMessage.msg_art = style;
    g.lastMessage.msg_titel = title;
    g.lastMessage.msg_antwort =
        static_cast<std::int16_t>(g.dialogs ? g.dialogs->MsgBox(text, style, title)
                                            : (msg::hasYesNo(style) ? msg::vbNo : msg::vbOK));
    return g.lastMessage.msg_antwort;
}

}  // namespace tolma::core
