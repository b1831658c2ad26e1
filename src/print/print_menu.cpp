#include "print/print_menu.h"

#include "browse/data_controls.h"
#include "core/error_log.h"

namespace tolma::print {
namespace {

// The entries whose check mark keeps the print entries from acting.
bool anyFunctionOpen(const core::Globals& g, const PrintState& d) {
    const auto& m = g.forms.marks;
    return m.menue_suchen_betrieb || m.menue_suchen_person || d.menue_druck_betrieb ||
           d.menue_druck_Person || m.menue_info || m.menue_extras_optionen ||
           m.menue_import_datenbank || m.menue_export_textdatei;
}

std::string field(const browse::DataControl& control, const char* name) {
    return control.Recordset().Fields(name).Value().toString();
}

void printShownRecord(core::Globals& g, PrintState& d, bool person) {
    if (anyFunctionOpen(g, d)) return;
    bool& mark = person ? d.menue_druck_Person : d.menue_druck_betrieb;
    mark = true;
    g.forms.startView.MousePointer = 11;
    g.shell->refreshView();
    try {
        const auto& data = browse::dataControls(g);
        if (g.forms.startView.Image2Visible) {
            core::showMessage(g, "Es wurde kein Datensatz ausgewählt!", core::msg::vbInformation,
                              "Datensatz-Auswahl!");
        } else if (data.DATA_BETR.Recordset().RecordCount() == 0) {
            core::showMessage(g, "Es wurden in der Datenbank keine Sätze gefunden!",
                              core::msg::vbInformation,
                              person ? "Aktuellen Personendatensatz drucken!"
                                     : "Aktuellen Betriebsdatensatz drucken!");
        } else if (!person) {
            DS_Druck_1(g, d, "Betrieb", field(data.DATA_BETR, "betr-nr"),
                       field(data.DATA_BETR, "betr-hist-nr"), "");
        } else {
            // The store's lookup ignores the case of a name.
            DS_Druck_1(g, d, "Person", field(data.DATA_BETR, "Betr-Nr"),
                       field(data.DATA_BETR, "Betr-Hist-Nr"), field(data.DATA_PERS, "pers-nr"));
        }
    } catch (const std::exception& e) {
        core::logTrapped(g, person ? "menue_druck_Person" : "menue_druck_betrieb", e);
    }
    g.forms.startView.MousePointer = 0;
    mark = false;
    g.shell->refreshView();
}

}  // namespace

void menue_druck_betrieb(core::Globals& g, PrintState& d) {
    printShownRecord(g, d, false);
}

void menue_druck_Person(core::Globals& g, PrintState& d) {
    printShownRecord(g, d, true);
}

}  // namespace tolma::print
