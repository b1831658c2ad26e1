#pragma once

#include <memory>
#include <optional>
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

// What each import run changed, kept in the data store so that a run can be taken back. The
// record lives in tables of its own ("tolma_import_lauf", "tolma_rueck_<table>") that the
// system's routines never read, and it is written in the same transactions as the import's
// blocks: a crash leaves the record and the store consistent with each other.
//
// How a run is recorded: before the run, the highest row id of each table; during the run,
// through a capture on the connection only (never in the store's schema), the old image of
// every row deleted or changed, and the row id of a row inserted at or below that mark. Rows
// above the mark were inserted by the run. The rows a block is to remove are copied and removed
// before its first element, a few statements for the whole block; what no element came to
// remove is put back at its end. Taking back deletes what the
// run inserted and puts back the first image of every row it touched, under its old row id.
namespace tolma::transfer {

struct ImportRun {
    long lauf = 0;
    std::string datum, datei;
    long betriebe = 0;
    bool zurueckgenommen = false;
};

inline constexpr int kDefaultKeptRuns = 10;

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
    std::vector<long long> blockStarts_;  // per removed table, the record's last row before
                                          // the block; -1 where the block removed nothing
    // The numbers whose rows the current block removed ahead and no element took yet, as the
    // key columns compare them, without regard to case.
    bool aheadThisBlock_ = false, byState_ = false;
    std::unordered_set<std::string> states_;   // betr-nr, by state: betr-nr \n hist
    std::unordered_set<std::string> numbers_;  // betr-nr alone, for persons' permits
    std::unordered_set<std::string> persons_;
};

// How many runs' records an import keeps for taking back (Extras › Optionen).
int keptImportRuns(core::Globals& g);
void setKeptImportRuns(core::Globals& g, int runs);

// The recorded runs, oldest first; none when the store holds no record.
std::vector<ImportRun> importRuns(store::Connection& c);

// Takes back run `from` (the newest not yet taken back when empty) and every later run, newest
// first, in one transaction: when anything fails, nothing changes. Returns the runs taken back;
// none when there is nothing to take back.
std::vector<ImportRun> takeBackImports(store::Connection& c, std::optional<long> from);

// Taking back from the menu and the command line: names the runs that go, asks once, takes
// them back in one transaction and tells what was restored.
enum class TakeBackOutcome { Done, Nothing, Refused, Failed };
struct TakeBackResult {
    TakeBackOutcome outcome = TakeBackOutcome::Nothing;
    std::vector<ImportRun> runs;
};
TakeBackResult Import_zuruecknehmen(core::Globals& g, std::optional<long> from);

// "Lauf 3 vom 24.11.2026 21:00:00: beispiel.tml, 52 Betriebe"
std::string describeRun(const ImportRun& run);

}  // namespace tolma::transfer
