#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

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

// The numbers of one block whose rows are removed ahead of its elements.
struct BlockKeys {
    bool byState = false;  // businesses by number and state, not by number alone
    std::vector<std::pair<std::string, std::string>> states;  // betr-nr, betr-hist-nr
    std::vector<std::string> numbers;                         // betr-nr, for persons' permits
    std::vector<std::string> persons;                         // pers-nr
    bool empty() const { return states.empty() && numbers.empty() && persons.empty(); }
};

class ImportJournal {
  public:
    ImportJournal();
    ~ImportJournal();

    // Begins a run inside the current transaction: drops the records of runs beyond the
    // `keep` newest (this one included), writes the run and the marks.
    void start(store::Connection& c, const std::string& file, const std::string& when, int keep);
    // Starts capturing on the connection; again after the store was closed and reopened.
    void attach(store::Connection& c);
    // Removes the rows that the block's businesses and persons hold, copied into the record
    // first, one statement each per table: the block's elements then remove nothing of theirs.
    void removeAhead(store::Connection& c, const BlockKeys& keys);
    // Puts back the rows of those numbers that no element of the block came to remove (it was
    // cut by ESC, or an element gave up early), from their copies.
    void putBack(store::Connection& c, const BlockKeys& left);
    // The businesses read so far, written with the block.
    void count(store::Connection& c, long businesses);
    // Writes what was captured and stops capturing.
    void detach(store::Connection& c) noexcept;
    bool started() const { return lauf_ > 0; }
    long lauf() const { return lauf_; }

  private:
    long lauf_ = 0;
    std::vector<std::pair<std::string, long long>> marks_;  // table, highest row id before the run
    std::unique_ptr<store::ChangeCapture> capture_;
    std::vector<long long> blockStarts_;  // per removed table, the record's last row before
                                          // the block; -1 where the block removed nothing
    bool recorded(const std::string& table) const;
};

// The recorded runs, oldest first; none when the store holds no record.
std::vector<ImportRun> importRuns(store::Connection& c);

// Takes back run `from` (the newest not yet taken back when empty) and every later run, newest
// first, in one transaction: when anything fails, nothing changes. Returns the runs taken back;
// none when there is nothing to take back.
std::vector<ImportRun> takeBackImports(store::Connection& c, std::optional<long> from);

}  // namespace tolma::transfer

namespace tolma::core {
struct Globals;
}

namespace tolma::transfer {

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
