#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "search/index_reader.h"
#include "store/connection.h"

namespace tolma::search {

// Keeps the search index along the blocks of one import run. Reading a block's rows back and
// working out their words takes as long as storing them; so a thread of its own does that on a
// connection of its own, once the block is committed, while the next blocks are stored. A store
// file keeps its index in a file of its own, which that thread writes and commits itself, a
// block behind the storing at most. On a server what it found is written in the next block's
// transaction, the last block's in one of its own, and it is let go only once a commit has kept
// it. Every block's transaction marks the index as not following the store, and only the end of
// the run takes the mark away: a crash, a failure or a kill anywhere between leaves the next
// search to build the index anew.
//
// A run that brings much against what the store holds learns once which numbers the store
// holds; a business new to it then has only rows its block wrote, which are read in one pass
// over the block's rows rather than looked up business by business. To find them, the run
// watches the rows the connection inserts, as a listener of the connection's changes.
class IndexUpkeep final : private store::ChangeListener {
  public:
    explicit IndexUpkeep(bool manyNew) : manyNew_(manyNew) {}
    ~IndexUpkeep();
    IndexUpkeep(const IndexUpkeep&) = delete;
    IndexUpkeep& operator=(const IndexUpkeep&) = delete;

    // At the start of a block, inside its transaction, before it changes anything: the mark.
    void begin(store::Connection& c);
    // At the end of a block, inside its transaction: writes what was found for the block
    // before, and notes the block's businesses and persons. A failure is raised; the index is
    // then left to the next search to build anew.
    void keep(store::Connection& c, const std::vector<std::string>& betrNrs,
              const std::vector<std::string>& persNrs);
    // After the block's commit: what it wrote is let go; its rows are read, and those of the
    // businesses sharing one of its persons.
    void committed(store::Connection& c);
    // Before the store's file is replaced (compaction): waits for the reading and writing.
    void settle();
    // At the end of a run that stored every block it began, outside a transaction: the last
    // block's rows, those of `also` and the businesses sharing their persons (or, with
    // `everything`, the whole index anew), and the mark taken away, in a transaction of their
    // own. A failure is raised; the mark then stays.
    void finish(store::Connection& c, const std::vector<std::string>& also = {},
                bool everything = false);
    // At the end of a run that failed: nothing more is written, and the mark stays.
    void abandon();

  private:
    // Numbers by a hash of their key: two numbers of one hash count as one, which costs at most
    // a lookup that finds nothing.
    class Numbers {
      public:
        void add(std::string_view nr);
        bool has(std::string_view nr) const;

      private:
        std::vector<std::uint64_t> sorted_;
        std::unordered_set<std::uint64_t> recent_;
    };

    void learn(store::Connection& c);
    void watch(store::Connection& c);
    bool watchedBlock(store::Connection& c);  // and stops watching
    void changing(store::Connection& c, const Change& change) override;
    // Only the rows a block writes tell where to read again; a delete needs nothing of its rows.
    bool deletingWhere(store::Connection&, size_t, const Condition&) override { return true; }

    // What a block leaves to be read once it is committed.
    struct Noted {
        std::vector<std::string> listed, persons;
        NewBusinesses added;
        std::vector<std::string> freshPersons;  // of the block, new to the store
    };
    void write(store::Connection& c);
    // The thread that reads the blocks, and for a store file writes their rows, in their order.
    void work();
    void run(const Noted& noted, const std::filesystem::path& file, bool writes);
    void stop();

    bool manyNew_;
    bool learnt_ = false;
    bool started_ = false, following_ = false, failed_ = false, finished_ = false;
    bool launched_ = false;  // the noted block is being read
    std::optional<Noted> noted_;
    struct Task {
        Noted noted;
        std::filesystem::path file;
        bool writes;  // the index file: written by the thread
    };
    std::thread worker_;
    // Under the mutex: the block waiting, whether one is at work, and what came of it.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Task> waiting_;
    bool busy_ = false, stopping_ = false;
    std::shared_ptr<store::Connection> own_;  // the thread's, while it has blocks to do
    std::vector<RowsToWrite> found_;          // read, and not yet kept by a commit
    std::exception_ptr readFailed_;
    Numbers businesses_, persons_;  // held by the store before the block
    std::weak_ptr<store::Connection> watched_;
    std::vector<long long> from_;        // by the table's place among the relations
    std::vector<size_t> watchedTables_;  // the places of the tables watched
};

}  // namespace tolma::search
