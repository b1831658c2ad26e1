#include "core/menu.h"

#include <filesystem>

#include "model/values.h"

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

void menue_import_datenbank(Globals& g) {
    if (g.marks.menue_import_datenbank) return;  // an import runs
    A_Fenster_schliessen(g);
    g.marks.menue_import_datenbank = true;
    const std::string file =
        g.dialogs ? g.dialogs->chooseFile(g.pfad_dat, "Alle Dateien (*.*)|*.*| Update-Dateien (*.tml)|*.tml|", 2) : "";
    if (!model::trimBlanks(file).empty()) {
        g.startView.MDIForm1Enabled = false;
        g.refreshView();
        if (g.Upd_1_Start) g.Upd_1_Start(g, file);
        g.startView.MDIForm1Enabled = true;
    } else {
        showMessage(g, "Es wurde keine Update-Datei ausgewählt!", msg::vbInformation, "Auswahl einer Update-Datei!");
        g.marks.menue_import_datenbank = false;
    }
    // The file dialog may have changed the current directory.
    std::error_code ec;
    std::filesystem::current_path(g.pfad_app, ec);
    g.refreshView();
}

}  // namespace tolma::core
