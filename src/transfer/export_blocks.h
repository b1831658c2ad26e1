#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "store/connection.h"
#include "transfer/export_scan.h"

namespace tolma::transfer {

// The businesses of an export's selection a block at a time, each with the rows of the other
// tables read ahead for it (on a server; a file's scans read on as the walk goes). On a server
// a connection of its own reads the next block on a thread of its own, in the walk's snapshot,
// while the walk writes the block before: the server answers and the program writes side by
// side instead of in turn.
class ExportBlocks {
  public:
    static constexpr size_t kBlock = 2000;

    struct Block {
        std::vector<ScanRow> rows;  // the businesses in [0, size)
        size_t size = 0;
        std::unique_ptr<ExportScans> scans;
    };

    // `c` reads in one snapshot already; `aside`: the blocks may be read on a connection and
    // thread of their own (a server's walk of more than one block, in a snapshot of its own).
    ExportBlocks(store::Connection& c, const std::string& query, bool aside);
    ~ExportBlocks();
    ExportBlocks(const ExportBlocks&) = delete;
    ExportBlocks& operator=(const ExportBlocks&) = delete;

    // The next block; nullptr past the last. Valid until the next call.
    const Block* next();
    const SelectionScan& selection() const { return *selection_; }
    size_t numberColumn() const { return nrColumn_; }

  private:
    enum class State { Free, Filled, Taken };

    void fill(Block& b);
    void read() noexcept;
    void stop() noexcept;

    std::shared_ptr<store::Connection> reader_;  // the reading thread's, if there is one
    std::unique_ptr<SelectionScan> selection_;
    size_t nrColumn_ = 0;
    bool more_ = true;  // the selection may hold further rows
    Block blocks_[2];
    std::vector<std::string> numbers_;

    // Shared by the walk and the reading thread, which fills the blocks in turn.
    std::mutex m_;
    std::condition_variable cv_;
    State state_[2] = {State::Free, State::Free};
    size_t nextBlock_ = 0;  // the block the walk takes next
    bool stopping_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

}  // namespace tolma::transfer
