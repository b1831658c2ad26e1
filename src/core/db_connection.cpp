#include "core/db_connection.h"

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <vector>

#include "core/error_log.h"
#include "core/files.h"
#include "model/default_stores.h"
#include "model/schema.h"
#include "store/connection.h"
#include "store/server_address.h"
#include "store/server_session.h"

namespace tolma::core {
namespace {

struct HandleDef {
    store::Recordset OpenStores::*handle;
    const char* table;
    bool settings;
};

// The thirteen long-lived handles, in the order they are opened.
const HandleDef kHandles[] = {
    {&OpenStores::rs_aktuelleGemeinde, "aktuelleGemeinde", true},
    {&OpenStores::rs_optionen, "Optionen", true},
    {&OpenStores::rs_betrieb, "betrieb", false},
    {&OpenStores::rs_adresse, "betrieb_adresse", false},
    {&OpenStores::rs_meldgrund, "betrieb_meldgrundsonst", false},
    {&OpenStores::rs_erlaubnis, "betrieb_erlaubnis", false},
    {&OpenStores::rs_handwerkskarte, "betrieb_handwerkskarte", false},
    {&OpenStores::rs_taetigkeit, "betrieb_taetigkeit", false},
    {&OpenStores::rs_beziehung, "beziehung_betrieb_person", false},
    {&OpenStores::rs_person, "person", false},
    {&OpenStores::rs_person_erlaubnis, "person_erlaubnis", false},
    {&OpenStores::rs_person_handwerkskarte, "person_handwerkskarte", false},
    {&OpenStores::rs_person_staatsang, "person_staatsang", false},
};

void openHandle(Globals& g, const HandleDef& h) {
    g.stores.*(h.handle) = (h.settings ? g.stores.db_org : g.stores.db_daten)
                               .OpenRecordset(h.table, store::dao::dbOpenDynaset);
}

// The settings' handles stay open while the data store is let go.
void closeDataHandles(Globals& g) {
    for (const auto& h : kHandles)
        if (!h.settings) (g.stores.*(h.handle)).Close();
}

}  // namespace

store::Recordset OpenStores::*handleOf(std::string_view table) {
    for (const HandleDef& h : kHandles)
        if (table == h.table) return h.handle;
    return nullptr;
}

namespace {

// A store's free pages under a fifth of its size: rewriting it would change nothing a clerk
// could see.
bool worthCompacting(store::Connection& c) {
    auto st = c.prepare("PRAGMA freelist_count");
    st->step();
    const long long free = st->column(0).toInteger();
    auto pc = c.prepare("PRAGMA page_count");
    pc->step();
    const long long pages = pc->column(0).toInteger();
    return pages > 0 && free * 5 >= pages;
}

bool worthCompacting(const std::string& path) {
    try {
        return worthCompacting(*store::Connection::open(path, store::Connection::Kind::Shared));
    } catch (const std::exception&) {
        return true;  // let the compaction itself report what is wrong
    }
}

}  // namespace

std::string settingsStorePath(const Directories& paths) {
    if (auto found = findIgnoringCase(paths.pfad_db, model::kSettingsStoreFile))
        return found->string();
    return paths.pfad_db + model::kSettingsStoreFile;
}

namespace {

// Opens the data store; a server that wants a password no one gave is asked for it once, and
// the password is kept for this run of the program only, never written anywhere.
store::Database openDataStore(Globals& g, const std::string& path) {
    try {
        return store::Database::OpenDatabase(path);
    } catch (const store::DaoError& e) {
        if (!askServerPassword(g, path, e)) throw;
        return store::Database::OpenDatabase(path);
    }
}

}  // namespace

std::optional<std::string> askServerPassword(Globals& g, const std::string& path,
                                             const store::DaoError& e) {
    if (!store::needsPassword(e) || !g.dialogs) return std::nullopt;
    auto password = g.dialogs->askPassword("Kennwort für den Datenbankserver " +
                                           store::describeServer(path) + ":");
    if (password) store::Connection::setServerPassword(path, *password);
    return password;
}

void DB_Load(Globals& g) {
    g.log.akt_schritt = 0;
    try {
        g.stores.db_name_org = settingsStorePath(g.paths);
        g.stores.db_org = store::Database::OpenDatabase(g.stores.db_name_org, true, false,
                                                        "; pwd=" + g.stores.db_passwort);
        g.stores.db_name_daten = g.settings.db_pfad_aktuell;
        g.stores.db_daten = openDataStore(g, g.stores.db_name_daten);
        // Not while an import runs: it leaves them out until its end. A server store has them
        // from its set-up.
        if (!g.forms.marks.menue_import_datenbank && !g.stores.listIndexesLeftOut &&
            !g.stores.db_daten.connection()->isServer())
            ensureListIndexes(g);
        DB_Handles_oeffnen(g);
        DB_Binden(g);
    } catch (const std::exception& e) {
        logTrapped(g, "DB_Load", e);
        if (store::isServerText(g.stores.db_name_daten)) tellServerUnusable(g, e);
    }
}

void tellServerUnusable(Globals& g, const std::exception& e) {
    showMessage(g,
                "Die Datenbank auf dem Datenbankserver kann nicht verwendet werden:\n\n" +
                    describeError(e).text +
                    "\n\nDas Programm arbeitet ohne geöffnete Datenbank weiter. Die "
                    "Verbindungsangabe bleibt in den Optionen eingetragen.",
                msg::vbCritical, "Datenbank-Fehler!");
}

namespace {

template <class Step>
void forEachListIndex(Globals& g, Step step) {
    if (!g.stores.db_daten.isSet()) return;
    store::Connection& c = *g.stores.db_daten.connection();
    for (const auto& table : model::dataTables())
        for (const auto& index : model::prefixIndexesOf(table)) {
            try {
                step(c, table.name, index);
            } catch (const std::exception&) {
                // a read-only or held store, or a table it lacks: the lists search without
            }
        }
}

}  // namespace

void ensureListIndexes(Globals& g) {
    // A server store has them from its set-up, and keeps them.
    if (!g.stores.db_daten.isSet() || g.stores.db_daten.connection()->isServer()) return;
    // The indexes the store lacks: an older build or a large import left them out.
    std::vector<std::string> missing;
    forEachListIndex(
        g, [&](store::Connection& c, const std::string& table, const model::PrefixIndex& index) {
            // The index by lower() that an older build kept in its place serves no list now.
            if (!index.retired.empty())
                c.execute("DROP INDEX IF EXISTS main.[" + index.retired + "]");
            auto st = c.prepare(
                "SELECT count(*) FROM main.sqlite_master WHERE (type = 'index' AND name = ?1) OR "
                "(type = 'table' AND name = ?2)");
            st->bind(1, store::Variant(index.name));
            st->bind(2, store::Variant(table));
            st->step();
            if (st->column(0).toInteger() == 1) missing.push_back(index.create);  // only the table
        });
    if (missing.empty()) return;
    store::Connection& c = *g.stores.db_daten.connection();
    // Over a large store each takes a while: the clerk sees what the program does meanwhile.
    StartViewState& view = g.forms.startView;
    const StartViewState before = view;
    view.MousePointer = 11;
    view.ProgressBar1Max = static_cast<int>(missing.size());
    // An index built over a million rows sorts them in memory up to the cache's size, on top
    // of the cache itself: a smaller cache while they are built keeps the program's memory low.
    c.execute("PRAGMA cache_size = -16384");
    for (size_t i = 0; i < missing.size(); ++i) {
        view.Label2 = "Die Auswahllisten werden vorbereitet (" + std::to_string(i + 1) + " von " +
                      std::to_string(missing.size()) + ") ...";
        view.ProgressBar1Value = static_cast<int>(i);
        g.shell->refreshView();
        g.shell->doEvents();
        try {
            c.execute(missing[i]);
        } catch (const std::exception&) {
            // a read-only or held store: the lists search without
        }
    }
    c.execute("PRAGMA cache_size = -65536");
    view.Label2 = before.Label2;
    view.MousePointer = before.MousePointer;
    view.ProgressBar1Max = before.ProgressBar1Max;
    view.ProgressBar1Value = before.ProgressBar1Value;
    g.shell->refreshView();
}

void dropListIndexes(Globals& g) {
    if (!g.stores.db_daten.isSet() || g.stores.db_daten.connection()->isServer()) return;
    // A cursor that stands on a row holds its table: no index of it could go. The views stay
    // unbound until the import that leaves the indexes out has ended.
    DB_Binden_loesen(g);
    closeDataHandles(g);
    forEachListIndex(g,
                     [](store::Connection& c, const std::string&, const model::PrefixIndex& index) {
                         c.execute("DROP INDEX IF EXISTS main.[" + index.name + "]");
                         if (!index.retired.empty())
                             c.execute("DROP INDEX IF EXISTS main.[" + index.retired + "]");
                     });
    for (const auto& h : kHandles)
        if (!h.settings) openHandle(g, h);
}

void DB_Handles_oeffnen(Globals& g) {
    for (const auto& h : kHandles) openHandle(g, h);
}

void DB_Binden(Globals& g) {
    if (g.data) g.data->DB_Binden(g);
}

void DB_Schliessen(Globals& g) {
    closeDataHandles(g);
    g.stores.db_daten.Close();
}

void DB_Binden_loesen(Globals& g) {
    if (g.data) g.data->DB_Binden_loesen(g);
}

void DB_Komprimieren(Globals& g) {
    g.log.akt_schritt = 0;
    if (store::isServerText(g.settings.db_pfad_aktuell)) return;  // nothing to do, nothing to say
    try {
        DB_Schliessen(g);
        DB_Binden_loesen(g);
        A_Kompress(g, g.settings.db_pfad_aktuell, "");
        DB_Load(g);
    } catch (const std::exception& e) {
        logTrapped(g, "DB_Load", e);  // this routine logs under DB_Load's name
    }
}

bool compactionWorthIt(Globals& g) {
    if (!g.stores.db_daten.isSet() || g.stores.db_daten.connection()->isServer()) return false;
    try {
        return worthCompacting(*g.stores.db_daten.connection());
    } catch (const std::exception&) {
        return true;  // let the compaction itself report what is wrong
    }
}

void reopenAfterFailedChange(Globals& g, const std::string& procedure, const std::exception& e) {
    DB_Schliessen(g);
    DB_Binden_loesen(g);
    logTrapped(g, procedure, e);
    DB_Load(g);
}

int A_Kompress(Globals& g, const std::string& path, const std::string& /*sourceConnect*/) {
    g.log.akt_schritt = 0;
    // The server looks after its own files.
    if (store::isServerText(path)) return 1;
    const std::filesystem::path temp = g.paths.pfad_app + "DATENBANK.NEU";
    try {
        if (!Dir(temp.string()).empty()) std::filesystem::remove(temp);
        if (!store::Connection::isOpen(path) && !worthCompacting(path)) return 1;
        store::CompactDatabase(path, temp);
        const std::filesystem::path target(path);
        // The rewritten store keeps the rights its owner gave the old one.
        std::error_code ec;
        const auto rights = std::filesystem::status(target, ec).permissions();
        if (!ec) std::filesystem::permissions(temp, rights, ec);
        // The copy replaces the store in one step: there is no moment without a store.
        std::filesystem::rename(temp, target, ec);
        if (ec == std::errc::cross_device_link) {
            copyFileAtomically(temp, target);
            std::filesystem::permissions(target, rights, ec);
            std::filesystem::remove(temp);
        } else if (ec) {
            throw std::filesystem::filesystem_error("rename", temp, target, ec);
        }
        syncDirectory(target.parent_path());
        return 1;
    } catch (const std::exception& e) {
        std::error_code ec;
        std::filesystem::remove(temp, ec);  // a cut copy only takes the space the disk lacks
        const ErrorInfo info = describeError(e);
        A_Error_Log(g, "A_Kompress", info.source, std::to_string(info.number), info.text,
                    "Fehlerortung: ", "Fehler bei Komprimierung von '" + path + "'");
        return 0;
    }
}

}  // namespace tolma::core
