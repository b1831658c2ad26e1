#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/globals.h"
#include "search/index_upkeep.h"
#include "transfer/import_listener.h"

namespace tolma::transfer {

// The search index follows an import's blocks: the rows of each block's businesses, and of the
// businesses that share a person with them, are written anew, in the next block's transaction
// or at the end. After a failure the next search builds the index anew, and the import goes on.
class ImportIndexFollower final : public ImportListener {
  public:
    explicit ImportIndexFollower(core::Globals& g) : g_(g) {}

    void runStarts(const std::string& file) override { file_ = file; }
    void compacting() override;
    void blockBegins(store::Connection* c, const ImportBlock& block) override;
    void blockRead(store::Connection* c, const ImportBlock& block) override;
    void blockCommitting(store::Connection* c, const ImportBlock& block) override;
    void blockCommitted(store::Connection* c, const ImportBlock& block) override;
    void blocksDone(store::Connection* c, long records) override;
    void runEnds(store::Connection* c) override { finish(c); }
    void runCancelled(store::Connection* c) override { finish(c); }
    void runFailed() override;

  private:
    void finish(store::Connection* c);

    core::Globals& g_;
    std::string file_;
    std::optional<search::IndexUpkeep> upkeep_;
    // The businesses stored since the index last noted a block, for its end; past a quarter of
    // a million in the run the list is given up for building the index anew, which then costs
    // less anyway.
    std::vector<std::string> unnoted_;
    long touched_ = 0;
    bool noted_ = true;
};

}  // namespace tolma::transfer
