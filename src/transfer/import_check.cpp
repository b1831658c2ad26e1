// Checking a transfer file before reading it in: the whole import runs inside one transaction
// that is dropped at the end, with the log's entries kept aside.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "core/db_connection.h"
#include "core/files.h"
#include "model/schema.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "transfer/import_driver.h"

namespace tolma::transfer {
namespace {

// Counts per table what the run writes and deletes, through triggers of the connection that
// go with the dropped transaction.
void countChanges(store::Connection& c) {
    c.execute(
        "CREATE TEMP TABLE tolma_pruefung (tabelle TEXT PRIMARY KEY, geschrieben INTEGER, "
        "geloescht INTEGER)");
    for (const auto& t : model::dataTables()) {
        c.execute("INSERT INTO tolma_pruefung VALUES (?1, 0, 0)", {store::Variant(t.name)});
        const std::string on =
            " ON main." + store::jet::quoteName(t.name) + " BEGIN UPDATE tolma_pruefung SET ";
        const std::string where = " WHERE tabelle = " + store::jet::quote(t.name) + "; END";
        c.execute("CREATE TEMP TRIGGER " + store::jet::quoteName("tolma_pruef_" + t.name + "_i") +
                  " AFTER INSERT" + on + "geschrieben = geschrieben + 1" + where);
        c.execute("CREATE TEMP TRIGGER " + store::jet::quoteName("tolma_pruef_" + t.name + "_d") +
                  " AFTER DELETE" + on + "geloescht = geloescht + 1" + where);
    }
}

std::vector<std::string> markedMunicipalities(core::Globals& g) {
    std::vector<std::string> marked;
    auto rs = g.db_org.OpenRecordset("SELECT [gem-kz] FROM aktuelleGemeinde WHERE markiert <> 0");
    for (long i = 0; i < rs.RecordCount(); ++i) marked.push_back(rs.rowAt(i)[0].toString());
    return marked;
}

// Where an entry points, as the log's two location lines would name it.
std::string where(const core::Globals::LoggedEntry& e) {
    std::string location = e.location;
    if (location == "Fehlerortung: ") location.clear();
    std::string w = location;
    if (!e.locationValue.empty())
        w += location.empty() || location.back() == ' ' ? e.locationValue
                                                        : " (" + e.locationValue + ")";
    return w.empty() ? e.procedure + ": " : w + ": ";
}

}  // namespace

ImportOutcome checkTransferFile(core::Globals& g, const std::string& path, ImportCheck& report) {
    report = ImportCheck{};
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec) || !std::ifstream(path, std::ios::binary)) {
        const std::string cause = core::irregularFileCause(path);
        report.warnings.push_back("Die Datei ''" + path + "'' kann nicht gelesen werden." +
                                  (cause.empty() ? "" : "\n" + cause));
        return ImportOutcome::Failed;
    }
    if (!g.db_daten.isSet()) {
        report.warnings.push_back("Die Datenbank ''" + g.db_pfad_aktuell +
                                  "'' ist nicht geöffnet.");
        return ImportOutcome::StoreFailed;
    }
    // Held here, the connection and its transaction outlive the handles the import lets go of.
    const std::shared_ptr<store::Connection> c = g.db_daten.connection();
    std::vector<core::Globals::LoggedEntry> entries;
    const bool hadErrors = g.fehler_vorhanden;
    ImportOutcome outcome = ImportOutcome::Failed;
    c->beginBatch();
    try {
        countChanges(*c);
        g.logCapture = &entries;
        outcome = Upd_1_Start(g, path, &report);
        auto st = c->prepare("SELECT tabelle, geschrieben, geloescht FROM tolma_pruefung");
        while (st->step()) {
            const ImportCheck::TableCount count{st->column(0).toString(), st->column(1).toInteger(),
                                                st->column(2).toInteger()};
            if (count.table == "person") {
                report.personsReplaced = static_cast<long>(count.deleted);
                report.personsNew =
                    static_cast<long>(std::max<long long>(0, count.written - count.deleted));
            }
            report.tables.push_back(count);
        }
    } catch (const std::exception& e) {
        report.warnings.push_back(std::string("Die Prüfung wurde abgebrochen: ") + e.what());
        outcome = ImportOutcome::Failed;
    }
    g.logCapture = nullptr;
    c->rollbackBatch();
    g.fehler_vorhanden = hadErrors;
    g.storeFault.clear();
    core::DB_Load(g);  // handles read the store as it stands again
    report.logEntries = std::move(entries);

    if (g.filter_aktiv_flag != 0) {
        try {
            const auto marked = markedMunicipalities(g);
            std::vector<std::string> outside;
            for (const auto& kz : report.municipalities)
                if (std::find(marked.begin(), marked.end(), kz) == marked.end())
                    outside.push_back(kz);
            std::sort(outside.begin(), outside.end());
            if (!outside.empty()) {
                std::string list;
                for (size_t i = 0; i < outside.size() && i < 20; ++i)
                    list += (i ? ", " : "") + outside[i];
                if (outside.size() > 20) list += ", ...";
                report.warnings.push_back(
                    "Betriebe der Datei liegen außerhalb der Gemeinden des Filters: " + list);
            }
        } catch (const std::exception&) {
            // without the settings store's list there is nothing to compare
        }
    }
    return outcome;
}

std::string checkReportText(const std::string& path, const ImportCheck& r) {
    std::string t =
        "Prüfung der Transferdatei " + std::filesystem::path(path).filename().string() + "\n\n";
    t += "Kopf der Datei\n";
    t += "  Datenart:     " + r.struktur + "\n";
    t += "  Version:      " + r.version + "\n";
    t += "  Ersteller:    " + r.ersteller + "\n";
    t += "  Erstelldatum: " + r.erstelldatum + "\n\n";
    t += "Betriebe in der Datei: " + std::to_string(r.businesses) + "\n";
    t += "  neu im Bestand:                     " +
         std::to_string(std::max(0L, r.businesses - r.replacing)) + "\n";
    t += "  ersetzen einen gespeicherten Stand: " + std::to_string(r.replacing) + "\n";
    t += "  Abmeldungen:                        " + std::to_string(r.removals) + "\n";
    t += "Personen: " + std::to_string(r.personsNew) + " neu, " +
         std::to_string(r.personsReplaced) + " ersetzt\n\n";
    t += "Zeilen je Tabelle (geschrieben / gelöscht)\n";
    for (const auto& c : r.tables)
        if (c.written || c.deleted)
            t += "  " + c.table + ": " + std::to_string(c.written) + " / " +
                 std::to_string(c.deleted) + "\n";
    t += "\nEinträge für das Fehlerprotokoll: " + std::to_string(r.logEntries.size()) + "\n";
    for (const auto& e : r.logEntries) t += "  " + where(e) + e.text + "\n";
    if (!r.warnings.empty()) {
        t += "\nHinweise\n";
        for (const auto& w : r.warnings) t += "  " + w + "\n";
    }
    return t;
}

}  // namespace tolma::transfer
