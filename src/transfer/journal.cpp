#include "transfer/journal.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/globals.h"
#include "core/settings.h"
#include "core/store_work.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "transfer/element_fingerprint.h"
#include "transfer/journal_tables.h"

namespace tolma::transfer {
using namespace journal;
namespace {

// The runs whose record lost old images to a deletion for good.

void takeBackRun(store::Connection& c, long lauf) {
    auto marks = c.prepare("SELECT tabelle, hoechste FROM tolma_import_marke WHERE lauf = ?1");
    marks->bind(1, store::Variant(static_cast<long long>(lauf)));
    std::vector<std::pair<std::string, long long>> list;
    while (marks->step())
        list.emplace_back(marks->column(0).toString(), marks->column(1).toInteger());
    for (const auto& [table, mark] : list) {
        const std::string shadow = store::jet::quoteName(recordTableOf(table)),
                          t = "main." + store::jet::quoteName(table);
        const std::vector<store::Variant> params{store::Variant(static_cast<long long>(lauf)),
                                                 store::Variant(mark)};
        // What the run inserted goes.
        c.execute("DELETE FROM " + t + " WHERE rowid > ?2 OR " +
                      c.rowIdAmong("SELECT rid FROM " + shadow + " WHERE lauf = ?1 AND art = 'I'"),
                  params);
        // Every row it deleted or changed comes back as it was before its first change.
        const std::string cols = columnList(columnsOf(c, table));
        const std::string images = " SELECT s.rid, " + columnList(columnsOf(c, table), "s.") +
                                   " FROM " + shadow + " s JOIN (SELECT min(rowid) AS erste FROM " +
                                   shadow + " WHERE lauf = ?1 AND art <> '" + kLeftAsItStood +
                                   "' GROUP BY rid) f ON s.rowid = f.erste WHERE "
                                   "s.art IN ('D', 'U') AND s.rid <= ?2";
        if (c.isServer()) {
            std::string sets;
            for (const auto& column : columnsOf(c, table))
                sets += (sets.empty() ? "" : ", ") + store::jet::quoteName(column) +
                        " = EXCLUDED." + store::jet::quoteName(column);
            c.execute("INSERT INTO " + t + " (rowid, " + cols + ")" + images +
                          " ON CONFLICT (rowid) DO UPDATE SET " + sets,
                      params);
        } else {
            c.execute("INSERT OR REPLACE INTO " + t + " (rowid, " + cols + ")" + images, params);
        }
    }
    dropRecordsOf(c, "lauf = ?1", {store::Variant(static_cast<long long>(lauf))});
    c.execute("UPDATE tolma_import_lauf SET zurueckgenommen = 1 WHERE lauf = ?1",
              {store::Variant(static_cast<long long>(lauf))});
}

// Businesses deleted after their period do not come back with the runs that brought them.
std::string deletedNote(const std::vector<ImportRun>& runs) {
    for (const auto& r : runs)
        if (r.bilderGeloescht)
            return "Betriebe, die nach Ablauf der Löschfrist gelöscht wurden, kommen nicht "
                   "zurück.\n";
    return {};
}

}  // namespace

std::vector<ImportRun> importRuns(store::Connection& c) {
    std::vector<ImportRun> runs;
    if (!tableExists(c, "tolma_import_lauf")) return runs;
    auto st = c.prepare(
        "SELECT lauf, datum, datei, betriebe, zurueckgenommen FROM tolma_import_lauf ORDER BY "
        "lauf");
    while (st->step()) runs.push_back(runFrom(*st));
    if (tableExists(c, kImagesDeleted)) {
        auto marked = c.prepare(std::string("SELECT DISTINCT lauf FROM ") + kImagesDeleted);
        while (marked->step())
            for (auto& r : runs)
                if (r.lauf == marked->column(0).toInteger()) r.bilderGeloescht = true;
    }
    return runs;
}

void forgetImages(store::Connection& c, const std::string& table, const std::string& condition,
                  const std::vector<std::string>& params) {
    const std::string record = recordTableOf(table);
    if (!tableExists(c, record)) return;
    std::vector<store::Variant> values(params.begin(), params.end());
    createImagesDeleted(c);
    c.execute(std::string("INSERT INTO ") + kImagesDeleted + " SELECT DISTINCT lauf FROM " +
                  store::jet::quoteName(record) + " WHERE (" + condition +
                  ") AND lauf NOT IN (SELECT lauf FROM " + kImagesDeleted + ")",
              values);
    c.execute("DELETE FROM " + store::jet::quoteName(record) + " WHERE " + condition, values);
}

std::vector<ImportRun> takeBack(store::Connection& c, std::optional<long> from) {
    std::vector<ImportRun> open;
    for (const auto& r : importRuns(c))
        if (!r.zurueckgenommen) open.push_back(r);
    if (open.empty()) return {};
    const long first = from ? *from : open.back().lauf;
    std::vector<ImportRun> taken;
    for (auto it = open.rbegin(); it != open.rend() && it->lauf >= first; ++it)
        taken.push_back(*it);
    if (taken.empty() || taken.back().lauf != first)
        return {};  // no such run, or taken back already
    c.execute("BEGIN IMMEDIATE");
    try {
        // The index stays behind until it is built anew, whatever ends the work after the
        // commit.
        search::markStale(c);
        forgetFingerprints(c);
        for (const auto& r : taken) takeBackRun(c, r.lauf);
        c.execute("COMMIT");
    } catch (...) {
        c.rollbackOpen();
        throw;
    }
    for (auto& r : taken) r.zurueckgenommen = true;
    return taken;
}

int keptImportRuns(core::Globals& g) {
    return core::positiveOption(g, "importlaeufe_behalten", kDefaultKeptRuns);
}

void setKeptImportRuns(core::Globals& g, int runs) {
    core::setPositiveOption(g, "importlaeufe_behalten", runs);
}

std::optional<ImportRun> runThatWrote(store::Connection& c, const std::string& table,
                                      long long rowid) {
    if (!tableExists(c, "tolma_import_lauf") || !tableExists(c, "tolma_import_marke"))
        return std::nullopt;
    std::string sql =
        "SELECT l.lauf, l.datum, l.datei, l.betriebe, l.zurueckgenommen FROM tolma_import_lauf l "
        "WHERE l.zurueckgenommen = 0 AND (EXISTS (SELECT 1 FROM tolma_import_marke m WHERE "
        "m.lauf = l.lauf AND m.tabelle = ?1 AND m.hoechste < ?2)";
    if (const std::string record = recordTableOf(table); tableExists(c, record))
        sql += " OR EXISTS (SELECT 1 FROM " + store::jet::quoteName(record) +
               " r WHERE r.lauf = l.lauf AND r.rid = ?2 AND r.art IN ('I', 'U', '" +
               kLeftAsItStood + "'))";
    auto st = c.prepare(sql + ") ORDER BY l.lauf DESC LIMIT 1");
    st->bind(1, store::Variant(table));
    st->bind(2, store::Variant(rowid));
    if (!st->step()) return std::nullopt;
    return runFrom(*st);
}

std::string describeRun(const ImportRun& run) {
    return "Lauf " + std::to_string(run.lauf) + " vom " + run.datum + ": " +
           std::filesystem::path(run.datei).filename().string() + ", " +
           std::to_string(run.betriebe) + (run.betriebe == 1 ? " Betrieb" : " Betriebe");
}

TakeBackResult askAndTakeBack(core::Globals& g, std::optional<long> from) {
    const char* title = "Import zurücknehmen";
    TakeBackResult result;
    std::string names;
    const core::WorkLeave leave =
        core::askWorkLeave(g, store::StoreWork::TakeBack, "Import_zuruecknehmen", title);
    if (!leave.granted) {
        result.outcome = TakeBackOutcome::Failed;
        return result;
    }
    try {
        store::Connection& c = *g.stores.db_daten.connection();
        std::vector<ImportRun> open;
        for (const auto& r : importRuns(c))
            if (!r.zurueckgenommen) open.push_back(r);
        // Without a run named, the newest one that is not taken back yet.
        if (!from && !open.empty()) from = open.back().lauf;
        std::erase_if(open, [&](const ImportRun& r) { return r.lauf < *from; });
        if (open.empty() || (from && open.front().lauf != *from)) {
            core::showMessage(g, "Es gibt keinen Importlauf, der zurückgenommen werden kann.",
                              core::msg::vbInformation, title);
            return result;
        }
        for (auto it = open.rbegin(); it != open.rend(); ++it) names += describeRun(*it) + "\n";
        if (core::showMessage(
                g,
                "Der Datenbestand wird auf den Stand vor diesen Importläufen zurückgesetzt:\n" +
                    names + deletedNote(open) + "Soll der Vorgang gestartet werden?",
                // "Nein" by default: a second Enter must not confirm what a first one began.
                core::msg::vbQuestionYesNo | core::msg::vbDefaultButton2,
                title) != core::msg::vbYes) {
            result.outcome = TakeBackOutcome::Refused;
            return result;
        }
        result.runs = takeBack(c, open.front().lauf);
    } catch (const std::exception& e) {
        core::reopenAfterFailedChange(g, "Import_zuruecknehmen", e);
        core::showMessage(
            g, "Der Import konnte nicht zurückgenommen werden; der Datenbestand ist unverändert.",
            core::msg::vbExclamation, title);
        result.outcome = TakeBackOutcome::Failed;
        return result;
    }
    // From here on the runs are taken back, whatever fails after; the message says so.
    result.outcome = TakeBackOutcome::Done;
    core::announceStoreChange(g, store::StoreWork::TakeBack);
    std::string after = search::followChange(g);
    try {
        core::DB_Load(g);  // lists and record view read the restored rows
    } catch (const std::exception& e) {
        core::logTrapped(g, "Import_zuruecknehmen", e);
    }
    if (!g.stores.db_daten.isSet())
        after += std::string(after.empty() ? "" : "\n") +
                 "Die Datenbank konnte danach nicht wieder geöffnet werden.";
    core::showMessage(g, "Die Importläufe wurden zurückgenommen:\n" + names + after,
                      after.empty() ? core::msg::vbInformation : core::msg::vbExclamation, title);
    return result;
}

}  // namespace tolma::transfer
