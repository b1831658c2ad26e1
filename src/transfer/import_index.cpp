#include "transfer/import_index.h"

#include <filesystem>

#include "core/error_log.h"
#include "store/connection.h"

namespace tolma::transfer {
namespace {

constexpr long kTouchedListed = 250'000;

}  // namespace

void ImportIndexFollower::compacting() {
    if (upkeep_) upkeep_->settle();
}

void ImportIndexFollower::blockBegins(store::Connection* c, const ImportBlock&) {
    if (!c) return;
    if (!upkeep_) {
        // A file that brings much against what the store holds, as the first one does, is
        // mostly businesses new to it.
        std::error_code e1, e2;
        const auto fileSize = std::filesystem::file_size(file_, e1);
        const auto storeSize = std::filesystem::file_size(g_.settings.db_pfad_aktuell, e2);
        upkeep_.emplace(!e1 && !e2 && fileSize > 2 * storeSize);
    }
    // Not trapped: a block that cannot carry the mark must not be stored.
    upkeep_->begin(*c);
}

void ImportIndexFollower::blockRead(store::Connection*, const ImportBlock& block) {
    for (size_t i = 0; i < block.read; ++i) {
        const ReadElement& element = block.elements[i];
        // Stored nothing, or left as it stands with what the index holds of it.
        if (element.failure || block.unchanged[i]) continue;
        if (++touched_ <= kTouchedListed)
            unnoted_.push_back(element.betrNr);
        else
            unnoted_ = {};
    }
    noted_ = false;
}

void ImportIndexFollower::blockCommitting(store::Connection* c, const ImportBlock& block) {
    if (!c || !upkeep_) return;
    std::vector<std::string> businesses, persons;
    for (size_t i = 0; i < block.elements.size(); ++i) {
        const ReadElement& element = block.elements[i];
        if (block.unchanged[i]) continue;
        businesses.push_back(element.betrNr);
        persons.insert(persons.end(), element.persNrs.begin(), element.persNrs.end());
    }
    try {
        upkeep_->keep(*c, businesses, persons);
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Suchindex", e);
    }
    unnoted_.clear();
    noted_ = true;
}

void ImportIndexFollower::blockCommitted(store::Connection* c, const ImportBlock&) {
    if (upkeep_ && c) upkeep_->committed(*c);
}

void ImportIndexFollower::blocksDone(store::Connection* c, long) {
    finish(c);
}

// The rows of the last block, and of what a block stored ahead of its end without its notes
// (its persons are not known, so every business sharing a person with one of its businesses
// follows); the index follows the store again.
void ImportIndexFollower::finish(store::Connection* c) {
    if (!upkeep_ || !c) return;
    try {
        const bool all = touched_ > kTouchedListed;
        upkeep_->finish(*c, noted_ || all ? std::vector<std::string>{} : unnoted_, !noted_ && all);
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Suchindex", e);
    }
}

void ImportIndexFollower::runFailed() {
    // The index stays marked as behind, as every committed block left it.
    if (upkeep_) upkeep_->abandon();
}

}  // namespace tolma::transfer
