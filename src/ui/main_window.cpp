#include "ui/main_window.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QScreen>
#include <QStatusBar>
#include <QTime>
#include <QTimer>
#include <QUrl>

#include <filesystem>

#include "core/db_connection.h"
#include "core/error_log.h"
#include "core/menu.h"
#include "core/version.h"
#include "store/connection.h"
#include "store/server_address.h"
#include "store/server_session.h"
#include "store/server_work.h"
#include "transfer/import_driver.h"
#include "ui/disclosure_window.h"
#include "ui/evaluation_window.h"
#include "ui/export_window.h"
#include "ui/import_windows.h"
#include "ui/info_window.h"
#include "ui/keyboard.h"
#include "ui/list_window.h"
#include "ui/options_window.h"
#include "ui/print_support.h"
#include "ui/protection_windows.h"
#include "ui/record_view.h"
#include "ui/search_window.h"
#include "ui/twips.h"

namespace tolma::ui {
namespace {

// The menu in its order: level, name, caption; hidden entries are disabled and not visible.
struct MenuDef {
    int level;
    const char* name;
    const char* caption;
    bool hidden = false;
};
const MenuDef kMenu[] = {
    {1, "menue_datei", "&Datei"},
    {2, "menue_suchen_betrieb", "öffnen (&Betrieb)"},
    {2, "menue_suchen_person", "öffnen (&Person)"},
    {2, "menue_suchen_alle", "&Suchen..."},
    {2, "menue_auskunft", "&Auskunft über eine Person..."},
    {2, "menue_neu_laden", "&Neu laden"},
    {2, "menue_drucken", "&drucken..."},
    {3, "menue_druck_betrieb", "aktueller &Betrieb"},
    {3, "menue_druck_Person", "aktuelle &Person"},
    {2, "menue_trenn1", "-"},
    {2, "menue_beenden", "b&eenden"},
    {1, "menue_bearbeiten", "&Bearbeiten"},
    {2, "menue_import_datenbank", "Daten-&Import (TML --> Access)"},
    {2, "menue_import_pruefen", "Transferdatei &prüfen..."},
    {2, "menue_import_zuruecknehmen", "Import &zurücknehmen..."},
    {2, "menue_download_starten", "Daten-I&mport (WWW)", true},
    {2, "menue_trenn2", "-"},
    {2, "menue_export_datenbank", "Daten-&Export (Access)", true},
    {3, "menue_Ums_auswahl", "&Umsetzdatei"},
    {4, "menue_ums_generieren", "&generieren"},
    {4, "menue_Ums_bearbeiten", "&bearbeiten"},
    {3, "menue_DB_auswahl_export", "&Datenbank-Update starten"},
    {2, "menue_export_textdatei", "Daten-E&xport (Access --> TML)"},
    {1, "menue_extras", "&Extras"},
    {2, "menue_extras_optionen", "&Optionen"},
    {2, "menue_extras_auswertungen", "&Auswertungen..."},
    {2, "menue_extras_loeschfristen", "&Löschfristen..."},
    {2, "menue_extras_protokoll", "&Protokoll..."},
    {1, "menue_hilfe", "&Hilfe"},
    {2, "menue_hilfe_suchen", "&suchen in der Hilfe"},
    {2, "menue_hilfe_linie", "-"},
    {2, "menue_info", "I&nfo..."},
};

}  // namespace

MainWindow::MainWindow(core::Globals& g, QWidget* parent)
    : QMainWindow(parent),
      g_(g),
      mdiArea_(new QMdiArea(this)),
      recordView_(new RecordView(g, this)) {
    setObjectName("MDIForm1");
    setWindowTitle(caption());
    setCentralWidget(mdiArea_);
    mdiArea_->setMinimumSize(200, 150);
    // The record view stays maximized behind the forms; a form that gets the focus keeps its size.
    mdiArea_->setOption(
        QMdiArea::DontMaximizeSubWindowOnActivation);  // the window keeps its designed size; the
                                                       // view scrolls
    keptSize_ = QSize(twipsToPixels(this, kWidthTwips), twipsToPixels(this, kHeightTwips));
    // Large text can make the designed size larger than the screen: the window then takes the
    // whole screen, frame included, and the views scroll.
    if (screen()) {
        const QSize room = screen()->availableGeometry().size();
        wholeScreen_ = keptSize_.width() > room.width() || keptSize_.height() > room.height();
        keptSize_ = keptSize_.boundedTo(room);
    }
    // A window that closes gives the keyboard back to the one the clerk came from.
    mdiArea_->setActivationOrder(QMdiArea::ActivationHistoryOrder);
    mdiArea_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    mdiArea_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    // The status line is there from the start: a note of another workstation's change must not
    // shrink the views under the clerk's hands, nor grow the window past the screen.
    statusBar()->setObjectName("Statuszeile");
    resize(keptSize_);
    buildMenu();
    // Another workstation's changes, and a server that went away, are noticed within a second.
    auto* watch = new QTimer(this);
    connect(watch, &QTimer::timeout, this, [this] { watchStore(); });
    watch->start(1000);
    startWindow_ = mdiArea_->addSubWindow(recordView_, Qt::SubWindow | Qt::WindowTitleHint);
    startWindow_->setObjectName("Frm_Start_Window");
    startWindow_->setWindowTitle(QString());  // the form has no caption of its own
    startWindow_->showMaximized();
    setFrameCloseKeys(startWindow_, false);  // the record view stays for the whole session

    g_.shell = this;
    connect(recordView_, &RecordView::personenAnzeigen, this, [this] { openWalk(); });
    connect(recordView_, &RecordView::zurueck, this, [this] {
        browse::Frm_Start_Command3_Click(g_);
        refreshFromCore();
    });
    // Each activation of a list empties its search boxes.
    connect(mdiArea_, &QMdiArea::subWindowActivated, this, [this](QMdiSubWindow* window) {
        if (!window) return;
        // The walk to the representatives is activated too: it opens on its first row.
        if (auto* list = qobject_cast<ListWindow*>(window->widget())) {
            browse::Form_Activate(g_, list->form());
            list->refreshFromCore();
        }
        if (auto* options = qobject_cast<OptionsWindow*>(window->widget())) options->activate();
        if (auto* info = qobject_cast<InfoWindow*>(window->widget())) info->activate();
    });
}

MainWindow::~MainWindow() {
    // The forms still open, and those closed but not yet deleted, go after this window's
    // members: they must not call back into it.
    for (auto* window : mdiArea_->findChildren<QMdiSubWindow*>()) {
        QObject::disconnect(window, nullptr, this, nullptr);
        if (window->widget()) QObject::disconnect(window->widget(), nullptr, this, nullptr);
    }
    if (g_.shell == this) g_.shell = core::Shell::none();
}

QMdiSubWindow* MainWindow::addChild(QWidget* widget, const QSize& size) {
    QMdiSubWindow* window = mdiArea_->addSubWindow(widget);
    window->setAttribute(Qt::WA_DeleteOnClose);
    setFrameCloseKeys(window, true);
    // A form stands at the origin of the main window in its own size, beside the record view:
    // a clerk reads the view while a list is open.
    window->resize(
        size.boundedTo(mdiArea_->viewport()->size()).expandedTo(window->minimumSizeHint()));
    window->move(0, 0);
    const std::string name = widget->objectName().toStdString();
    children_[name] = window;
    // The form's own destructor has run by now and cleared its mark. A form closed and opened
    // again in one pass of the event loop goes after its successor: it forgets only itself.
    connect(widget, &QObject::destroyed, this, [this, name, window] {
        if (auto it = children_.find(name); it != children_.end() && it->second == window)
            children_.erase(it);
        refreshFromCore();
    });
    window->showNormal();
    return window;
}

// A list as wide as the main window: its columns share the width.
void MainWindow::fitListWindow(QMdiSubWindow* window, ListWindow*) {
    window->resize(mdiArea_->viewport()->width(), window->height());
}

void MainWindow::unloadForm(const std::string& name) {
    auto it = children_.find(name);
    if (it != children_.end()) it->second->close();
}

void MainWindow::showForm(const std::string& name) {
    // Only the form is shown: no other function closes and the menu's mark stays as it is.
    if (name == "Frm_Optionen") QTimer::singleShot(0, this, [this] { showOptionsWindow(); });
}

void MainWindow::openList(bool persons) {
    auto form = std::make_unique<browse::ListForm>(persons);
    const bool shown =
        persons ? browse::menue_suchen_person(g_, *form) : browse::menue_suchen_betrieb(g_, *form);
    if (!shown) return;
    auto* list = new ListWindow(g_, std::move(form));
    QMdiSubWindow* window = addChild(list, QSize(760, 520));
    fitListWindow(window, list);
    connect(list, &ListWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(list, &ListWindow::recordLoaded, this, [this] { refreshFromCore(); });
}

void MainWindow::openWalk() {
    auto form = std::make_unique<browse::ListForm>(true);
    if (!browse::Frm_Start_Command1_Click(g_, *form)) {
        refreshFromCore();
        return;
    }
    auto* list = new ListWindow(g_, std::move(form));
    QMdiSubWindow* window = addChild(list, QSize(760, 420));
    fitListWindow(window, list);
    connect(list, &ListWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(list, &ListWindow::recordLoaded, this, [this] { refreshFromCore(); });
}

void MainWindow::openOptions() {
    if (g_.forms.marks.menue_extras_optionen) return;  // its window is open
    core::A_Fenster_schliessen(g_);
    g_.forms.marks.menue_extras_optionen = true;
    showOptionsWindow();
}

void MainWindow::showOptionsWindow() {
    if (auto* open = mdiArea_->findChild<OptionsWindow*>("Frm_Optionen")) {
        if (auto* sub = qobject_cast<QMdiSubWindow*>(open->parentWidget()))
            mdiArea_->setActiveSubWindow(sub);
        return;
    }
    auto* form = new OptionsWindow(g_);
    QMdiSubWindow* window =
        addChild(form, QSize(twipsToPixels(this, 12120), twipsToPixels(this, 8850)));
    connect(form, &OptionsWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(form, &OptionsWindow::storeChanged, this, [this] { refreshFromCore(); });
}

void MainWindow::openSearch() {
    if (auto* open = mdiArea_->findChild<SearchWindow*>("Frm_Suchen")) {
        if (auto* sub = qobject_cast<QMdiSubWindow*>(open->parentWidget()))
            mdiArea_->setActiveSubWindow(sub);
        open->box()->setFocus();
        return;
    }
    auto* form = new SearchWindow(g_);
    QMdiSubWindow* window =
        addChild(form, QSize(std::min(900, mdiArea_->viewport()->width()), 420));
    connect(form, &SearchWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(form, &SearchWindow::recordLoaded, this, [this] {
        refreshFromCore();
        // The search steps aside; the keyboard goes with the clerk's eyes to the business.
        QTimer::singleShot(0, this, [this] {
            mdiArea_->setActiveSubWindow(startWindow_);
            recordView_->focusTabs();
        });
    });
    form->box()->setFocus();
}

void MainWindow::openDisclosure() {
    if (auto* open = mdiArea_->findChild<DisclosureWindow*>("Frm_Auskunft")) {
        if (auto* sub = qobject_cast<QMdiSubWindow*>(open->parentWidget()))
            mdiArea_->setActiveSubWindow(sub);
        open->nameBox()->setFocus();
        return;
    }
    auto* form = new DisclosureWindow(g_);
    QMdiSubWindow* window =
        addChild(form, QSize(std::min(720, mdiArea_->viewport()->width()), 420));
    connect(form, &DisclosureWindow::closeRequested, window, &QMdiSubWindow::close);
    form->nameBox()->setFocus();
}

void MainWindow::openEvaluation() {
    if (auto* open = mdiArea_->findChild<EvaluationWindow*>("Frm_Auswertung")) {
        if (auto* sub = qobject_cast<QMdiSubWindow*>(open->parentWidget()))
            mdiArea_->setActiveSubWindow(sub);
        return;
    }
    auto* form = new EvaluationWindow(g_);
    QMdiSubWindow* window = addChild(
        form, QSize(std::min(900, mdiArea_->viewport()->width()), mdiArea_->viewport()->height()));
    connect(form, &EvaluationWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(form, &EvaluationWindow::openStates, this,
            [this](const std::vector<std::pair<std::string, std::string>>& states) {
                auto list = std::make_unique<browse::ListForm>(false);
                if (!browse::openBusinessListOf(g_, *list, states)) return;
                auto* listWindow = new ListWindow(g_, std::move(list));
                QMdiSubWindow* sub = addChild(listWindow, QSize(760, 520));
                fitListWindow(sub, listWindow);
                connect(listWindow, &ListWindow::closeRequested, sub, &QMdiSubWindow::close);
                connect(listWindow, &ListWindow::recordLoaded, this, [this] { refreshFromCore(); });
                refreshFromCore();
            });
}

void MainWindow::openInfo() {
    // Info is shown beside whatever is open: no other function closes, no mark is set. A
    // second click brings it to the front and builds its text anew.
    if (auto* open = mdiArea_->findChild<InfoWindow*>("Frm_Info")) {
        if (auto* sub = qobject_cast<QMdiSubWindow*>(open->parentWidget()))
            mdiArea_->setActiveSubWindow(sub);
        open->activate();
        return;
    }
    auto* form = new InfoWindow(g_);
    QMdiSubWindow* window =
        addChild(form, QSize(twipsToPixels(this, 4200), twipsToPixels(this, 5800)));
    connect(form, &InfoWindow::closeRequested, window, &QMdiSubWindow::close);
}

void MainWindow::openExport() {
    if (g_.forms.marks.menue_export_textdatei) return;  // its window is open
    core::A_Fenster_schliessen(g_);
    g_.forms.marks.menue_export_textdatei = true;
    auto* form = new ExportWindow(g_);
    QMdiSubWindow* window = addChild(form, QSize(720, 460));
    connect(form, &ExportWindow::closeRequested, window, &QMdiSubWindow::close);
    connect(window, &QObject::destroyed, this, [this] {
        g_.forms.marks.menue_export_textdatei = false;
        refreshFromCore();
    });
}

QAction* MainWindow::menuEntry(const std::string& name) const {
    auto it = entries_.find(name);
    return it == entries_.end() ? nullptr : it->second;
}

void MainWindow::buildMenu() {
    QMenu* parents[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};
    bool hiddenBelow[5] = {false, false, false, false, false};
    for (size_t i = 0; i < std::size(kMenu); ++i) {
        const MenuDef& m = kMenu[i];
        const bool hasChildren = i + 1 < std::size(kMenu) && kMenu[i + 1].level > m.level;
        QAction* action = nullptr;
        if (m.level == 1) {
            parents[1] = menuBar()->addMenu(QString::fromUtf8(m.caption));
            action = parents[1]->menuAction();
        } else if (std::string(m.caption) == "-") {
            action = parents[m.level - 1]->addSeparator();
        } else if (hasChildren) {
            parents[m.level] = parents[m.level - 1]->addMenu(QString::fromUtf8(m.caption));
            action = parents[m.level]->menuAction();
        } else {
            action = parents[m.level - 1]->addAction(QString::fromUtf8(m.caption));
            const std::string name = m.name;
            connect(action, &QAction::triggered, this, [this, name] { trigger(name); });
        }
        action->setObjectName(m.name);
        hiddenBelow[m.level] = m.hidden || (m.level > 1 && hiddenBelow[m.level - 1]);
        if (m.hidden) {
            action->setVisible(false);
            action->setEnabled(false);
        }
        entries_[m.name] = action;
    }
    for (const char* marked :
         {"menue_suchen_person", "menue_suchen_betrieb", "menue_info", "menue_extras_optionen",
          "menue_import_datenbank", "menue_export_textdatei"})
        entries_[marked]->setCheckable(true);
    // The keys a desktop's programs share.
    entries_["menue_suchen_alle"]->setShortcut(QKeySequence::Find);
    entries_["menue_suchen_betrieb"]->setShortcut(QKeySequence::Open);
    entries_["menue_suchen_person"]->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    entries_["menue_druck_betrieb"]->setShortcut(QKeySequence::Print);
    entries_["menue_druck_Person"]->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
    entries_["menue_hilfe_suchen"]->setShortcut(QKeySequence::HelpContents);
    entries_["menue_neu_laden"]->setShortcut(QKeySequence::Refresh);
}

void MainWindow::trigger(const std::string& name) {
    // No exception may cross the event loop: a failure is logged as the program's own.
    try {
        // A server that went away is connected anew by the clerk's next action.
        if (g_.stores.db_daten.isSet() && g_.stores.db_daten.connection()->isServer() &&
            g_.stores.db_daten.connection()->server()->isBroken() && name != "menue_neu_laden") {
            reload();
            if (!g_.stores.db_daten.isSet()) return;
        }
        if (name == "menue_neu_laden") {
            reload();
        } else if (name == "menue_import_datenbank") {
            core::menue_import_datenbank(g_, transfer::startImport);
        } else if (name == "menue_beenden") {
            core::A_Log_anbieten(g_);  // the menu's own door, before the windows' two
            close();
        } else if (name == "menue_hilfe_suchen") {
            // A missing help page is not reported. It is not handed to the desktop either, whose
            // browser or opener would show an error page of its own.
            const auto help = g_.paths.dataDir / "hilfe.htm";
            if (std::error_code ec; std::filesystem::is_regular_file(help, ec))
                QDesktopServices::openUrl(
                    QUrl::fromLocalFile(QString::fromStdString(help.string())));
        } else if (name == "menue_info") {
            openInfo();
        } else if (name == "menue_suchen_betrieb" || name == "menue_suchen_person") {
            openList(name == "menue_suchen_person");
        } else if (name == "menue_druck_betrieb" || name == "menue_druck_Person") {
            printMenuEntry(g_, name, this);
        } else if (name == "menue_export_textdatei") {
            openExport();
        } else if (name == "menue_extras_optionen") {
            openOptions();
        } else if (name == "menue_Ums_bearbeiten") {
            core::menue_Ums_bearbeiten(g_);
        } else if (name == "menue_DB_auswahl_export") {
            core::menue_DB_auswahl_export(g_);
        } else if (name == "menue_suchen_alle") {
            openSearch();
        } else if (name == "menue_auskunft") {
            openDisclosure();
        } else if (name == "menue_extras_auswertungen") {
            openEvaluation();
        } else if (name == "menue_import_pruefen") {
            checkTransferFileFromMenu(g_, this);
        } else if (name == "menue_extras_loeschfristen") {
            RetentionWindow window(g_, this);
            connect(&window, &RetentionWindow::storeChanged, this, [this] { refreshFromCore(); });
            window.exec();
        } else if (name == "menue_extras_protokoll") {
            ProtocolWindow(g_, this).exec();
        } else if (name == "menue_import_zuruecknehmen") {
            TakeBackWindow window(g_, this);
            connect(&window, &TakeBackWindow::storeChanged, this, [this] { refreshFromCore(); });
            window.exec();
        }
    } catch (const std::exception& e) {
        core::logTrapped(g_, name, e);
    }
    refreshFromCore();
}

// The data kind's caption; a store on a server is named after it, so that a clerk always sees
// which store the window shows.
QString MainWindow::caption() const {
    QString title = QString::fromStdString(g_.settings.caption);
    if (store::isServerText(g_.settings.db_pfad_aktuell))
        title += QString::fromStdString("  –  Datenbankserver " +
                                        store::describeServer(g_.settings.db_pfad_aktuell));
    return title;
}

void MainWindow::refreshFromCore() {
    setWindowTitle(caption());
    const bool enabled = g_.forms.startView.MDIForm1Enabled;
    menuBar()->setEnabled(enabled);
    mdiArea_->setEnabled(enabled);
    const std::pair<const char*, bool> marks[] = {
        {"menue_suchen_person", g_.forms.marks.menue_suchen_person},
        {"menue_suchen_betrieb", g_.forms.marks.menue_suchen_betrieb},
        {"menue_info", g_.forms.marks.menue_info},
        {"menue_extras_optionen", g_.forms.marks.menue_extras_optionen},
        {"menue_import_datenbank", g_.forms.marks.menue_import_datenbank},
        {"menue_export_textdatei", g_.forms.marks.menue_export_textdatei},
    };
    for (const auto& [name, marked] : marks) entries_[name]->setChecked(marked);
    recordView_->refreshFromCore();
}

void MainWindow::watchStore() {
    if (!g_.stores.db_daten.isSet()) return;
    const auto c = g_.stores.db_daten.connection();
    // Not while this workstation works on the store itself: the import asks between its
    // blocks, and the connection then serves the import alone.
    if (!c->isServer() || c->inBatch() || g_.forms.marks.menue_import_datenbank) return;
    if (c->server()->isBroken()) {
        lostConnection_ = true;
        note(
            QStringLiteral("Die Verbindung zum Datenbankserver ist unterbrochen. „Neu laden“ "
                           "(F5) verbindet neu."));
        return;
    }
    try {
        if (watched_.lock() != c) {
            if (c->inTransaction()) return;
            // Whatever others changed while this workstation was cut off, it read anew.
            if (lostConnection_)
                note(
                    QStringLiteral("Die Verbindung zum Datenbankserver wurde neu aufgebaut; "
                                   "der Datenbestand wurde neu gelesen."));
            lostConnection_ = false;
            store::listenForChanges(*c);
            watched_ = c;
            // The rights are the login's for as long as the connection lasts.
            const QString refusal = QString::fromStdString(store::writeRefusal(*c));
            for (const char* entry : {"menue_import_datenbank", "menue_import_zuruecknehmen",
                                      "menue_extras_loeschfristen"}) {
                entries_[entry]->setEnabled(refusal.isEmpty());
                entries_[entry]->setStatusTip(refusal);
            }
        }
        if (!store::changesHeard(*c).empty())
            note("Der Datenbestand wurde an einem anderen Arbeitsplatz geändert (" +
                 QTime::currentTime().toString("HH:mm") + " Uhr).");
    } catch (const std::exception& e) {
        core::logTrapped(g_, "Datenbankserver", e);
    }
}

void MainWindow::note(const QString& text) {
    statusBar()->showMessage(text);
}

void MainWindow::reload() {
    statusBar()->clearMessage();
    core::DB_Load(g_);
    for (QMdiSubWindow* window : mdiArea_->subWindowList())
        if (auto* list = qobject_cast<ListWindow*>(window->widget())) list->refreshFromCore();
    refreshFromCore();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // The way down offers the error log at each door it passes: the record view's query to
    // unload and its unload. It closes no store; the closing is never cancelled.
    if (!closing_) {
        closing_ = true;
        core::A_Log_anbieten(g_);
        core::A_Log_anbieten(g_);
    }
    event->accept();
}

void MainWindow::fitRecordView() {
    if (windowState() != Qt::WindowNoState) return;
    // Twice: a wider window lets some texts take fewer lines, and the first growth may need a
    // second look.
    for (int pass = 0; pass < 2; ++pass) {
        const QSize missing = recordView_->missingRoomInView();
        if (missing.width() <= 0 && missing.height() <= 0) return;
        QSize grown = keptSize_ + missing.expandedTo(QSize(0, 0));
        if (screen())
            grown = grown.boundedTo(screen()->availableGeometry().size()).expandedTo(keptSize_);
        if (grown == keptSize_) return;
        keptSize_ = grown;
        resize(keptSize_);
    }
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    // In its normal state the window keeps its size.
    if (windowState() == Qt::WindowNoState && isVisible() && size() != keptSize_) resize(keptSize_);
}

}  // namespace tolma::ui
