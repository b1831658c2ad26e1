#pragma once

#include <string>

#include "core/globals.h"

namespace tolma::transfer {

// How a run of the import driver ended. StoreFailed: the driver ran to its end, but the store
// could not be opened or written (full disk, read-only, locked, broken); `storeFault` of the
// globals names the first cause.
enum class ImportOutcome { Finished, Cancelled, Failed, StoreFailed };

inline constexpr size_t kBlockSize = 5'120'000;
inline constexpr long kProgramTmlVersion = 151;

// Reads one transfer file into the open data store: the consent, the head, the data kind and
// version, the <betrieb> elements block by block, progress and ESC, compaction, the end.
ImportOutcome Upd_1_Start(core::Globals& g, std::string path);

// How many runs' records an import keeps for taking back (Extras › Optionen).
int keptImportRuns(core::Globals& g);
void setKeptImportRuns(core::Globals& g, int runs);

}  // namespace tolma::transfer
