#include "core/menu.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>

#include "core/files.h"
#include "model/values.h"
#include "text/text.h"

namespace tolma::core {

void A_Fenster_schliessen(Globals& g) {
    struct Entry {
        bool MenuMarks::*mark;
        const char* form;  // empty: the function has no window
    };
    static const Entry order[] = {
        {&MenuMarks::menue_suchen_person, "Frm_Auswahl_Pers"},
        {&MenuMarks::menue_suchen_betrieb, "Frm_Auswahl_Betr"},
        {&MenuMarks::menue_info, "Frm_Info"},
        {&MenuMarks::menue_extras_optionen, "Frm_Optionen"},
        {&MenuMarks::menue_import_datenbank, ""},
        {&MenuMarks::menue_export_textdatei, "Frm_Verwaltungsblock"},
    };
    for (const auto& e : order) {
        if (!(g.forms.marks.*(e.mark))) continue;
        if (*e.form) g.shell->unloadForm(e.form);
        g.forms.marks.*(e.mark) = false;
    }
}

namespace {

void runImport(Globals& g, const ImportRun& Upd_1_Start, const std::string& file) {
    g.forms.startView.MDIForm1Enabled = false;
    g.shell->refreshView();
    if (Upd_1_Start) Upd_1_Start(g, file);
    g.forms.startView.MDIForm1Enabled = true;
}

}  // namespace

void importChosenFile(Globals& g, const ImportRun& Upd_1_Start, const std::string& file) {
    if (g.forms.marks.menue_import_datenbank) return;  // an import runs
    A_Fenster_schliessen(g);
    g.forms.marks.menue_import_datenbank = true;
    runImport(g, Upd_1_Start, file);
    g.shell->refreshView();
}

void menue_import_datenbank(Globals& g, const ImportRun& Upd_1_Start) {
    if (g.forms.marks.menue_import_datenbank) return;  // an import runs
    A_Fenster_schliessen(g);
    g.forms.marks.menue_import_datenbank = true;
    const std::string file =
        g.dialogs
            ? g.dialogs->chooseFile(g.paths.pfad_dat,
                                    "Alle Dateien (*.*)|*.*| Update-Dateien (*.tml)|*.tml|", 2)
            : "";
    if (!text::trimBlanks(file).empty()) {
        runImport(g, Upd_1_Start, file);
    } else {
        showMessage(g, "Es wurde keine Update-Datei ausgewählt!", msg::vbInformation,
                    "Auswahl einer Update-Datei!");
        g.forms.marks.menue_import_datenbank = false;
    }
    // The file dialog may have changed the current directory.
    std::error_code ec;
    std::filesystem::current_path(g.paths.pfad_app, ec);
    g.shell->refreshView();
}

void menue_Ums_bearbeiten(Globals& g) {
    if (!text::trimBlanks(Dir(g.settings.umsetzdatei_pfad)).empty()) {
        if (g.dialogs) g.dialogs->openInViewer(g.settings.umsetzdatei_pfad);
        return;
    }
    if (showMessage(g, "\nEs wurde keine Umsetz-Datei ausgewählt!\n\nWollen Sie eine auswählen?\n",
                    msg::vbQuestionYesNo, g.lastMessage.msg_titel) == msg::vbYes)
        g.shell->showForm("Frm_Optionen");
}

void menue_DB_auswahl_export(Globals& g) {
    if (!text::trimBlanks(g.settings.exportdatenbank_pfad).empty() &&
        showMessage(g,
                    "\nExport-Datenbank = " + g.settings.exportdatenbank_pfad +
                        "\n\nWollen Sie eine andere Datenbank auswählen?\n",
                    msg::vbQuestionYesNo, "Auswahl der Export-Datenbank!") != msg::vbYes)
        return;
    const std::string file =
        g.dialogs ? g.dialogs->chooseFile(g.paths.pfad_app,
                                          "Alle Dateien (*.*)|*.*|mdb-Dateien (*.mdb)|*.mdb|", 2)
                  : "";
    if (text::trimBlanks(file).empty()) return;
    g.settings.exportdatenbank_pfad = file;
    auto& rs = g.stores.rs_optionen;
    if (rs.RecordCount() >= 1) {
        rs.MoveFirst();
        rs.Edit();
    } else {
        rs.AddNew();
    }
    rs.Fields("exportdatenbank").setValue(file);
    rs.Update();
}

std::filesystem::path instanceLockFile() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::filesystem::path dir =
        runtime && *runtime ? runtime : std::filesystem::temp_directory_path();
    return dir / ("tolma-" + std::to_string(::getuid()) + ".lock");
}

bool App_PrevInstance(const std::filesystem::path& lockFile) {
    // The lock is held by a file that stays open until the process ends; asking again in the
    // same process finds it held by this very instance.
    static std::mutex mutex;
    static std::map<std::filesystem::path, int> held;
    std::lock_guard lock(mutex);
    if (held.count(lockFile)) return false;
    const int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;  // without a lock file, no second copy can be told apart
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        held[lockFile] = fd;
        return false;
    }
    ::close(fd);
    return true;
}

void MDIForm_Load(Globals& g, bool prevInstance) {
    g.log.akt_schritt = 0;
    // Whatever the user answers, the start goes on: the exclusive settings store stops a
    // second copy, if anything does.
    if (prevInstance)
        showMessage(g,
                    "Eine Instanz dieses Programmes läuft bereits,\nbitte beenden Sie alle "
                    "Instanzen im Hintergrund "
                    "bevor Sie ''OK'' klicken!\n\n",
                    msg::vbCritical, "Programmstart!");
}

}  // namespace tolma::core
