#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "core/globals.h"
#include "store/dao_error.h"

// The connection to the stores: the two databases, the thirteen table handles and the binding
// of the data controls. Every change of the open data store goes DB_Schliessen,
// DB_Binden_loesen, the change, DB_Load.
namespace tolma::core {

void DB_Load(Globals& g);
// Asks for the password of a server when a connect failed for want of one, and keeps it for this
// run of the program; nothing when the failure was another or the clerk cancelled.
std::optional<std::string> askServerPassword(Globals& g, const std::string& path,
                                             const store::DaoError& e);
// Tells the clerk why the store on a server cannot be used; the program goes on without one.
void tellServerUnusable(Globals& g, const std::exception& e);
// Gives the data store the indexes the lists search names, towns and streets by, where they
// are missing: in a store made before them, or after an import that left them out. A store
// that cannot take them keeps its lists, which then search without them.
void ensureListIndexes(Globals& g);
// Leaves those indexes out while a large file is read in: keeping them row by row costs the
// import a third of its time, building them afterwards a fraction of that.
void dropListIndexes(Globals& g);
void DB_Handles_oeffnen(Globals& g);
// The long-lived handle of a table; null for a table without one.
store::Recordset OpenStores::*handleOf(std::string_view table);
void DB_Binden(Globals& g);
void DB_Schliessen(Globals& g);
void DB_Binden_loesen(Globals& g);
void DB_Komprimieren(Globals& g);
// Whether the open data store file has free pages enough (a fifth) for a compaction to shrink it.
bool compactionWorthIt(Globals& g);
// After a change of the data store that failed: the connection is let go, which frees what it
// held of the change (a connection that met a full disk stays in its error until opened anew),
// the failure is logged under `procedure`, and the store is opened again.
void reopenAfterFailedChange(Globals& g, const std::string& procedure, const std::exception& e);
// Compacts the store at `path` through "DATENBANK.NEU" in the program's directory and puts
// the copy in its place; 1 on success, 0 on failure.
int A_Kompress(Globals& g, const std::string& path, const std::string& sourceConnect);

// The settings store's file in the store directory, whatever the case of its name.
std::string settingsStorePath(const Directories& paths);

}  // namespace tolma::core
