#include "options/options_form.h"

#include <filesystem>

#include "browse/data_controls.h"
#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/files.h"
#include "core/settings.h"
#include "core/store_work.h"
#include "core/version.h"
#include "model/default_stores.h"
#include "model/values.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "store/server_address.h"
#include "store/server_session.h"
#include "store/store_copy.h"
#include "text/text.h"

namespace tolma::options {
namespace {

const char* kPfadTitel = "Änderung des Datenbankpfades!";

void showStartPicture(core::Globals& g) {
    auto& v = g.forms.startView;
    v.Image2Visible = true;
    v.SSTab1Visible = false;
    v.Frame_AnzahlVisible = false;
    v.Frame_UeberschriftVisible = false;
    g.shell->refreshView();
}

// The municipalities of a query into the list from position 0 on; `select` marks entries by
// their markiert field, else leaves the selection alone or clears it.
enum class Selection { FromMarks, Keep, Clear };
void fillList(OptionsForm& form, store::Recordset& rs, Selection selection) {
    size_t counter = 0;
    if (rs.RecordCount() == 0) return;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext(), ++counter) {
        form.setEntry(counter, rs.Fields("gem-kz").Value().toString() + "  " +
                                   rs.Fields("gem-name").Value().toString());
        if (selection == Selection::FromMarks && rs.Fields("markiert").Value().toBool())
            form.selected[counter] = true;
        if (selection == Selection::Clear) form.selected[counter] = false;
    }
}

void setFilterControls(OptionsForm& form, bool on) {
    form.Check1 = on;
    form.filterControlsEnabled = on;
}

}  // namespace

void OptionsForm::setEntry(size_t position, const std::string& entry) {
    if (position >= List1.size()) {
        List1.resize(position + 1);
        selected.resize(position + 1, false);
    }
    List1[position] = entry;
}

void Form_Activate(core::Globals& g, OptionsForm& form) {
    core::A_org_lesen(g);
    auto& c = browse::dataControls(g).DATA_GEMEINDE;
    c.DatabaseName = g.stores.db_name_org;
    c.RecordSource = "aktuelleGemeinde";
    c.RecordSource = "SELECT ALL * From aktuelleGemeinde ORDER BY [gem-kz];";
    c.Refresh();
    // The list is not cleared first: entries are written by position.
    fillList(form, c.Recordset(), Selection::FromMarks);
    setFilterControls(form, g.settings.filter_aktiv_flag == -1);

    const bool betrieb = g.settings.datenart_wert == core::kBetriebsbezogen;
    form.frameEnabled[0] = betrieb;
    form.frameEnabled[1] = !betrieb;
    g.settings.caption = betrieb ? core::kCaptionBetrieb : core::kCaptionMeldung;
    g.forms.optionen.Text6[0] = g.settings.db_betr_pfad;
    g.forms.optionen.Text6[1] = g.settings.db_meld_pfad;
}

namespace {

// The path takes the place of the old one in the settings; the open store follows it.
void usePath(core::Globals& g, OptionsForm& form, int index, const std::string& path) {
    (void)form;
    g.forms.optionen.Text6[index == 0 ? 0 : 1] = path;
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    g.settings.db_pfad_aktuell = path;
    core::A_org_update(g);
    core::DB_Load(g);
    core::showMessage(
        g, "Der Datenbankpfad wurde geändert!\nNeuer Pfad: ''" + g.stores.db_name_daten + "''",
        core::msg::vbInformation, "");
    core::showMessage(g, "Der Datenbankpfad wurde geändert!", core::msg::vbOKOnly, kPfadTitel);
}

// A store on a server is emptied in one statement, every table of it, the record of the runs and
// the search index too: as a file replaced by the empty one. Either all goes or nothing.
void emptyServerStore(const std::string& path) {
    auto c = store::Connection::open(path, store::Connection::Kind::Shared);
    store::emptyServerStore(*c);
}

// The empty store comes from the program's own copies; without one the old file stays.
void replaceWithEmptyFile(core::Globals& g) {
    const std::string empty = g.settings.db_kurzname + ".mdb";
    const auto found = core::findIgnoringCase(g.paths.dataDir, empty);
    if (!found)
        throw std::filesystem::filesystem_error(
            "FileCopy", g.paths.dataDir / empty,
            std::make_error_code(std::errc::no_such_file_or_directory));
    // Copied beside the store first and renamed over it: there is no moment without a store.
    const std::filesystem::path target = g.stores.db_name_daten;
    std::error_code ec;
    const auto rights = std::filesystem::status(target, ec).permissions();
    core::copyFileAtomically(*found, target);
    std::filesystem::permissions(target, rights, ec);  // the owner's rights stay
    for (const char* side : {"-wal", "-shm"}) std::filesystem::remove(target.string() + side, ec);
    // The search index of the old store goes with it: it holds names and addresses.
    const std::string index = store::Connection::indexFileOf(target).string();
    for (const char* side : {"", "-wal", "-shm"}) std::filesystem::remove(index + side, ec);
}

}  // namespace

void Command11_Click(core::Globals& g, OptionsForm& form, int index) {
    if (core::showMessage(g,
                          "Stellen sie sicher, daß sich in dem gewünschten Pfad eine entsprechende "
                          "Datenbank befindet!\nWeiter?\n",
                          core::msg::vbQuestionYesNo, kPfadTitel) != core::msg::vbYes)
        return;
    const std::string filter = index == 0 ? "tl_4x_b.mdb|tl_4x_b.mdb|" : "tl_4x_m.mdb|tl_4x_m.mdb|";
    const std::string file = g.dialogs ? g.dialogs->chooseFile(g.paths.pfad_db, filter, 1) : "";
    std::error_code ec;
    if (file.empty() || !std::filesystem::is_regular_file(file, ec)) {
        core::showMessage(g, "Die Datenbank wurde unter diesem Pfad nicht gefunden!",
                          core::msg::vbExclamation, kPfadTitel);
        return;
    }
    usePath(g, form, index, file);
}

bool changeStorePath(core::Globals& g, OptionsForm& form, int index, const std::string& value) {
    const std::string path = text::trimBlanks(value);
    if (path == g.forms.optionen.Text6[index == 0 ? 0 : 1]) return true;
    if (store::isServerText(path) && !store::passwordIn(path).empty()) {
        core::showMessage(g,
                          "Die Verbindungsangabe enthält ein Kennwort. Kennwörter werden nicht in "
                          "den Einstellungen gespeichert: das Programm fragt danach, oder es steht "
                          "in der Datei ~/.pgpass.\n\nDer Datenbankpfad bleibt unverändert.",
                          core::msg::vbExclamation, kPfadTitel);
        return false;
    }
    if (store::isServerText(path)) {
        try {
            try {
                store::checkServerStore(path);
            } catch (const store::DaoError& e) {
                const auto password = core::askServerPassword(g, path, e);
                if (!password) throw;
                store::checkServerStore(path, *password);
            }
        } catch (const std::exception& e) {
            const auto info = core::describeError(e);
            core::A_Error_Log(g, "Frm_Optionen.changeStorePath", info.source,
                              std::to_string(info.number), info.text,
                              "Datenbank: ", store::describeServer(path));
            core::showMessage(g,
                              "Die Datenbank auf dem Datenbankserver kann nicht verwendet "
                              "werden:\n\n" +
                                  info.text + "\n\nDer Datenbankpfad bleibt unverändert.",
                              core::msg::vbCritical, kPfadTitel);
            return false;
        }
    } else {
        std::error_code ec;
        const char* wanted = index == 0 ? model::kBusinessStoreFile : model::kNotificationStoreFile;
        if (path.empty() || !std::filesystem::is_regular_file(path, ec) ||
            text::upperAscii(core::Dir(path)) != text::upperAscii(wanted)) {
            core::showMessage(g,
                              "Die Datenbank wurde unter diesem Pfad nicht gefunden!\n\n"
                              "Erwartet wird eine Datei '" +
                                  std::string(wanted) +
                                  "' oder die Verbindungsangabe eines Datenbankservers "
                                  "(postgresql://rechner/datenbank oder service=NAME).",
                              core::msg::vbExclamation, kPfadTitel);
            return false;
        }
    }
    usePath(g, form, index, path);
    return true;
}

void Command12_Click(core::Globals& g, OptionsForm& form, int index) {
    const std::string title =
        index == 0 ? "Ändern der Daten-Art von ''Betriebsbezogen'' in ''Meldungsbezogen''"
                   : "Ändern der Daten-Art von ''Meldungsbezogen'' in ''Betriebsbezogen''";
    if (core::showMessage(g, "Wollen Sie wirklich die Daten-Art wechseln?\n",
                          core::msg::vbQuestionYesNo, title) == core::msg::vbNo)
        return;
    form.frameEnabled[index == 0 ? 0 : 1] = false;
    if (index == 0) {
        g.settings.datenart_wert = core::kMeldungsbezogen;
        form.frameEnabled[1] = true;
        g.settings.caption = core::kCaptionMeldung;
    } else {
        g.settings.datenart_wert = core::kBetriebsbezogen;
        form.frameEnabled[0] = true;
        g.settings.caption = core::kCaptionBetrieb;
    }
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    core::A_org_update(g);
    core::DB_Load(g);
    core::showMessage(
        g, "Der Daten-Art wurde geändert!\nNeue Daten-Art: ''" + g.settings.datenart_wert + "''",
        core::msg::vbInformation, "");
}

void Command4_Click(core::Globals& g, OptionsForm& form, int index) {
    (void)form, (void)index;
    const char* title = "Datenbank leeren!";
    // The lock is held from before the question to the end: no import may begin meanwhile.
    const core::WorkLeave leave =
        core::askWorkLeave(g, store::StoreWork::Emptying, "Command4_Click", title);
    if (!leave.granted) return;
    if (core::showMessage(
            g,
            std::string("Die Tolma-Access-Datenbank wird gelöscht und durch eine neue ersetzt.\n") +
                "Alle Datensätze gehen dabei verloren, die Datenbankstruktur bleibt erhalten.\n\n" +
                "Wollen Sie die aktuelle Tolma-Access-Datenbank wirklich löschen und durch eine "
                "leere "
                "Datenbank ersetzen?\n",
            core::msg::vbCriticalYesNo, title) != core::msg::vbYes)
        return;
    const std::string path = g.stores.db_name_daten;
    const bool server = store::isServerText(path);
    std::error_code ec;
    if (!server && !std::filesystem::is_regular_file(path, ec)) return;
    core::DB_Schliessen(g);
    core::DB_Binden_loesen(g);
    try {
        if (server)
            emptyServerStore(path);
        else
            replaceWithEmptyFile(g);
    } catch (const std::exception& e) {
        // The handler has no trap of its own: the failure is a run-time error, written to the
        // log and shown as the runtime shows one; the old store stays and is bound again.
        core::logTrapped(g, "Command4_Click", e);
        core::DB_Load(g);
        const auto info = core::describeError(e);
        core::showMessage(g,
                          "Laufzeitfehler '" + std::to_string(info.number) + "':\n\n" + info.text,
                          core::msg::vbCritical, core::kProductName);
        return;
    }
    core::DB_Load(g);
    if (server) core::announceStoreChange(g, store::StoreWork::Emptying);
    core::showMessage(g, "Die Datenbank wurde gelöscht und ersetzt!", core::msg::vbInformation,
                      title);
}

void Command2_Click(core::Globals& g, OptionsForm& form, int index) {
    (void)form;
    const std::string path = core::errorLogPath(g.paths);
    std::error_code ec;
    const bool exists = std::filesystem::is_regular_file(path, ec);
    if (index == 0) {
        if (exists) {
            if (g.dialogs) g.dialogs->openInViewer(path);
        } else {
            core::showMessage(g, "Es wurde keine Error-Log-Datei gefunden!",
                              core::msg::vbInformation, "Anzeigen der Error-Log-Datei");
        }
        return;
    }
    if (exists) {
        std::filesystem::remove(path, ec);
        core::showMessage(g, "Die Error-Log-Datei wurde gelöscht!", core::msg::vbInformation,
                          "Löschen der Error-Log-Datei");
    } else {
        core::showMessage(g, "Es wurde keine Error-Log-Datei gefunden!", core::msg::vbInformation,
                          "Löschen der Error-Log-Datei");
    }
}

void Check1_Click(core::Globals& g, OptionsForm& form, bool checked) {
    setFilterControls(form, checked);
    g.settings.filter_aktiv_flag = checked ? -1 : 0;
}

void Command6_Click(core::Globals& g, OptionsForm& form) {
    if (core::showMessage(g,
                          "Dieser Vorgang kann einige Minuten dauern,\nwollen Sie wirklich alle "
                          "Gemeinden anzeigen lassen?\n",
                          core::msg::vbQuestionYesNo,
                          "Anzeigen aller Gemeinden!") != core::msg::vbYes)
        return;
    form.MousePointer = 11;
    auto& c = browse::dataControls(g).DATA_GEMEINDE;
    c.DatabaseName = g.stores.db_name_org;
    c.RecordSource = "gemeindekennzahlen";
    c.Refresh();
    // No second Refresh: the whole table stays in its stored order.
    c.RecordSource = "SELECT ALL * From gemeindekennzahlen ORDER BY [gem-kz];";
    // Entries are overwritten by position; the selections stay on their positions.
    fillList(form, c.Recordset(), Selection::Keep);
    form.MousePointer = 0;
}

void Command7_Click(core::Globals&, OptionsForm& form) {
    form.selected.assign(form.List1.size(), true);
}

void Command9_Click(core::Globals& g, OptionsForm& form) {
    if (core::showMessage(g, "Wollen Sie wirklich alle Markierungen löschen?\n",
                          core::msg::vbQuestionYesNo,
                          "löschen aller Markierungen!") == core::msg::vbYes)
        form.selected.assign(form.List1.size(), false);
}

void Command8_Click(core::Globals& g, OptionsForm& form) {
    form.MousePointer = 11;
    try {
        auto& c = browse::dataControls(g).DATA_GEMEINDE;
        c.DatabaseName = g.stores.db_name_org;
        c.RecordSource = "SELECT DISTINCTROW * From gemeindekennzahlen where [gem-kz] like " +
                         store::jet::quote(form.Text7 + "*") + " ORDER BY [gem-kz];";
        c.Refresh();
        if (c.Recordset().RecordCount() == 0) {
            core::showMessage(g, "Kennzahl wurde nicht gefunden!", core::msg::vbInformation,
                              "Auswahl Landratsamt-Kennzahl!");
        } else {
            form.List1.clear();
            form.selected.clear();
            fillList(form, c.Recordset(), Selection::Clear);
        }
    } catch (const std::exception& e) {
        core::logTrapped(g, "Frm_Optionen.Command8_Click", e);
    }
    form.MousePointer = 0;
}

bool Command3_Click(core::Globals& g, OptionsForm& form, int index) {
    form.MousePointer = 11;
    try {
        auto& c = browse::dataControls(g).DATA_GEMEINDE;
        c.DatabaseName = g.stores.db_name_org;
        c.RecordSource = "aktuelleGemeinde";
        c.Refresh();
        auto& rs = c.Recordset();
        if (rs.RecordCount() > 0)
            for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) rs.Delete();
        for (size_t i = 0; i < form.List1.size(); ++i) {
            if (!form.selected[i]) continue;
            // The key is assumed to be 8 characters wide.
            const std::string& entry = form.List1[i];
            rs.AddNew();
            rs.Fields("gem-kz").setValue(model::firstCharacters(entry, 8));
            rs.Fields("gem-name").setValue(text::trimBlanks(model::mid(entry, 9, 1 << 20)));
            rs.Fields("markiert").setValue(store::Variant::boolean(true));
            rs.Update();
        }
        core::A_org_update(g);
        showStartPicture(g);
    } catch (const std::exception& e) {
        core::A_Error_Log(g, "Frm_Optionen.Command3_Click", core::describeError(e).source,
                          std::to_string(core::describeError(e).number),
                          core::describeError(e).text, "ClickIndex: ", std::to_string(index));
        form.MousePointer = 0;
        return false;
    }
    form.MousePointer = 0;
    return true;
}

void Form_Unload(core::Globals& g) {
    g.forms.marks.menue_extras_optionen = false;
}

}  // namespace tolma::options
