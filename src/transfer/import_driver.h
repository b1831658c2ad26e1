#pragma once

#include <span>
#include <string>

#include "core/globals.h"
#include "transfer/import_listener.h"

namespace tolma::transfer {

// How a run of the import driver ended. StoreFailed: the driver ran to its end, but the store
// could not be opened or written (full disk, read-only, locked, broken); `storeFault` of the
// globals names the first cause.
// Refused: the store took no changes (another workstation imports, or the login may only read).
enum class ImportOutcome { Finished, Cancelled, Failed, StoreFailed, Refused };

inline constexpr size_t kBlockSize = 5'120'000;
inline constexpr long kProgramTmlVersion = 151;

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
    std::vector<core::LogState::LoggedEntry> logEntries;
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

// One run of the import driver: the consent, the head, the data kind and version, the <betrieb>
// elements block by block, progress and ESC, compaction, the end. It reads the file into the open
// data store and tells the listeners, in their order, what happens. A dry run asks nothing,
// switches no store, compacts nothing and leaves the transaction for the caller to drop. `counts`
// hears what the run read, however it ends.
ImportOutcome runImport(core::Globals& g, std::string path, ImportScreen& screen,
                        std::span<ImportListener* const> listeners, bool dryRun = false,
                        ImportCounts* counts = nullptr);

// The screen of the start window: its label, progress bar and pictures, redrawn by refreshView.
class StartViewScreen : public ImportScreen {
  public:
    explicit StartViewScreen(core::Globals& g) : g_(g) {}
    void preparing(const std::string& label) override;
    void progressRange(int max) override;
    void reading() override;
    void label(const std::string& text) override;
    void record(int value, const std::string& label) override;
    void refresh() override;
    void ended(const std::string& label) override;
    void failed(const std::string& label) override;

  protected:
    core::Globals& g_;
};

// The import from the menu and the command line: the run's record for taking it back (when
// runs are recorded) and the search index follow it. Without a screen, the start window's.
ImportOutcome Upd_1_Start(core::Globals& g, std::string path, ImportCounts* counts = nullptr,
                          ImportScreen* screen = nullptr);
// The same as core::ImportRun, for the start-up and the import menu.
void startImport(core::Globals& g, const std::string& path);

// The value between the first opening and the first closing tag of a file's head, when both
// are in it; a closing tag ahead of the opening one raises.
bool headValue(const std::string& head, const std::string& tag, std::string& value);

// The version of a file: every digit of the text, read as one number.
double versionNumber(const std::string& text);

// Why a file gave no business to read, in a sentence for the clerk: it is missing, cannot be
// read, is empty, is written in UTF-16, or holds no <betrieb> element.
std::string noBusinessCause(const std::string& path);

// Runs the whole import of a file against the active store without keeping anything: no
// row, no log entry. Fails only when the file cannot be read.
ImportOutcome checkTransferFile(core::Globals& g, const std::string& path, ImportCheck& report);
// The check's report as text, for the window and the command line.
std::string checkReportText(const std::string& path, const ImportCheck& report);

}  // namespace tolma::transfer
