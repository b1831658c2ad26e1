// The import as the menu and the command line start it: the driver, with the lists' indexes
// left out for a large file, the run's record for taking it back and the search index
// listening, in this order.
#include <algorithm>
#include <filesystem>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "transfer/import_driver.h"
#include "transfer/import_index.h"
#include "transfer/journal_listener.h"

namespace tolma::transfer {
namespace {

// A file that brings much against what the store holds is read in without the lists' indexes
// by names, towns and streets; they are built anew at the end, however it ends. A small file
// keeps them, since building them anew costs as much as the store is large, and so does a file
// read again that leaves nearly all it names as it stands: its first block tells.
class ListIndexesLeftOut final : public ImportListener {
  public:
    explicit ListIndexesLeftOut(core::Globals& g) : g_(g) {}
    // However the run ended, the next opening of the store builds what is missing.
    ~ListIndexesLeftOut() override {
        if (leftOut_) g_.stores.listIndexesLeftOut = false;
    }

    void runStarts(const std::string& file) override { file_ = file; }
    void blockBegins(store::Connection* c, const ImportBlock& block) override {
        // A server keeps its indexes. The store is the one the file's kind of data named.
        if (decided_ || !c || c->isServer()) return;
        decided_ = true;
        std::error_code e1, e2;
        const auto fileSize = std::filesystem::file_size(file_, e1);
        const auto storeSize = std::filesystem::file_size(c->file(), e2);
        if (e1 || e2 || fileSize <= storeSize / 2) return;
        const auto same = std::count(block.unchanged.begin(), block.unchanged.end(), true);
        if ((block.unchanged.size() - static_cast<size_t>(same)) * 20 < block.unchanged.size())
            return;
        leftOut_ = g_.stores.listIndexesLeftOut = true;
        core::dropListIndexes(g_);
    }
    void runEnding() override {
        if (!leftOut_) return;
        g_.stores.listIndexesLeftOut = false;
        if (!g_.stores.db_daten.isSet()) core::DB_Load(g_);
        core::ensureListIndexes(g_);
    }
    void runFailed() override {
        if (!leftOut_) return;
        g_.stores.listIndexesLeftOut = false;
        try {
            core::ensureListIndexes(g_);  // the mark stays set here
        } catch (const std::exception& e) {
            core::logTrapped(g_, "Upd_1_Start", e);  // the failure told already stays the one
        }
    }

  private:
    core::Globals& g_;
    std::string file_;
    bool decided_ = false, leftOut_ = false;
};

}  // namespace

ImportOutcome Upd_1_Start(core::Globals& g, std::string path, ImportCounts* counts,
                          ImportScreen* screen) {
    StartViewScreen startView(g);
    ListIndexesLeftOut lists(g);
    ImportJournal journal(g);
    ImportIndexFollower index(g);
    ImportListener* const listeners[] = {&lists, &journal, &index};
    return runImport(g, std::move(path), screen ? *screen : startView, listeners, false, counts);
}

void startImport(core::Globals& g, const std::string& path) {
    Upd_1_Start(g, path);
}

}  // namespace tolma::transfer
