#pragma once

#include <string>
#include <vector>

#include "core/globals.h"

// Frm_Optionen: the data stores of both kinds, the error log and the municipality filter.
namespace tolma::options {

struct OptionsForm {
    // Frame1(0) and Frame1(1) with their path box and buttons: only the active kind's is enabled.
    bool frameEnabled[2] = {true, true};
    // List1: the entries "gem-kz  gem-name"; the selection belongs to the position.
    std::vector<std::string> List1;
    std::vector<bool> selected;
    bool Check1 = false;
    bool filterControlsEnabled = false;  // Command7, Command8, Command9, Text7, List1
    std::string Text7;
    int MousePointer = 0;

    void setEntry(size_t position, const std::string& entry);
};

void Form_Activate(core::Globals& g, OptionsForm& form);
void Command11_Click(core::Globals& g, OptionsForm& form, int index);  // "Datenbank-Pfad ändern"
// A store path typed into the path box (or given on the command line): a file of the store's
// default name, or the connection text of a store on a server, which is checked by connecting.
// False, with the clerk told why, when it cannot be used; the old path then stays.
bool changeStorePath(core::Globals& g, OptionsForm& form, int index, const std::string& value);
void Command12_Click(core::Globals& g, OptionsForm& form, int index);  // data kind change
void Command4_Click(core::Globals& g, OptionsForm& form, int index);   // "Datenbank leeren"
void Command2_Click(core::Globals& g, OptionsForm& form, int index);   // the error log
void Check1_Click(core::Globals& g, OptionsForm& form, bool checked);
void Command6_Click(core::Globals& g, OptionsForm& form);  // "alle anzeigen"
void Command7_Click(core::Globals& g, OptionsForm& form);  // "alle setzen"
void Command8_Click(core::Globals& g, OptionsForm& form);  // "anzeigen" by key
void Command9_Click(core::Globals& g, OptionsForm& form);  // "alle löschen"
// "Zurück": the marks written, the settings saved; true when the form closes.
bool Command3_Click(core::Globals& g, OptionsForm& form, int index);
void Form_Unload(core::Globals& g);

}  // namespace tolma::options
