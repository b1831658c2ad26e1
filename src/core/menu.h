#pragma once

#include <functional>
#include <string>

#include "core/globals.h"

namespace tolma::core {

// The import of a transfer file (Upd_1_Start), which lives above the core: the start-up and the
// import menu are handed it.
using ImportRun = std::function<void(Globals& g, const std::string& path)>;

// Closes whatever function is open, in the fixed order of the menu's marks.
void A_Fenster_schliessen(Globals& g);

// "Daten-Import (TML --> Access)": the file dialog, then the import with the main window
// disabled; a cancelled dialog is told with a message.
void menue_import_datenbank(Globals& g, const ImportRun& Upd_1_Start);
// The import of a file the clerk chose elsewhere ("Einlesen" in the check's report), under the
// same marks as the menu entry; nothing while an import runs.
void importChosenFile(Globals& g, const ImportRun& Upd_1_Start, const std::string& file);

// The hidden entries' handlers: the conversion file (an unfinished function) and the choice of
// an export database, kept for the run in the global texts.
void menue_Ums_bearbeiten(Globals& g);
void menue_DB_auswahl_export(Globals& g);

// App.PrevInstance: whether a copy of the program already runs for this user. The first call
// takes a lock that lasts as long as the process; `lockFile` names it (tests give their own).
bool App_PrevInstance(const std::filesystem::path& lockFile);
std::filesystem::path instanceLockFile();

// The load of the main window: the single-instance warning; the window's size is the GUI's.
void MDIForm_Load(Globals& g, bool prevInstance);

}  // namespace tolma::core
