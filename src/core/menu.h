#pragma once

#include "core/globals.h"

namespace tolma::core {

// Closes whatever function is open, in the fixed order of the menu's marks.
void A_Fenster_schliessen(Globals& g);

// "Daten-Import (TML --> Access)": the file dialog, then the import with the main window
// disabled; a cancelled dialog is told with a message.
void menue_import_datenbank(Globals& g);

}  // namespace tolma::core
