#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/dialogs.h"
#include "core/shell.h"
#include "store/database.h"

namespace tolma::core {

inline constexpr const char* kCaptionBetrieb = "TOLMA_4x_Access (betriebsbezogene Daten)";
inline constexpr const char* kCaptionMeldung = "TOLMA_4x_Access (meldungsbezogene Daten)";
inline constexpr const char* kBetriebsbezogen = "BETRIEBSBEZOGEN";
inline constexpr const char* kMeldungsbezogen = "MELDUNGSBEZOGEN";

// The check marks of the menu entries: a marked entry's function is open or running.
struct MenuMarks {
    bool menue_suchen_person = false;
    bool menue_suchen_betrieb = false;
    bool menue_info = false;
    bool menue_extras_optionen = false;
    bool menue_import_datenbank = false;
    bool menue_export_textdatei = false;
};

// What Frm_Start shows, as far as other routines read or change it.
struct StartViewState {
    bool Image1Visible = false;
    bool Image2Visible = false;
    bool SSTab1Visible = true;
    bool Frame_UeberschriftVisible = true;
    bool Frame_AnzahlVisible = true;
    bool shown = false;
    bool alignImage2WithTabs = false;  // Image2 takes the left and width of SSTab1
    int SSTab1Tab = 0;
    std::string Label2 = "Anzeige von Gewerbedaten!";
    bool MDIForm1Enabled = true;
    int ProgressBar1Max = 1000;
    int ProgressBar1Value = 0;
    int MousePointer = 0;  // 11 the hourglass
    bool Command3Visible = false;
    bool DATA_PERSVisible = false;
    // The boxes that code fills: decoded codes and the function of a person.
    std::string Text_Korrekturmeldung;
    std::string Text_Schwerpunkt = "Schwerpunkt";
    std::string Text_Ummeldung = "Ummeldung";
    std::string TextPers_8;
    std::string Text_136;  // bound to gem-name of DATA_ORG; DB_Load_DATA copies into it once
};

// The path boxes of Frm_Optionen that A_org_update reads.
struct OptionsFormState {
    std::string Text6[2];
};

// The old forms' state that routines outside the forms read or change.
struct FormsState {
    MenuMarks marks;
    StartViewState startView;
    OptionsFormState optionen;
};

struct Globals;

// The data controls of the forms. They live with the record view, above the core; the
// connection binds them to the stores and lets go of them through this.
class DataControlSet {
  public:
    virtual ~DataControlSet() = default;
    virtual void installRepositionHandlers(Globals& g) = 0;
    virtual void DB_Binden(Globals& g) = 0;
    virtual void DB_Binden_loesen(Globals& g) = 0;
};

// The program's directories, each with a trailing "/", set by the start.
struct Directories {
    std::string pfad_app, pfad_log, pfad_dat, pfad_db;
    std::filesystem::path dataDir;  // default stores and help page
};

// The values of the settings store as the run holds them.
struct SettingsMirror {
    std::string datenart_wert, db_betr_pfad, db_meld_pfad, db_pfad_aktuell, db_kurzname;
    std::int16_t filter_aktiv_flag = 0;
    std::int16_t dateiendung_flag = 0;
    std::string caption = kCaptionBetrieb;  // MDIForm1, after the kind of data
    // Texts of the hidden menu entries, assigned only for the run.
    std::string umsetzdatei_pfad, exportdatenbank_pfad;
};

// The open stores and the recordsets the routines keep on them.
struct OpenStores {
    store::Database db_org, db_daten;
    std::string db_name_org, db_name_daten;
    std::string db_passwort;
    // While an import has left the lists' indexes out: opening the store again between its
    // blocks must not build them, which would cost as much as the store is large each time.
    bool listIndexesLeftOut = false;
    store::Recordset rs_aktuelleGemeinde, rs_optionen, rs_betrieb, rs_adresse, rs_meldgrund,
        rs_erlaubnis, rs_handwerkskarte, rs_taetigkeit, rs_beziehung, rs_person,
        rs_person_erlaubnis, rs_person_handwerkskarte, rs_person_staatsang;
};

// The error log's state.
struct LogState {
    std::int16_t akt_schritt = 0;
    bool fehler_vorhanden = false;
    long entries = 0;  // every entry since the start, for telling whether a step logged
    // What the program adds to the log, so that a run can tell its outcome truthfully: the
    // first entry since the last clearing that says the store itself could not be used or
    // written, the last entry's text, and why the log itself could not be written.
    std::string storeFault, lastLoggedError, logWriteError;
    // While set, entries go here instead of into the file: a check of a transfer file writes
    // nothing to the log.
    struct LoggedEntry {
        std::string procedure, number, text, location, locationValue;
    };
    std::vector<LoggedEntry>* logCapture = nullptr;
};

// The last message box.
struct LastMessage {
    std::string msg_text, msg_titel;
    int msg_art = 0;
    std::int16_t msg_antwort = 0;
};

// The values of the record view that the routines share.
struct RecordViewValues {
    // The last key pressed on the record view; 27 (ESC) cancels an import or export.
    std::int16_t taste = 0;
    // The query just composed, the written marks, the function filter.
    std::string sql_text, satz_gewaehlt, akt_funktion;
    // The chain of municipality terms of the filter, and the business list's copy of it.
    std::string gem_filter_text, gem_filter_sicher;
};

// The system's global values, grouped by concern.
struct Globals {
    Directories paths;
    SettingsMirror settings;
    OpenStores stores;
    // Set by whoever shows the forms (browse::attachDataControls); a run without forms has
    // no data controls to bind.
    std::unique_ptr<DataControlSet> data;
    LogState log;
    LastMessage lastMessage;
    std::string commandLine;  // a transfer file to import at the start
    // Whether an import records what it changes, for taking it back. Only the benchmarks turn
    // it off, to measure what recording costs.
    bool recordImportRuns = true;

    RecordViewValues view;

    FormsState forms;

    // The platform, injected.
    Dialogs* dialogs = nullptr;
    std::function<std::time_t()> clock = [] { return std::time(nullptr); };
    // The window around the routines; never null.
    Shell* shell = Shell::none();
};

// Shows a message through the global message values; returns and keeps the answer.
std::int16_t showMessage(Globals& g, const std::string& text, int style, const std::string& title);

}  // namespace tolma::core
