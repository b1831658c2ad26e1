#pragma once

#include "core/globals.h"

namespace tolma::core {

// Reads the row of Optionen into the global values, repairing what is missing or wrong.
void A_org_lesen(Globals& g);
// Writes the row from the options form and the global values, then reads it back.
void A_org_update(Globals& g);

// A positive number among the program's own options in the settings store; the default where
// it is missing, not a positive number, or the store has no such table yet.
int positiveOption(Globals& g, const char* name, int fallback);
void setPositiveOption(Globals& g, const char* name, int value);

}  // namespace tolma::core
