#include <optional>
#include <utility>
#include <vector>

#include "core/error_log.h"
#include "model/values.h"
#include "store/connection.h"
#include "text/text.h"
#include "transfer/element_fingerprint.h"
#include "transfer/export_blocks.h"
#include "transfer/export_form.h"
#include "transfer/export_record.h"
#include "transfer/export_scan.h"
#include "transfer/field_store.h"

namespace tolma::transfer {
namespace {

const char* kTitel = "Text-Export!";

// Format() with a mask of "@": the text right-aligned in the mask's width.
std::string masked(long value, const std::string& mask) {
    std::string text = std::to_string(value);
    if (text.size() < mask.size()) text.insert(0, mask.size() - text.size(), ' ');
    return text;
}

std::string fileTime(const core::Globals& g) {
    return text::localTime(g.clock(), "%d-%m-%Y_%H-%M-%S");
}

void writeHead(ExportContext& ctx, const VerwaltungsblockForm& form, long total) {
    auto box = [&](int i) { return text::trimBlanks(form.Text1[static_cast<size_t>(i)].text); };
    auto element = [&](const char* name, const std::string& value) {
        ctx.line(std::string("<") + name + ">" + value + "</" + name + ">");
    };
    ctx.line("<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>");
    ctx.line("<verwaltungsblock>");
    element("verarbeitungsart", box(0));
    element("struktur", box(1));
    element("tml-version", box(14));
    element("erstelldatum", headDate(box(2)));
    element("erstellzeit", box(3));
    element("ersteller", box(4));
    element("ersteller-id", box(5));
    element("erstellquelle", box(6));
    element("ersteller-email", box(7));
    element("berichts-zeitraum-von", headDate(box(8)));
    element("berichts-zeitraum-bis", headDate(box(9)));
    element("zahl-betriebe-gesamt", std::to_string(total));
    ctx.line("<gemeinden>");
    ctx.line("<gemeinde>");
    element("gem-name", box(11));
    element("gem-kz", box(12));
    element("gem-telefon", box(13));
    ctx.line("</gemeinde>");
    ctx.line("</gemeinden>");
    ctx.line("</verwaltungsblock>");
    ctx.line("<datenblock>");
}

// From the last row of the selection back to the first: the newest state of a business is "E"
// when it has an end, "A" otherwise; an older state is "H". Read forwards, a row is the newest
// of its business when the next row has another number. Only the rows whose status changes
// are written.
void refreshProcessingStatus(const core::Globals& g, const std::string& query) {
    const auto connection = g.stores.db_daten.connection();
    std::vector<std::pair<long long, char>> changes;
    {
        SelectionScan scan(*connection, query, "[betr-nr], [betr-ende], [bearb-status]");
        struct Pending {
            long long rowid;
            std::string nr;
            bool ended;
            bool storedText;
            std::string stored;
        };
        std::optional<Pending> before;
        auto settle = [&](const Pending& p, bool newest) {
            const char status = newest ? (p.ended ? 'E' : 'A') : 'H';
            if (!p.storedText || p.stored.size() != 1 || p.stored[0] != status)
                changes.emplace_back(p.rowid, status);
        };
        while (scan.next()) {
            const bool storedText = scan.isText(2);
            const auto& row = scan.readRow();
            Pending p{scan.rowid(), row[0].toString(), !text::trimBlanks(row[1].toString()).empty(),
                      storedText, row[2].toString()};
            if (before) settle(*before, before->nr != p.nr);
            before = std::move(p);
        }
        if (before) settle(*before, true);
    }
    if (changes.empty()) return;

    // One transaction for the whole refresh: a row each would cost a commit each.
    connection->beginBatch();
    // On the way out of an error the transaction ends too; only the regular end may raise a
    // failed commit (a full disk).
    struct Commit {
        store::Connection* c;
        void now() {
            if (auto* done = std::exchange(c, nullptr)) done->commitBatch();
        }
        ~Commit() {
            try {
                now();
            } catch (const std::exception&) {
            }
        }
    } commit{connection.get()};
    // A business whose status changes no longer holds what its element wrote: read again, the
    // element must write its rows anew, with the status it carries.
    forgetFingerprints(*connection);
    {
        // One statement per status and list of rows: a statement per row costs a round trip
        // each on a server.
        const auto update = connection->prepare("UPDATE [betrieb] SET [bearb-status] = ?1 WHERE " +
                                                connection->isOneOf("rowid", "?2", true));
        constexpr size_t kRowsPerStatement = 10000;
        for (const char status : {'E', 'A', 'H'}) {
            std::vector<std::string> rowids;
            auto flush = [&] {
                if (rowids.empty()) return;
                update->reset();
                update->bind(1, store::Variant(std::string(1, status)));
                update->bind(2, store::Variant(connection->listValue(rowids)));
                update->step();
                rowids.clear();
            };
            for (const auto& [rowid, changed] : changes) {
                if (changed != status) continue;
                rowids.push_back(std::to_string(rowid));
                if (rowids.size() == kRowsPerStatement) flush();
            }
            flush();
        }
    }
    commit.now();
}

// The businesses of the selection into the open file, with progress; false where the clerk
// pressed ESC (the selection then stands where the run stopped).
bool writeBusinesses(core::Globals& g, ExportContext& ctx, const std::string& query,
                     store::Recordset& rs, long total) {
    auto& view = g.forms.startView;
    const std::string mask(std::to_string(total).size() + 1, '@');
    // The subordinate tables are read alongside the businesses, each in key order. The walk
    // sees the store as it stood at its start, whatever another workstation commits meanwhile.
    store::Connection& c = *g.stores.db_daten.connection();
    struct Reading {
        store::Connection& c;
        bool open;
        ~Reading() {
            if (open) c.rollbackOpen();
        }
    } reading{c, c.beginReading()};
    // The businesses come a block at a time, so that the scans may read the block's rows of
    // each table at once; on a server the next block is read while this one is written.
    ExportBlocks blocks(c, query, reading.open && total > static_cast<long>(ExportBlocks::kBlock));
    const SelectionScan& businesses = blocks.selection();
    const size_t nrColumn = blocks.numberColumn();
    long counter = 0;
    g.log.akt_schritt = 1;
    while (const ExportBlocks::Block* block = blocks.next()) {
        ctx.scans = block->scans.get();
        for (size_t i = 0; i < block->size; ++i) {
            g.shell->doEvents();
            if (g.view.taste == 27) {
                g.view.taste = 0;
                core::showMessage(g, "Der Vorgang wurde abgebrochen!", core::msg::vbInformation,
                                  kTitel);
                view.ProgressBar1Value = 0;
                rs.setAbsolutePosition(counter);
                ctx.scans = nullptr;
                return false;
            }
            ++counter;
            ctx.line("<betrieb>");
            view.ProgressBar1Value = static_cast<int>(counter);
            view.Label2 = "Übertrage Satz " + masked(counter, mask) + " von " +
                          masked(total, mask) + " (ESC = Abbrechen)";
            g.shell->refreshView();
            const KeyedScan::Row& row = block->rows[i];
            ctx.betrNr = row[nrColumn].toString();
            TML_Exp_2_Tabellen(ctx, businesses, row);
            ctx.line("</betrieb>");
        }
    }
    ctx.scans = nullptr;
    return true;
}

enum class FileOutcome { Written, Empty, Cancelled };

// One transfer file of the selection `query`, named by `prefix` and the time.
FileOutcome exportFile(core::Globals& g, const VerwaltungsblockForm& form,
                       const std::string& prefix, const std::string& query, TmlWriter& out,
                       ExportResult& result) {
    auto& view = g.forms.startView;
    g.stores.rs_betrieb = g.stores.db_daten.OpenRecordset(query);
    store::Recordset& rs = g.stores.rs_betrieb;
    if (rs.RecordCount() == 0) {
        core::showMessage(g, "Es wurden keine Daten in der Betriebsdatenbank gefunden!",
                          core::msg::vbInformation, kTitel);
        return FileOutcome::Empty;
    }
    view.MousePointer = 11;
    rs.MoveLast();
    const long total = rs.RecordCount();
    view.ProgressBar1Max = static_cast<int>(total);
    view.ProgressBar1Value = 0;
    const std::string name = prefix + fileTime(g) + ".tml";
    const std::string path = g.paths.pfad_dat + name;
    out.open(path);
    ExportContext ctx(g, out);
    writeHead(ctx, form, total);
    g.shell->unloadForm("Frm_Verwaltungsblock");
    refreshProcessingStatus(g, query);
    if (!writeBusinesses(g, ctx, query, rs, total)) {
        out.keepUnfinished();  // the half-written file stays as it is
        result.files.push_back(path);
        result.outcome = ExportResult::Outcome::Cancelled;
        return FileOutcome::Cancelled;
    }
    // The selection stands past its last row, as after a walk through it.
    rs.MoveLast();
    rs.MoveNext();
    ctx.line("</datenblock>");
    ctx.line("</gewerbedatei>");
    out.commit();
    result.files.push_back(path);
    core::showMessage(
        g, "Die Datei '" + name + "' wurde im Verzeichnis '" + g.paths.pfad_dat + "' erstellt!",
        core::msg::vbInformation, kTitel);
    return FileOutcome::Written;
}

}  // namespace

ExportResult TML_Exp_1(core::Globals& g, const VerwaltungsblockForm& form,
                       const std::string& mode) {
    ExportResult result;
    auto& view = g.forms.startView;
    TmlWriter out;
    store::Recordset keys;
    auto finish = [&] {
        keys.Close();
        g.forms.marks.menue_export_textdatei = false;
        view.Label2 = "Auswahl von Gewerbedaten!";
        view.MousePointer = 0;
        g.shell->refreshView();
    };
    g.log.akt_schritt = 0;
    g.forms.marks.menue_export_textdatei = true;
    try {
        removeUnfinishedTransferFiles(g.paths.pfad_dat);
        long n = 1;
        if (mode == "schluesselfeld") {
            keys = g.stores.db_daten.OpenRecordset(kKeyQuery);
            if (keys.RecordCount() == 0) {
                core::showMessage(g, "In der Datenbank wurden keine Schlüsselnummern gefunden!",
                                  core::msg::vbInformation, kTitel);
                finish();
                return result;
            }
            keys.MoveLast();
            keys.MoveFirst();
            n = keys.RecordCount();
        }
        for (long k = 1; k <= n; ++k) {
            std::string key, query;
            if (mode == "schluesselfeld") {
                key = keys.Fields("schluesselfeld").Value().toString();
                keys.MoveNext();
                query = "SELECT distinctrow * FROM betrieb WHERE betrieb.schluesselfeld = " +
                        quote(key) + "ORDER BY betrieb.[betr-nr], betrieb.[betr-hist-nr];";
            } else {
                query =
                    "SELECT distinctrow * FROM betrieb ORDER BY betrieb.[betr-nr], "
                    "betrieb.[betr-hist-nr];";
            }
            const std::string prefix = mode == "schluesselfeld" ? key + "_" : std::string();
            if (exportFile(g, form, prefix, query, out, result) == FileOutcome::Cancelled) {
                finish();
                return result;
            }
        }
        g.log.akt_schritt = 2;
        finish();
        return result;
    } catch (const std::exception& e) {
        out.discard();  // a cut file must not look like a whole one, and frees its space for the
                        // log
        core::logTrapped(g, "TML_Exp_1", e);
        result.outcome = ExportResult::Outcome::Failed;
        return result;
    }
}

}  // namespace tolma::transfer
