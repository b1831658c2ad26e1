#include "core/menu.h"

namespace tolma::core {

void A_Fenster_schliessen(Globals& g) {
    struct Entry {
        bool MenuMarks::*mark;
        const char* form;  // empty: the function has no window
    };
    static const Entry order[] = {
        {&MenuMarks::menue_suchen_person, "Frm_Auswahl_Pers"},
        {&MenuMarks::menue_suchen_betrieb, "Frm_Auswahl_Betr"},
        {&MenuMarks::menue_info, "Frm_Info"},
        {&MenuMarks::menue_extras_optionen, "Frm_Optionen"},
        {&MenuMarks::menue_import_datenbank, ""},
        {&MenuMarks::menue_export_textdatei, "Frm_Verwaltungsblock"},
    };
    for (const auto& e : order) {
        if (!(g.marks.*(e.mark))) continue;
        if (*e.form) g.unloadForm(e.form);
        g.marks.*(e.mark) = false;
    }
}

}  // namespace tolma::core
