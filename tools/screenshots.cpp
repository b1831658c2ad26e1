// Saves pictures of the program's windows for a look at them: the start view and the six tabs
// of the record view with a business of the sample file loaded; with a connection text, the
// main window and the options on a store on that server too.
//   tolma-screenshots OUTDIR HOME SAMPLE [SERVER]
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QTabWidget>
#include <QTimer>
#include <iostream>

#include "app/program.h"
#include "browse/record_view.h"
#include "core/globals.h"
#include "core/menu.h"
#include "core/program_paths.h"
#include "core/start.h"
#include "options/options_form.h"
#include "store/connection.h"
#include "store/server_work.h"
#include "transfer/import_driver.h"
#include "ui/disclosure_window.h"
#include "ui/import_windows.h"
#include "ui/main_window.h"
#include "ui/options_window.h"
#include "ui/protection_windows.h"
#include "ui/qt_dialogs.h"
#include "ui/search_window.h"

namespace {

class Silent : public tolma::core::Dialogs {
  public:
    int MsgBox(const std::string&, int style, const std::string&) override {
        return tolma::core::msg::hasYesNo(style) ? tolma::core::msg::vbYes : tolma::core::msg::vbOK;
    }
    void openInViewer(const std::string&) override {}
};

// Questions are answered Yes unseen; the warnings show as the program shows them, and each is
// saved under the next name and closed.
class WarningsShown : public tolma::core::Dialogs {
  public:
    WarningsShown(QWidget* parent, QString dir) : real_(parent), dir_(std::move(dir)) {}
    void expect(const QString& name) { name_ = name; }
    int MsgBox(const std::string& text, int style, const std::string& title) override {
        if (tolma::core::msg::hasYesNo(style)) return tolma::core::msg::vbYes;
        QTimer::singleShot(400, [this] {
            if (QWidget* box = QApplication::activeModalWidget()) {
                if (!name_.isEmpty()) box->grab().save(dir_ + "/" + name_);
                name_.clear();
                box->close();
            }
        });
        return real_.MsgBox(text, style, title);
    }
    void openInViewer(const std::string&) override {}

  private:
    tolma::ui::QtDialogs real_;
    QString dir_, name_;
};

void save(QWidget& window, const QString& dir, const QString& name) {
    QApplication::processEvents();
    window.grab().save(dir + "/" + name);
    // On an X display the whole screen too: with a window manager it shows the window under
    // its title bar, in the room a clerk has.
    if (QGuiApplication::platformName() == "xcb")
        window.screen()->grabWindow(0).save(dir + "/bildschirm-" + name);
}

// The lists, the forms, the search, the check of a file and the runs to take back.
void saveForms(tolma::ui::MainWindow& window, tolma::core::Globals& g, const QString& out,
               const char* sample) {
    // The lists and the export form, each on its own.
    for (const auto& [entry, file] : {std::pair{"menue_suchen_betrieb", "betriebe.png"},
                                      std::pair{"menue_suchen_person", "personen.png"},
                                      std::pair{"menue_export_textdatei", "export.png"},
                                      std::pair{"menue_extras_optionen", "optionen.png"},
                                      std::pair{"menue_extras_auswertungen", "auswertung.png"},
                                      std::pair{"menue_info", "info.png"}}) {
        // How long the clerk waits for the window: opened, laid out and painted once.
        QElapsedTimer opening;
        opening.start();
        window.trigger(entry);
        QApplication::processEvents();
        window.grab();
        std::cout << file << ": geöffnet in " << opening.elapsed() << " ms\n";
        save(window, out, file);
    }
    tolma::core::A_Fenster_schliessen(g);

    // One search across businesses and persons.
    g.shell->unloadForm("Frm_Auswertung");
    window.trigger("menue_suchen_alle");
    if (auto* search = window.findChild<tolma::ui::SearchWindow*>("Frm_Suchen")) {
        search->box()->setText("Petersen Husum");
        search->search();
        save(window, out, "suchen.png");
        g.shell->unloadForm("Frm_Suchen");
    }

    // A disclosure: the persons of a name, one to choose.
    window.trigger("menue_auskunft");
    if (auto* disclosure = window.findChild<tolma::ui::DisclosureWindow*>("Frm_Auskunft")) {
        disclosure->nameBox()->setText("Carstensen");
        disclosure->search();
        save(window, out, "auskunft.png");
        g.shell->unloadForm("Frm_Auskunft");
    }

    // Checking the sample file against the store that holds it, and the runs to take back.
    tolma::transfer::ImportCheck report;
    tolma::transfer::checkTransferFile(g, sample, report);
    tolma::ui::CheckReportWindow check(sample, report, &window);
    check.show();
    save(check, out, "pruefen.png");
    check.close();
    tolma::transfer::Upd_1_Start(g, sample);
    tolma::ui::TakeBackWindow runs(g, &window);
    runs.show();
    save(runs, out, "zuruecknehmen.png");
    runs.close();
    // What a deletion after the proposed period would remove; nothing is deleted.
    tolma::ui::RetentionWindow retention(g, &window);
    retention.show();
    retention.check();
    save(retention, out, "loeschfristen.png");
    retention.close();
}

// What a workstation meets beside others on the same server: the note of their change in the
// status line, the refusal of a second import, and the refusal for a login that only reads.
void saveWorkstations(tolma::ui::MainWindow& window, tolma::core::Globals& g, const QString& out,
                      const char* sample, const std::string& server) {
    auto other = tolma::store::Connection::openReader(server);
    QElapsedTimer waiting;
    other->execute("SELECT pg_notify('tolma_aenderung', 'I')");
    waiting.start();
    while (waiting.elapsed() < 1500) QApplication::processEvents();
    save(window, out, "server-aenderung.png");

    WarningsShown warnings(&window, out);
    tolma::core::Dialogs* const before = g.dialogs;
    g.dialogs = &warnings;
    {
        const auto held = tolma::store::WorkLock::take(*other, tolma::store::StoreWork::Import);
        warnings.expect("server-import-abgelehnt.png");
        tolma::transfer::Upd_1_Start(g, sample);
    }
    // A login in the reading role, on the same store.
    other->execute(
        "DO $$ BEGIN IF NOT EXISTS (SELECT 1 FROM pg_roles WHERE rolname = 'lena') THEN CREATE "
        "ROLE lena LOGIN IN ROLE tolma_lesen; END IF; END $$");
    tolma::options::OptionsForm form;
    tolma::options::Form_Activate(g, form);
    if (tolma::options::changeStorePath(g, form, 0, server + " user=lena")) {
        tolma::options::Form_Unload(g);
        warnings.expect("server-nur-lesen.png");
        tolma::transfer::Upd_1_Start(g, sample);
    }
    g.dialogs = before;
}

// The same business read into a store on a server: the caption names the server, the options
// show its connection text.
void saveServerStore(tolma::ui::MainWindow& window, tolma::core::Globals& g, const QString& out,
                     const char* sample, const std::string& server) {
    g.shell->unloadForm("Frm_Info");
    tolma::core::A_Fenster_schliessen(g);
    tolma::options::OptionsForm form;
    tolma::options::Form_Activate(g, form);
    if (!tolma::options::changeStorePath(g, form, 0, server)) {
        std::cerr << "Der Datenbankserver kann nicht verwendet werden: " << server << "\n";
        return;
    }
    tolma::options::Form_Unload(g);
    tolma::transfer::Upd_1_Start(g, sample);
    g.forms.startView.Image2Visible = false;
    g.forms.startView.SSTab1Visible = true;
    g.view.satz_gewaehlt = "ja";
    tolma::browse::DB_Load_DATA(g, "01054056", "010540001074", "1", "");
    window.refreshFromCore();
    save(window, out, "server-hauptfenster.png");
    tolma::ui::OptionsWindow options(g);
    options.activate();
    options.show();
    // A window of its own: the window manager maps and frames it first.
    QElapsedTimer mapping;
    mapping.start();
    while (mapping.elapsed() < 500) QApplication::processEvents();
    save(options, out, "server-optionen.png");
    options.close();
    saveWorkstations(window, g, out, sample, server);
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc != 4 && argc != 5) return 2;
    const QString out = argv[1];
    QDir().mkpath(out);
    tolma::app::loadGermanQtTranslations(app);
    Silent dialogs;
    tolma::app::Program program(&dialogs);
    auto& g = program.globals();
    auto& window = program.window();
    g.paths.dataDir =
        tolma::core::installDataDir(tolma::core::executableDir().parent_path() / "bin");
    // The window in its designed size, grown where a tab needs more room.
    program.start(argv[2]);
    // Give a window manager the time to frame and place the window.
    QElapsedTimer framing;
    framing.start();
    while (framing.elapsed() < 500) QApplication::processEvents();
    save(window, out, "start.png");

    tolma::transfer::Upd_1_Start(g, argv[3]);
    g.forms.startView.Image2Visible = false;
    g.forms.startView.SSTab1Visible = true;
    g.forms.startView.Frame_UeberschriftVisible = true;
    g.forms.startView.Label2 = "Anzeige: Meldedaten";
    g.view.satz_gewaehlt = "ja";
    // A limited company with addresses, activities and a legal person at its head.
    tolma::browse::DB_Load_DATA(g, "01054056", "010540001074", "1", "");
    window.refreshFromCore();
    auto* tabs = window.findChild<QTabWidget*>("SSTab1");
    for (int i = 0; i < 6; ++i) {
        tabs->setCurrentIndex(i);
        save(window, out, QString("tab%1.png").arg(i));
    }

    // The walk to the legal person's representatives, on its first row.
    tabs->setCurrentIndex(3);
    if (auto* walk = window.findChild<QPushButton*>("Command1")) {
        walk->click();
        save(window, out, "vertreter.png");
        tolma::core::A_Fenster_schliessen(g);
        g.shell->unloadForm("Frm_Auswahl_Pers");
    }

    saveForms(window, g, out, argv[3]);

    // Qt's own file dialog, as the import shows it, in German.
    QFileDialog files(&window, QString(), QString::fromStdString(g.paths.pfad_dat));
    files.setOption(QFileDialog::DontUseNativeDialog);
    files.setNameFilters({"Alle Dateien (*.*)", "Update-Dateien (*.tml)"});
    files.show();
    save(files, out, "dateiauswahl.png");
    files.close();
    if (argc == 5) saveServerStore(window, g, out, argv[3], argv[4]);
    return 0;
}
