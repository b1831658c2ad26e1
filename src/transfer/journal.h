#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tolma::core {
struct Globals;
}
namespace tolma::store {
class Connection;
}

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
    // Data deleted for good took old images out of its record: taking it back cannot bring
    // those rows again.
    bool bilderGeloescht = false;
};

inline constexpr int kDefaultKeptRuns = 10;

// How many runs' records an import keeps for taking back (Extras › Optionen).
int keptImportRuns(core::Globals& g);
void setKeptImportRuns(core::Globals& g, int runs);

// The recorded runs, oldest first; none when the store holds no record.
std::vector<ImportRun> importRuns(store::Connection& c);

// Takes back run `from` (the newest not yet taken back when empty) and every later run, newest
// first, in one transaction: when anything fails, nothing changes. Returns the runs taken back;
// none when there is nothing to take back.
std::vector<ImportRun> takeBack(store::Connection& c, std::optional<long> from);

// Taking back from the menu and the command line: names the runs that go, asks once, takes
// them back in one transaction and tells what was restored.
enum class TakeBackOutcome { Done, Nothing, Refused, Failed };
struct TakeBackResult {
    TakeBackOutcome outcome = TakeBackOutcome::Nothing;
    std::vector<ImportRun> runs;
};
TakeBackResult askAndTakeBack(core::Globals& g, std::optional<long> from);

// Takes the old images of the rows of `table` that a condition on its columns names out of
// every run's record, for rows deleted for good; marks the runs that held any. The condition
// uses ?1.. for `params`. Inside the caller's transaction.
void forgetImages(store::Connection& c, const std::string& table, const std::string& condition,
                  const std::vector<std::string>& params);

// The run a row of `table` (by its row id) came from, as far as the record tells: the newest run
// not taken back that inserted or changed the row, or whose mark for the table lies below the
// row id (rows above the mark were inserted during that run, and no later run's mark lies below
// them). None for a row older than every recorded run. A row written outside an import after
// the newest run counts as that run's.
std::optional<ImportRun> runThatWrote(store::Connection& c, const std::string& table,
                                      long long rowid);

// "Lauf 3 vom 24.11.2026 21:00:00: beispiel.tml, 52 Betriebe"
std::string describeRun(const ImportRun& run);

}  // namespace tolma::transfer
