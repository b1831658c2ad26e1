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
// What a check of a transfer file found (see checkTransferFile).
struct ImportCheck {
    std::string struktur, version, ersteller, erstelldatum;
    long businesses = 0, replacing = 0, removals = 0;
    long personsNew = 0, personsReplaced = 0;
    struct TableCount {
        std::string table;
        long long written = 0, deleted = 0;
    };
    std::vector<TableCount> tables;
    std::vector<core::Globals::LoggedEntry> logEntries;
    std::vector<std::string> warnings;
    std::vector<std::string> municipalities;  // gem-kz of the file's businesses
    // What reading the file in would change, by business number, compared with the store.
    struct Business {
        std::string betrNr, name;
        std::vector<std::string> differences;  // of a replaced business: what differs
    };
    long added = 0, changed = 0, unchanged = 0, notInFile = 0;
    std::vector<Business> addedList, changedList, notInFileList;  // the first few of each
};

// What a run read, for the line the command line ends an import with.
struct ImportCounts {
    long read = 0;      // <betrieb> elements stored
    long removals = 0;  // of them notifications of deregistration (<meld-art> 03)
};

// With `check`, the run asks nothing, switches no store, compacts nothing and leaves the
// transaction for the caller to drop; the head and counts go into `check`. `counts` hears what
// the run read, however it ends.
ImportOutcome Upd_1_Start(core::Globals& g, std::string path, ImportCheck* check = nullptr,
                          ImportCounts* counts = nullptr);

// Why a file gave no business to read, in a sentence for the clerk: it is missing, cannot be
// read, is empty, is written in UTF-16, or holds no <betrieb> element.
std::string noBusinessCause(const std::string& path);

// Runs the whole import of a file against the active store without keeping anything: no
// row, no log entry. Fails only when the file cannot be read.
ImportOutcome checkTransferFile(core::Globals& g, const std::string& path, ImportCheck& report);
// The check's report as text, for the window and the command line.
std::string checkReportText(const std::string& path, const ImportCheck& report);

// How many runs' records an import keeps for taking back (Extras › Optionen).
int keptImportRuns(core::Globals& g);
void setKeptImportRuns(core::Globals& g, int runs);

}  // namespace tolma::transfer
