#pragma once

#include "core/globals.h"

namespace tolma::core {

// Closes whatever function is open, in the fixed order of the menu's marks.
void A_Fenster_schliessen(Globals& g);

}  // namespace tolma::core
