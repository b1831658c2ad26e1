#pragma once

#include <filesystem>
#include <functional>

#include "core/globals.h"
#include "core/menu.h"

namespace tolma::core {

// The program's start: directories, default stores, the settings store held exclusively,
// the settings, the data store, the file association, the empty record view, and a file given
// on the command line handed to the import.
//
// The check of the association and the import come from outside the core; without them the
// start checks nothing and leaves a file on the command line alone.
struct StartHooks {
    std::function<void(Globals&)> checkFileAssociation;  // see association.h
    ImportRun Upd_1_Start;
};
void A_Start(Globals& g, const std::filesystem::path& home, const StartHooks& hooks = {});

// The empty record view of the start (also what the way back to it shows).
void showStartView(StartViewState& v);

}  // namespace tolma::core
