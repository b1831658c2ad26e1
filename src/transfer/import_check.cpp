// Checking a transfer file before reading it in: the whole import runs inside one transaction
// that is dropped at the end, with the log's entries kept aside.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <unordered_set>

#include "core/db_connection.h"
#include "core/files.h"
#include "model/relations.h"
#include "model/schema.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "text/text.h"
#include "transfer/import_driver.h"

namespace tolma::transfer {
namespace {

std::string oldImage(const std::string& table) {
    return "temp." + store::jet::quoteName("tolma_pruef_alt_" + table);
}

// Counts per table what the run writes and deletes, and keeps the rows it deletes and the ids
// of the rows it writes, through triggers and tables of the connection that go with the dropped
// transaction.
void countChangesOnServer(store::Connection& c);

void countChanges(store::Connection& c) {
    if (c.isServer()) return countChangesOnServer(c);
    c.execute(
        "CREATE TEMP TABLE tolma_pruefung (tabelle TEXT PRIMARY KEY, nr INTEGER, geschrieben "
        "INTEGER, "
        "geloescht INTEGER)");
    c.execute("CREATE TEMP TABLE tolma_pruef_neu (tabelle TEXT, rid INTEGER)");
    for (const auto& t : model::dataTables()) {
        const std::string table = "main." + store::jet::quoteName(t.name);
        c.execute("INSERT INTO tolma_pruefung VALUES (?1, ?2, 0, 0)",
                  {store::Variant(t.name),
                   store::Variant(static_cast<long long>(&t - model::dataTables().data()))});
        c.execute("CREATE TEMP TABLE " + oldImage(t.name) +
                  " AS SELECT rowid AS tolma_rid, * FROM " + table + " WHERE 0");
        std::string values = "OLD.rowid";
        auto columns = c.prepare("SELECT name FROM pragma_table_info(?1)");
        columns->bind(1, store::Variant(t.name));
        while (columns->step())
            values += ", OLD." + store::jet::quoteName(columns->column(0).toString());
        const std::string on = " ON " + table + " BEGIN UPDATE tolma_pruefung SET ";
        const std::string where = " WHERE tabelle = " + store::jet::quote(t.name) + "; ";
        c.execute("CREATE TEMP TRIGGER " + store::jet::quoteName("tolma_pruef_" + t.name + "_i") +
                  " AFTER INSERT" + on + "geschrieben = geschrieben + 1" + where +
                  "INSERT INTO tolma_pruef_neu VALUES (" + store::jet::quote(t.name) +
                  ", NEW.rowid); END");
        c.execute("CREATE TEMP TRIGGER " + store::jet::quoteName("tolma_pruef_" + t.name + "_d") +
                  " AFTER DELETE" + on + "geloescht = geloescht + 1" + where + "INSERT INTO " +
                  store::jet::quoteName("tolma_pruef_alt_" + t.name) + " VALUES (" + values +
                  "); END");
    }
}

// The same on a server: one trigger function of the session's own for every table; the triggers
// go with the transaction that is dropped.
void countChangesOnServer(store::Connection& c) {
    c.execute(
        "CREATE TEMP TABLE tolma_pruefung (tabelle text PRIMARY KEY, nr bigint, geschrieben "
        "bigint, "
        "geloescht bigint)");
    c.execute("CREATE TEMP TABLE tolma_pruef_neu (tabelle text, rid bigint)");
    c.execute(
        "CREATE FUNCTION pg_temp.tolma_pruef() RETURNS trigger LANGUAGE plpgsql AS $f$ BEGIN "
        "IF TG_OP = 'INSERT' THEN "
        "UPDATE pg_temp.tolma_pruefung SET geschrieben = geschrieben + 1 WHERE tabelle = "
        "TG_TABLE_NAME; "
        "INSERT INTO pg_temp.tolma_pruef_neu VALUES (TG_TABLE_NAME, NEW.rowid); "
        "ELSE "
        "UPDATE pg_temp.tolma_pruefung SET geloescht = geloescht + 1 WHERE tabelle = "
        "TG_TABLE_NAME; "
        "EXECUTE format('INSERT INTO pg_temp.%I SELECT ($1).rowid, ($1).*', "
        "'tolma_pruef_alt_' || TG_TABLE_NAME) USING OLD; "
        "END IF; RETURN NULL; END $f$");
    for (const auto& t : model::dataTables()) {
        const std::string table = store::jet::quoteName(t.name);
        c.execute("INSERT INTO tolma_pruefung VALUES (?1, ?2, 0, 0)",
                  {store::Variant(t.name),
                   store::Variant(static_cast<long long>(&t - model::dataTables().data()))});
        // The server's row of a table ends in its row id: the image keeps it there too.
        c.execute("CREATE TEMP TABLE " + oldImage(t.name) +
                  " AS SELECT rowid AS tolma_rid, * FROM " + table + " WITH NO DATA");
        c.execute("CREATE TRIGGER tolma_pruef AFTER INSERT OR DELETE ON " + table +
                  " FOR EACH ROW EXECUTE FUNCTION pg_temp.tolma_pruef()");
    }
}

constexpr size_t kListed = 20;

// The tables by what ties their rows to a business: its number, or a person linked to it.
struct Tie {
    std::string table;
    std::string number;
    bool byPerson;
    std::string heading;
};

const std::vector<Tie>& ties() {
    static const std::vector<Tie> all = [] {
        std::vector<Tie> out;
        for (const model::Relation& r : model::relations()) {
            if (r.store != model::StoreKind::Data) continue;
            const bool byPerson = r.keys.number.empty();
            out.push_back({std::string(r.table),
                           std::string(byPerson ? r.keys.person : r.keys.number), byPerson,
                           std::string(r.title)});
        }
        return out;
    }();
    return all;
}

std::string headingOf(const std::string& table) {
    for (const Tie& t : ties())
        if (table == t.table) return t.heading;
    return table;
}

// Numbers compare without regard to case, as the store's keys do.
std::string numberKey(std::string nr) {
    return text::lowerAscii(std::move(nr));
}

std::uint64_t hashOf(const std::string& s) {
    std::uint64_t h = 14695981039346656037ull;
    for (const char ch : s) h = (h ^ static_cast<unsigned char>(ch)) * 1099511628211ull;
    return h;
}

// The rows of one table by number, each as a hash of its values; the row ids and the values
// of one column are read on the way.
struct Rows {
    std::map<std::string, std::vector<std::uint64_t>> byNumber;
};

// Compares what the run wrote with what it deleted, business by business.
class Comparison {
  public:
    Comparison(store::Connection& c, ImportCheck& report) : c_(c), r_(report) {}

    void run() {
        auto st = c_.prepare("SELECT tabelle, rid FROM tolma_pruef_neu");
        while (st->step()) written_[st->column(0).toString()].insert(st->column(1).toInteger());
        for (const Tie& t : ties()) {
            read(t, true);
            read(t, false);
        }
        for (const auto& [nr, name] : fileNumbers_) judge(nr, name);
        notInFile();
    }

  private:
    // The rows deleted by the run (with some it wrote itself), or those it wrote; the row id
    // first.
    std::string source(const std::string& table, bool old) const {
        if (old) return oldImage(table);
        return "(SELECT rowid AS tolma_rid, * FROM main." + store::jet::quoteName(table) +
               " WHERE " +
               c_.rowIdAmong("SELECT rid FROM tolma_pruef_neu WHERE tabelle = " +
                             store::jet::quote(table)) +
               ") AS geschrieben";
    }

    void read(const Tie& t, bool old) {
        const auto& written = written_[t.table];
        auto st = c_.prepare("SELECT * FROM " + source(t.table, old));
        int number = -1, name = -1, person = -1;
        for (int i = 0; i < st->columnCount(); ++i) {
            const std::string col = st->columnName(i);
            if (col == t.number) number = i;
            if (col == "b-eintr-name") name = i;
            if (col == "bez-pers-nr") person = i;
        }
        if (number < 0) return;
        Rows& rows = (old ? old_ : new_)[t.table];
        while (st->step()) {
            const bool byRun = written.count(st->column(0).toInteger()) > 0;
            // The old rows are the store's before the run; the new ones those the run wrote.
            if (old == byRun) continue;
            std::string values;
            for (int i = 1; i < st->columnCount(); ++i) values += st->column(i).toString() + "\x1f";
            const std::string key = numberKey(st->column(number).toString());
            rows.byNumber[key].push_back(hashOf(values));
            if (person >= 0) personsOf_[key].insert(numberKey(st->column(person).toString()));
            if (t.table == "betrieb") {
                if (!old) fileNumbers_.try_emplace(key, st->column(name).toString());
                if (old) oldNames_.try_emplace(key, st->column(name).toString());
            }
        }
    }

    // The rows of one table of a business, before and after.
    std::pair<std::vector<std::uint64_t>, std::vector<std::uint64_t>> rowsOf(
        const Tie& t, const std::string& nr) {
        std::vector<std::uint64_t> before, after;
        auto take = [&](const std::string& key) {
            auto& o = old_[t.table].byNumber;
            auto& n = new_[t.table].byNumber;
            if (auto it = o.find(key); it != o.end())
                before.insert(before.end(), it->second.begin(), it->second.end());
            if (auto it = n.find(key); it != n.end())
                after.insert(after.end(), it->second.begin(), it->second.end());
        };
        if (t.byPerson) {
            for (const auto& p : personsOf_[nr]) take(p);
        } else {
            take(nr);
        }
        std::sort(before.begin(), before.end());
        std::sort(after.begin(), after.end());
        return {before, after};
    }

    void judge(const std::string& nr, const std::string& name) {
        if (!oldNames_.count(nr)) {
            ++r_.added;
            if (r_.addedList.size() < kListed) r_.addedList.push_back({nr, name, {}});
            return;
        }
        std::vector<std::string> differences;
        for (const Tie& t : ties()) {
            const auto [before, after] = rowsOf(t, nr);
            if (before == after) continue;
            std::vector<std::uint64_t> gone, come;
            std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                                std::back_inserter(gone));
            std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                                std::back_inserter(come));
            if (t.table == "betrieb" && gone.size() == 1 && come.size() == 1) {
                fieldsOf(nr, differences);
                continue;
            }
            differences.push_back(headingOf(t.table) + ": " + std::to_string(come.size()) +
                                  " Zeile(n) neu oder anders, " + std::to_string(gone.size()) +
                                  " entfallen");
        }
        if (differences.empty()) {
            ++r_.unchanged;
            return;
        }
        ++r_.changed;
        if (r_.changedList.size() < kListed)
            r_.changedList.push_back({nr, name, std::move(differences)});
    }

    // The row of a business's state: among the old images one the run did not write, among
    // the store's rows one it wrote.
    std::map<std::string, std::string> stateRow(const std::string& nr, bool old) {
        const auto& written = written_["betrieb"];
        auto st = c_.prepare("SELECT * FROM " + source("betrieb", old) +
                             " WHERE [betr-nr] = ?1 COLLATE NOCASE");
        st->bind(1, store::Variant(nr));
        std::map<std::string, std::string> row;
        while (st->step()) {
            if (old == (written.count(st->column(0).toInteger()) > 0)) continue;
            for (int i = 1; i < st->columnCount(); ++i)
                row[st->columnName(i)] = st->column(i).toString();
            break;
        }
        return row;
    }

    // The fields of the business's state that differ, old and new value.
    void fieldsOf(const std::string& nr, std::vector<std::string>& out) {
        if (r_.changedList.size() >= kListed) return;
        const auto before = stateRow(nr, true), after = stateRow(nr, false);
        for (const auto& [field, value] : after) {
            const auto it = before.find(field);
            const std::string was = it == before.end() ? "" : it->second;
            if (was != value) out.push_back("[" + field + "]: „" + was + "“ → „" + value + "“");
        }
        if (out.empty()) out.push_back("Meldedaten: anders");
    }

    // The businesses of the store whose number the file does not hold.
    void notInFile() {
        std::set<std::string> seen;
        const auto& written = written_["betrieb"];
        auto st = c_.prepare("SELECT rowid, [betr-nr], [b-eintr-name] FROM main.betrieb");
        while (st->step()) {
            if (written.count(st->column(0).toInteger())) continue;
            const std::string nr = numberKey(st->column(1).toString());
            if (fileNumbers_.count(nr) || !seen.insert(nr).second) continue;
            ++r_.notInFile;
            if (r_.notInFileList.size() < kListed)
                r_.notInFileList.push_back(
                    {st->column(1).toString(), st->column(2).toString(), {}});
        }
    }

    store::Connection& c_;
    ImportCheck& r_;
    std::map<std::string, std::unordered_set<long long>> written_;
    std::map<std::string, Rows> old_, new_;
    std::map<std::string, std::set<std::string>> personsOf_;
    std::map<std::string, std::string> fileNumbers_, oldNames_;
};

// "20261120" as "20.11.2026"; any other text as it stands.
std::string germanDate(const std::string& d) {
    if (d.size() != 8 ||
        !std::all_of(d.begin(), d.end(), [](char ch) { return ch >= '0' && ch <= '9'; }))
        return d;
    return d.substr(6, 2) + "." + d.substr(4, 2) + "." + d.substr(0, 4);
}

std::vector<std::string> markedMunicipalities(core::Globals& g) {
    std::vector<std::string> marked;
    auto rs =
        g.stores.db_org.OpenRecordset("SELECT [gem-kz] FROM aktuelleGemeinde WHERE markiert <> 0");
    for (long i = 0; i < rs.RecordCount(); ++i) marked.push_back(rs.rowAt(i)[0].toString());
    return marked;
}

// Where an entry points, as the log's two location lines would name it.
std::string where(const core::LogState::LoggedEntry& e) {
    std::string location = e.location;
    if (location == "Fehlerortung: ") location.clear();
    std::string w = location;
    if (!e.locationValue.empty())
        w += location.empty() || location.back() == ' ' ? e.locationValue
                                                        : " (" + e.locationValue + ")";
    return w.empty() ? e.procedure + ": " : w + ": ";
}

// What the dry run itself tells: the head, the businesses read, those that replace a stored
// state, the notifications of removal and the municipalities.
class CheckListener final : public ImportListener {
  public:
    CheckListener(core::Globals& g, ImportCheck& report) : g_(g), r_(report) {}

    void headRead(const std::string& head) override {
        if (headValue(head, "struktur", r_.struktur)) r_.struktur = text::trimBlanks(r_.struktur);
        if (headValue(head, "tml-version", r_.version)) r_.version = text::trimBlanks(r_.version);
        headValue(head, "ersteller", r_.ersteller);
        headValue(head, "erstelldatum", r_.erstelldatum);
        if (text::upperAscii(r_.struktur) != text::upperAscii(g_.settings.datenart_wert))
            r_.warnings.push_back("Die Datei enthält Daten der Art ''" +
                                  text::upperAscii(r_.struktur) +
                                  "'', die aktive Datenbank ist für die Daten-Art ''" +
                                  text::upperAscii(g_.settings.datenart_wert) + "'' angelegt.");
        if (const double f = versionNumber(r_.version); f != kProgramTmlVersion)
            r_.warnings.push_back(f > kProgramTmlVersion
                                      ? "Die Datei ist neuer als das Programm (Version " +
                                            r_.version + ")."
                                      : "Die Datei hat eine ältere Version (" + r_.version + ").");
    }
    void blockRead(store::Connection*, const ImportBlock& block) override {
        for (size_t i = 0; i < block.read; ++i) {
            removals_ += block.elements[i].removals;
            for (const auto& kz : block.elements[i].municipalities) municipalities_.insert(kz);
        }
        replacing_ += block.replaced;
    }
    void blocksDone(store::Connection*, long records) override {
        r_.businesses = records;
        r_.replacing = replacing_;
        r_.removals = removals_;
        for (const auto& kz : municipalities_) r_.municipalities.push_back(kz);
    }

  private:
    core::Globals& g_;
    ImportCheck& r_;
    long replacing_ = 0, removals_ = 0;
    std::unordered_set<std::string> municipalities_;
};

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
    if (!g.stores.db_daten.isSet()) {
        report.warnings.push_back("Die Datenbank ''" + g.settings.db_pfad_aktuell +
                                  "'' ist nicht geöffnet.");
        return ImportOutcome::StoreFailed;
    }
    // Held here, the connection and its transaction outlive the handles the import lets go of.
    const std::shared_ptr<store::Connection> c = g.stores.db_daten.connection();
    std::vector<core::LogState::LoggedEntry> entries;
    const bool hadErrors = g.log.fehler_vorhanden;
    ImportOutcome outcome = ImportOutcome::Failed;
    c->beginBatch();
    try {
        countChanges(*c);
        g.log.logCapture = &entries;
        CheckListener listener(g, report);
        ImportListener* const listeners[] = {&listener};
        StartViewScreen screen(g);
        outcome = runImport(g, path, screen, listeners, true);
        auto st =
            c->prepare("SELECT tabelle, geschrieben, geloescht FROM tolma_pruefung ORDER BY nr");
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
        Comparison(*c, report).run();
    } catch (const std::exception& e) {
        report.warnings.push_back(std::string("Die Prüfung wurde abgebrochen: ") + e.what());
        outcome = ImportOutcome::Failed;
    }
    g.log.logCapture = nullptr;
    c->rollbackBatch();
    g.log.fehler_vorhanden = hadErrors;
    g.log.storeFault.clear();
    core::DB_Load(g);  // handles read the store as it stands again
    report.logEntries = std::move(entries);

    if (g.settings.filter_aktiv_flag != 0) {
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
    auto list = [](std::string& t, const std::vector<ImportCheck::Business>& businesses,
                   long count) {
        for (const auto& b : businesses) {
            t += "      " + b.betrNr + "  " + b.name + "\n";
            for (const auto& d : b.differences) t += "          " + d + "\n";
        }
        if (count > static_cast<long>(businesses.size()))
            t += "      ... und " + std::to_string(count - static_cast<long>(businesses.size())) +
                 " weitere\n";
    };
    std::string t =
        "Prüfung der Transferdatei " + std::filesystem::path(path).filename().string() + "\n\n";
    t += "Kopf der Datei\n";
    t += "  Datenart:     " + r.struktur + "\n";
    t += "  Version:      " + r.version + "\n";
    t += "  Ersteller:    " + r.ersteller + "\n";
    t += "  Erstelldatum: " + germanDate(text::trimBlanks(r.erstelldatum)) + "\n\n";
    t += "Betriebe in der Datei: " + std::to_string(r.businesses) + "\n";
    t += "  neu im Bestand: " + std::to_string(r.added) + "\n";
    list(t, r.addedList, r.added);
    t += "  ersetzen einen gespeicherten Stand mit anderen Daten: " + std::to_string(r.changed) +
         "\n";
    list(t, r.changedList, r.changed);
    t += "  ersetzen einen gespeicherten Stand mit gleichen Daten: " + std::to_string(r.unchanged) +
         "\n";
    t += "  darin gemeldete Abmeldungen (Meldeart 03): " + std::to_string(r.removals) + "\n\n";
    t +=
        "Betriebe im Bestand, die nicht in der Datei stehen: " + std::to_string(r.notInFile) + "\n";
    if (r.notInFile > 0) t += "  (sie bleiben beim Einlesen unverändert gespeichert)\n";
    list(t, r.notInFileList, r.notInFile);
    t += "\nPersonen: " + std::to_string(r.personsNew) + " neu, " +
         std::to_string(r.personsReplaced) + " ersetzt\n\n";
    t += "Zeilen je Tabelle (geschrieben / gelöscht)\n";
    for (const auto& c : r.tables)
        if (c.written || c.deleted)
            t += "  " + headingOf(c.table) + ": " + std::to_string(c.written) + " / " +
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
