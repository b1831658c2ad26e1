#pragma once

#include "core/globals.h"

namespace tolma::core {

// Reads the row of Optionen into the global values, repairing what is missing or wrong.
void A_org_lesen(Globals& g);
// Writes the row from the options form and the global values, then reads it back.
void A_org_update(Globals& g);

}  // namespace tolma::core
