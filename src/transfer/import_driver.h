#pragma once

#include <string>

#include "core/globals.h"

namespace tolma::transfer {

// How a run of the import driver ended.
enum class ImportOutcome { Finished, Cancelled, Failed };

inline constexpr size_t kBlockSize = 5'120'000;
inline constexpr long kProgramTmlVersion = 151;

// Reads one transfer file into the open data store: the consent, the head, the data kind and
// version, the <betrieb> elements block by block, progress and ESC, compaction, the end.
ImportOutcome Upd_1_Start(core::Globals& g, std::string path);

}  // namespace tolma::transfer
