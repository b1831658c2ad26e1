#include "core/start.h"

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "core/menu.h"
#include "core/settings.h"
#include "model/default_stores.h"

namespace tolma::core {
namespace {

// Makes a directory unless one of that name exists in any case; returns its path with "/".
std::string ensureDirectory(const std::string& home, const char* name) {
    if (auto found = findIgnoringCase(home, name); found && std::filesystem::is_directory(*found))
        return found->string() + "/";
    createPrivateDirectory(home + name);
    return home + name + "/";
}

void copyIfMissing(const Globals& g, const char* name) {
    if (findIgnoringCase(g.paths.pfad_db, name)) return;  // an existing store is never overwritten
    // A copy cut short (a full disk) must never be taken for the store at the next start.
    copyFileAtomically(g.paths.dataDir / name, g.paths.pfad_db + name);
}

}  // namespace

void showStartView(StartViewState& v) {
    v.alignImage2WithTabs = true;
    v.Image2Visible = true;
    v.SSTab1Visible = false;
    v.Frame_UeberschriftVisible = false;
    v.Frame_AnzahlVisible = false;
    v.Image1Visible = true;
    v.shown = true;
    v.Frame_AnzahlVisible = false;
}

void A_Start(Globals& g, const std::filesystem::path& home, const StartHooks& hooks) {
    g.log.fehler_vorhanden = false;
    g.log.akt_schritt = 0;
    if (g.data) g.data->installRepositionHandlers(g);
    try {
        std::string app = std::filesystem::absolute(home).lexically_normal().string();
        if (app.empty() || app.back() != '/') app += '/';
        g.paths.pfad_app = app;
        g.paths.pfad_dat = app + "Dat/";
        g.paths.pfad_log = app + "Log/";
        g.paths.pfad_db = app + "DB/";
        // Until the directories stand, a failure has no log to go to.
        if (!std::filesystem::is_directory(app)) {
            std::filesystem::create_directories(
                std::filesystem::path(app).parent_path().parent_path());
            createPrivateDirectory(app);
        }
        g.paths.pfad_log = ensureDirectory(app, "Log");
        g.paths.pfad_dat = ensureDirectory(app, "Dat");
        g.paths.pfad_db = ensureDirectory(app, "DB");
        copyIfMissing(g, model::kSettingsStoreFile);
        copyIfMissing(g, model::kBusinessStoreFile);
        copyIfMissing(g, model::kNotificationStoreFile);
        g.stores.db_passwort = "kelpa";
        g.stores.db_org = store::Database::OpenDatabase(settingsStorePath(g.paths), true, false,
                                                        "; pwd=" + g.stores.db_passwort);
        g.stores.rs_optionen = g.stores.db_org.OpenRecordset("Optionen", store::dao::dbOpenDynaset);
        A_org_lesen(g);
        DB_Load(g);
        if (g.paths.pfad_app.find("WoDrex") == std::string::npos && hooks.checkFileAssociation)
            hooks.checkFileAssociation(g);
        showStartView(g.forms.startView);
        if (!g.commandLine.empty()) {
            g.shell->doEvents();
            A_Fenster_schliessen(g);
            g.forms.startView.MDIForm1Enabled = false;
            g.forms.marks.menue_import_datenbank = true;
            if (hooks.Upd_1_Start) hooks.Upd_1_Start(g, g.commandLine);
            g.forms.startView.MDIForm1Enabled = true;
        }
    } catch (const std::exception& e) {
        logTrapped(g, "A_Start", e);
    }
}

}  // namespace tolma::core
