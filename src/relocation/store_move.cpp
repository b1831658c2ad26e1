#include "relocation/store_move.h"

#include <filesystem>

#include "core/error_log.h"
#include "core/globals.h"
#include "model/default_stores.h"
#include "model/schema.h"

#include "protection/protocol.h"
#include "search/index_rows.h"
#include "search/search_index.h"
#include "store/server_address.h"
#include "store/server_session.h"
#include "transfer/element_fingerprint.h"
#include "transfer/journal_tables.h"

namespace tolma::relocation {
namespace {

// The search index is made anew from the copied rows: each kind of store keeps its words in a
// form of its own.
bool belongsToSearchIndex(const std::string& table) {
    return table.starts_with(search::kRowsTable) || table.starts_with(search::kWordsTable) ||
           table == search::kMarkTable;
}

// The fingerprints of the import stay behind: they vouch for the rows of the store they were
// written in, and a target without them reads the next file in full.
std::vector<std::string> tablesToCopy(store::Connection& from) {
    std::vector<std::string> out;
    for (const auto& t : store::tableNames(from))
        if (!belongsToSearchIndex(t) && t != transfer::kFingerprintTable) out.push_back(t);
    return out;
}

// The target as the messages name it: a server without a password, a file by its path.
std::string nameOf(const std::string& target) {
    return store::isServerText(target) ? store::describeServer(target) : target;
}

// Opens the target, making an empty store first where a file is named that does not exist.
std::shared_ptr<store::Connection> openTarget(const std::string& target) {
    if (store::isServerText(target)) {
        store::checkServerStore(target);
        return store::Connection::open(target, store::Connection::Kind::Shared);
    }
    std::error_code ec;
    if (!std::filesystem::exists(target, ec)) model::writeEmptyStore(target, model::dataTables());
    return store::Connection::open(target, store::Connection::Kind::Exclusive);
}

std::vector<std::string> describe(const std::string& target, const MoveResult& moved) {
    std::vector<std::string> lines{"Kopiert nach " + nameOf(target) + ":"};
    long long total = 0;
    for (const auto& t : moved.copied) {
        lines.push_back("  " + t.table + "\t" + std::to_string(t.rows));
        total += t.rows;
    }
    lines.push_back("Zeilen insgesamt: " + std::to_string(total) +
                    " (je Tabelle in Quelle und Ziel gezählt: gleich)");
    if (!moved.left.empty()) {
        std::string left = "Nicht kopiert, weil das Ziel sie nicht hat:";
        for (const auto& t : moved.left) left += " " + t;
        lines.push_back(left);
    }
    if (moved.searchIndexBuilt)
        lines.push_back("Der Suchindex wurde im Ziel neu aufgebaut.");
    else if (!moved.indexFailure.empty())
        lines.push_back("Der Suchindex konnte im Ziel nicht aufgebaut werden (" +
                        moved.indexFailure + "); er wird bei der ersten Suche aufgebaut.");
    return lines;
}

}  // namespace

std::string whyNot(store::Connection& from, store::Connection& to) {
    std::vector<std::string> there;
    for (const auto& t : tablesToCopy(from))
        if (to.hasTable(t)) there.push_back(t);
    if (const long long rows = store::rowsIn(to, there); rows > 0)
        return "enthält bereits Daten (" + std::to_string(rows) + " Zeilen)";
    return {};
}

MoveResult moveStore(store::Connection& from, store::Connection& to) {
    MoveResult result;
    // The program's own tables are made as the program makes them on that kind of store.
    auto makeOwnTables = [&] {
        // Rows come into the target: no fingerprint it might hold may vouch for them.
        transfer::forgetFingerprints(to);
        if (from.hasTable("tolma_import_lauf")) transfer::journal::createRecordTables(to);
        if (from.hasTable("tolma_protokoll")) protection::createProtocol(to);
    };
    result.copied = store::copyTables(from, to, tablesToCopy(from), makeOwnTables, &result.left);
    if (!search::indexKept(from)) return result;
    try {
        search::buildIndex(to);
        result.searchIndexBuilt = true;
    } catch (const std::exception& e) {
        result.indexFailure = e.what();  // the data are copied; the first search builds it
    }
    return result;
}

CopyReport copyOpenStore(core::Globals& g, const std::string& target) {
    CopyReport report;
    store::Connection& from = *g.stores.db_daten.connection();
    std::error_code ec;
    if (from.file().string() == target ||
        (!store::isServerText(target) && std::filesystem::equivalent(from.file(), target, ec))) {
        report.outcome = CopyOutcome::SameStore;
        report.lines = {"Quelle und Ziel sind dieselbe Datenbank; es wurde nichts kopiert."};
        return report;
    }
    const bool created = !store::isServerText(target) && !std::filesystem::exists(target, ec);
    try {
        auto to = openTarget(target);
        if (const std::string why = whyNot(from, *to); !why.empty()) {
            report.outcome = CopyOutcome::TargetHoldsData;
            report.lines = {"Das Ziel " + nameOf(target) + " " + why +
                            "; es wurde nichts kopiert."};
            if (created) std::filesystem::remove(target, ec);
            return report;
        }
        const MoveResult moved = moveStore(from, *to);
        report.outcome = CopyOutcome::Copied;
        report.lines = describe(target, moved);
        if (!moved.indexFailure.empty())
            core::A_Error_Log(g, "Datenbank kopieren", "Suchindex", "0", moved.indexFailure,
                              "Ziel: ", nameOf(target));
    } catch (const std::exception& e) {
        if (created) std::filesystem::remove(target, ec);  // no half-made store stays behind
        const auto info = core::describeError(e);
        report.outcome = CopyOutcome::Failed;
        report.lines = {
            "Die Datenbank konnte nicht nach " + nameOf(target) + " kopiert werden: " + info.text,
            "Es wurde nichts kopiert."};
        core::A_Error_Log(g, "Datenbank kopieren", info.source, std::to_string(info.number),
                          info.text, "Ziel: ", nameOf(target));
    }
    return report;
}

}  // namespace tolma::relocation
