#pragma once

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "transfer/import_listener.h"

namespace tolma::core {
struct Globals;
}

namespace tolma::store {
class ChangeCapture;
class Connection;
}  // namespace tolma::store

namespace tolma::transfer {

// Records each import run as it stores its blocks, as a listener of the driver. Before a
// block's elements, the rows that its businesses and persons hold are copied into the record
// and removed, one statement each per table; its elements then remove nothing of theirs, and
// what no element came to remove (the block was cut by ESC, or an element gave up early) is put
// back from the copies when the elements are read.
class ImportJournal final : public ImportListener, private RemovedAhead {
  public:
    explicit ImportJournal(core::Globals& g);
    ~ImportJournal() override;

    void runStarts(const std::string& file) override;
    void blockBegins(store::Connection* c, const ImportBlock& block) override;
    RemovedAhead* blockKeys(store::Connection* c, const BlockKeys& keys) override;
    void blockRead(store::Connection* c, const ImportBlock& block) override;
    void blockCommitting(store::Connection* c, const ImportBlock& block) override;
    void runEnds(store::Connection* c) override;
    void runCancelled(store::Connection* c) override;
    void runFailed() override;

  private:
    // Begins a run inside the current transaction: drops the records of runs beyond the
    // `keep` newest (this one included), writes the run and the marks.
    void start(store::Connection& c, const std::string& when, int keep);
    // Starts capturing on the connection; again after the store was closed and reopened.
    void attach(store::Connection& c);
    // Removes the rows that the keys' businesses and persons hold, copied into the record first.
    void removeAhead(store::Connection& c, const BlockKeys& keys);
    // Notes the business rows and links of the states left as they stand as written by the run.
    void recordUnchanged(store::Connection& c, const BlockKeys& keys);
    // Puts back the rows of those numbers that no element of the block came to remove.
    void putBack(store::Connection& c, const BlockKeys& left);
    BlockKeys keysLeft() const;
    // Writes what was captured and stops capturing: later changes are no part of the run.
    void detach() noexcept;
    bool started() const { return lauf_ > 0; }
    bool recorded(const std::string& table) const;

    bool takeState(const std::string& betrNr, const std::string& betrHistNr) override;
    bool takeNumber(const std::string& betrNr) override;
    bool takePerson(const std::string& persNr) override;

    core::Globals& g_;
    std::string file_;
    long lauf_ = 0;
    std::vector<std::pair<std::string, long long>> marks_;  // table, highest row id before the run
    std::unique_ptr<store::ChangeCapture> capture_;
    std::vector<bool> removedAhead_;  // per table in the order of removal, whether the block
                                      // removed its rows ahead
    // The numbers whose rows the current block removed ahead and no element took yet, as the
    // key columns compare them, without regard to case.
    bool aheadThisBlock_ = false, byState_ = false;
    std::unordered_set<std::string> states_;   // betr-nr, by state: betr-nr \n hist
    std::unordered_set<std::string> numbers_;  // betr-nr alone, for persons' permits
    std::unordered_set<std::string> persons_;
};

}  // namespace tolma::transfer
