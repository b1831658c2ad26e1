#pragma once

#include "print/record_report.h"

// The print menu: "aktueller &Betrieb" and "aktuelle &Person" print the record shown in the
// record view with the record report, straight to the present printer, without a dialog.
namespace tolma::print {

// Each acts only when no function of the menu is open (no entry checked); otherwise the click
// does nothing. Without a record shown, or with an empty store, it tells so.
void menue_druck_betrieb(core::Globals& g, PrintState& d);
void menue_druck_Person(core::Globals& g, PrintState& d);

}  // namespace tolma::print
