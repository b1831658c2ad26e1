#pragma once

#include <filesystem>

#include "core/globals.h"

namespace tolma::core {

// The program's start: directories, default stores, the settings store held exclusively,
// the settings, the data store, the file association, the empty record view, and a file given
// on the command line handed to the import.
void A_Start(Globals& g, const std::filesystem::path& home);

// The empty record view of the start (also what the way back to it shows).
void showStartView(Globals& g);

}  // namespace tolma::core
