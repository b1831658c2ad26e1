// The main window and the record view as a clerk sees them, on a store with the sample data.
#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QDateEdit>
#include <QDesktopServices>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpinBox>
#include <QStyle>
#include <QStyleOptionFrame>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QTextEdit>
#include <QToolButton>
#include <QtTest>

#include <filesystem>
#include <fstream>
#include <functional>

#include "browse/record_view.h"
#include "core/menu.h"
#include "core/start.h"
#include "store/connection.h"
#include "transfer/import_driver.h"
#include "transfer/journal.h"
#include "ui/disclosure_window.h"
#include "ui/evaluation_window.h"
#include "ui/import_windows.h"
#include "ui/keyboard.h"
#include "ui/list_window.h"
#include "ui/main_window.h"
#include "ui/protection_windows.h"
#include "ui/qt_dialogs.h"
#include "ui/record_view.h"
#include "ui/search_window.h"
#include "ui/twips.h"
#include "ui_fixture.h"

using uitest::ScriptedDialogs;

class MainWindowTest : public QObject {
    Q_OBJECT

    std::filesystem::path home;
    ScriptedDialogs dialogs;
    std::unique_ptr<tolma::core::Globals> g;
    std::unique_ptr<tolma::ui::MainWindow> window;

    QString text(const char* name) {
        auto* box = window->findChild<QLineEdit*>(name);
        return box ? box->text() : QString("<fehlt: %1>").arg(name);
    }

    // The boxes of the record view that cut their values, on every tab of a business, and the
    // tabs that need a scroll bar. A box that cuts its value must carry it in its tooltip.
    QStringList boxesCuttingTheirValues(const char* betrNr) {
        tolma::browse::DB_Load_DATA(*g, "01054056", betrNr, "1", "");
        window->refreshFromCore();
        auto* tabs = window->findChild<QTabWidget*>("SSTab1");
        QStringList cut;
        const auto cuts = [&](QWidget* box, const QString& value, bool whole) {
            if (!box->isVisible() || whole) return;
            cut << box->objectName();
            if (!box->toolTip().contains(value))
                cut << box->objectName() + " ohne Tooltip: " + value;
        };
        for (int tab = 0; tab < tabs->count(); ++tab) {
            tabs->setCurrentIndex(tab);
            QCoreApplication::processEvents();
            if (window->recordView()->missingRoom().height() > 0)
                cut << QString("Karte %1 rollt").arg(tab);
            for (auto* box : window->recordView()->findChildren<QLineEdit*>()) {
                QStyleOptionFrame option;
                option.initFrom(box);
                option.lineWidth = box->hasFrame() ? 1 : 0;
                const QRect room =
                    box->style()->subElementRect(QStyle::SE_LineEditContents, &option, box);
                cuts(box, box->text(),
                     box->fontMetrics().horizontalAdvance(box->text()) <= room.width() - 4);
            }
            for (auto* box : window->recordView()->findChildren<QPlainTextEdit*>())
                cuts(box, box->toPlainText(), box->verticalScrollBar()->maximum() == 0);
        }
        return cut;
    }

  public slots:
    // Stands in for the desktop's opener of local files.
    void openFile(const QUrl& url) { opened.push_back(url.toLocalFile()); }

  private:
    QStringList opened;

  private slots:
    void init() {
        home = uitest::makeProgram(
            g, window, dialogs, "tolma-ui-" + std::to_string(QCoreApplication::applicationPid()));
        tolma::core::A_Start(*g, home);
        window->refreshFromCore();
    }
    void cleanup() {
        window.reset();
        g.reset();
        std::filesystem::remove_all(home);
    }

    void startsWithCaptionSizeMenuAndStartView() {
        QCOMPARE(window->objectName(), QString("MDIForm1"));
        QCOMPARE(window->windowTitle(), QString("TOLMA_4x_Access (betriebsbezogene Daten)"));
        QCOMPARE(window->width(), tolma::ui::twipsToPixels(window.get(), 12165));
        QCOMPARE(window->menuBar()->actions().size(), 4);
        QCOMPARE(window->menuEntry("menue_suchen_betrieb")->text(), QString("öffnen (&Betrieb)"));
        QVERIFY(!window->menuEntry("menue_download_starten")->isVisible());
        QVERIFY(!window->menuEntry("menue_export_datenbank")->isEnabled());
        QVERIFY(window->findChild<QWidget*>("Image2")->isVisible());
        QVERIFY(!window->findChild<QTabWidget*>("SSTab1")->isVisible());
        QCOMPARE(window->findChild<QTabWidget*>("SSTab1")->count(), 6);
        QCOMPARE(tolma::ui::withoutMnemonic(window->findChild<QTabWidget*>("SSTab1")->tabText(5)),
                 QString("Pers. (Hwk/Erl)"));
        QVERIFY(window->findChild<QWidget*>("TextPers_94") != nullptr);
        QVERIFY(!window->findChild<QWidget*>("TextBetr_5")->isVisible());
    }

    void importFromTheMenuThenShowABusinessOnItsTabs() {
        dialogs.file = (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
        window->trigger("menue_import_datenbank");
        QCOMPARE(QString::fromStdString(dialogs.shown.back()),
                 QString("Die Daten wurden übertragen!"));
        QVERIFY(!window->menuEntry("menue_import_datenbank")->isChecked());
        QVERIFY(window->menuBar()->isEnabled());

        // As the business list's OK does.
        g->forms.startView.Image2Visible = false;
        g->forms.startView.SSTab1Visible = true;
        g->forms.startView.Frame_UeberschriftVisible = true;
        g->forms.startView.SSTab1Tab = 0;
        tolma::browse::DB_Load_DATA(*g, "01054056", "010540001407", "1", "");
        window->refreshFromCore();
        QCOMPARE(text("Text_0"), QString("010540001407"));
        QCOMPARE(text("Text_1"), QString("Fischhandel Johannsen OHG"));
        QVERIFY(!text("Text_136").isEmpty());
        auto* tabs = window->findChild<QTabWidget*>("SSTab1");
        tabs->setCurrentIndex(3);
        QCOMPARE(window->findChild<QLabel*>("Label2")->text(),
                 QString("Anzeige: Personendaten (nat. und jur. Person)"));
        QVERIFY(window->findChild<QWidget*>("Frame_Anzahl")->isVisible());
        const QString first = text("TextPers_88");
        QCOMPARE(window->findChild<QLabel*>("DATA_PERS_Caption")->text(), QString("Satz 1 von 2"));
        window->findChild<QToolButton*>("DATA_PERS_2")->click();
        QCOMPARE(window->findChild<QLabel*>("DATA_PERS_Caption")->text(), QString("Satz 2 von 2"));
        QVERIFY(text("TextPers_88") != first);
        QCOMPARE(text("TextPers_1"), text("TextPers_88"));
        tabs->setCurrentIndex(1);
        QVERIFY(!window->findChild<QWidget*>("Frame_Anzahl")->isVisible());
    }

    void aLongListShowsItsFirstScreenAndReadsTheRestBehindIt() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        auto& c = *g->stores.db_daten.connection();
        for (const char* table : {"betrieb", "betrieb_adresse"})
            c.execute(
                std::string("INSERT INTO ") + table +
                " ([betr-nr], [betr-hist-nr]) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
                "SELECT i + 1 FROM n WHERE i < 2000) SELECT printf('99%010d', i), '1' FROM n");
        c.execute("UPDATE betrieb_adresse SET [b-adr-art] = '1' WHERE [betr-nr] LIKE '99*'");
        c.execute("UPDATE betrieb SET [meld-art] = '1' WHERE [betr-nr] LIKE '99*'");
        auto before = c.prepare(
            "SELECT count(*) FROM betrieb INNER JOIN betrieb_adresse USING ([betr-nr], "
            "[betr-hist-nr]) WHERE [b-adr-art] = '1' AND [meld-art] <> '999'");
        before->step();
        const long all = before->column(0).toInteger();
        window->trigger("menue_suchen_betrieb");
        auto* list = window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr");
        QVERIFY(list != nullptr);
        auto* grid = list->findChild<QTableView*>("DBGrid1");
        auto* label = list->findChild<QLabel*>("Label1");
        new QAbstractItemModelTester(grid->model(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, list);
        QVERIFY(grid->model()->rowCount() < all);  // the first screen, before the rest is read
        QCOMPARE(label->text(), QString("Betrieb Nr. 1 von …"));
        QTRY_COMPARE(grid->model()->rowCount(), static_cast<int>(all));
        QCOMPARE(label->text(), QString("Betrieb Nr. 1 von %1").arg(all));
        QCOMPARE(grid->currentIndex().row(), 0);
    }

    void listsFindAndOpenABusinessAndTheWalkGoesToTheRepresentatives() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_suchen_betrieb");
        auto* list = window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr");
        QVERIFY(list != nullptr);
        QVERIFY(window->menuEntry("menue_suchen_betrieb")->isChecked());
        // The list stands at the origin in its own size, the record view behind it.
        auto* sub = qobject_cast<QMdiSubWindow*>(list->parentWidget());
        QVERIFY(sub && !sub->isMaximized());
        QCOMPARE(sub->pos(), QPoint(0, 0));
        QVERIFY(sub->width() <= window->mdiArea()->viewport()->width());
        auto* grid = list->findChild<QTableView*>("DBGrid1");
        // The model keeps Qt's rules while the clerk types, opens and walks.
        new QAbstractItemModelTester(grid->model(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, list);
        QCOMPARE(grid->model()->columnCount(), 6);
        QCOMPARE(grid->model()->headerData(5, Qt::Horizontal).toString(),
                 QString("Straße (Betriebsstätte)"));
        QTest::keyClicks(list->findChild<QLineEdit*>("Text1_3"), "nord");
        QCOMPARE(grid->model()->index(grid->currentIndex().row(), 3).data().toString(),
                 QString("Nordsee Bau GmbH"));
        QVERIFY(list->findChild<QLabel*>("Label1")->text().startsWith("Betrieb Nr. "));
        list->findChild<QPushButton*>("Command1_0")->click();
        QTRY_VERIFY(window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr") == nullptr);
        QVERIFY(!window->menuEntry("menue_suchen_betrieb")->isChecked());
        QCOMPARE(text("Text_1"), QString("Nordsee Bau GmbH"));
        QVERIFY(window->findChild<QTabWidget*>("SSTab1")->isVisible());

        // The legal person's representatives, and back.
        window->findChild<QTabWidget*>("SSTab1")->setCurrentIndex(3);
        QCOMPARE(text("TextPers_86"), QString("JP"));
        window->findChild<QPushButton*>("Command1")->click();
        auto* walk = window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Pers");
        QVERIFY(walk != nullptr);
        QVERIFY(!walk->findChild<QWidget*>("Frame1")->isVisibleTo(walk));
        // It opens on its first representative, as the counter says.
        QTRY_VERIFY(walk->findChild<QLabel*>("Label1")->text().startsWith("Person Nr. 1 von "));
        auto* walkGrid = walk->findChild<QTableView*>("DBGrid1");
        new QAbstractItemModelTester(walkGrid->model(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, walk);
        QCOMPARE(walkGrid->currentIndex().row(), 0);
        walk->findChild<QPushButton*>("Command1_0")->click();
        QTRY_VERIFY(window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Pers") == nullptr);
        QCOMPARE(text("TextPers_86"), QString("NP"));
        QVERIFY(window->findChild<QPushButton*>("Command3")->isVisible());
        window->findChild<QPushButton*>("Command3")->click();
        QCOMPARE(text("TextPers_86"), QString("JP"));
        QCOMPARE(window->findChild<QLabel*>("Label2")->text(), QString("Anzeige: Meldedaten"));
    }

    void enterInASearchBoxOpensTheFoundRowAsOkDoes() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_suchen_betrieb");
        auto* list = window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr");
        QVERIFY(list != nullptr);
        QTest::keyClicks(list->findChild<QLineEdit*>("Text1_3"), "nord");
        QTest::keyClick(list->findChild<QLineEdit*>("Text1_3"), Qt::Key_Return);
        QTRY_VERIFY(window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr") == nullptr);
        QCOMPARE(text("Text_1"), QString("Nordsee Bau GmbH"));
        QVERIFY(!window->menuEntry("menue_suchen_betrieb")->isChecked());
    }

    void listsGiveNamesTheSpareWidthAndWholeNamesInTooltips() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        for (const char* entry : {"menue_suchen_betrieb", "menue_suchen_person"}) {
            window->trigger(entry);
            const bool persons = std::string(entry) == "menue_suchen_person";
            auto* list = window->findChild<tolma::ui::ListWindow*>(persons ? "Frm_Auswahl_Pers"
                                                                           : "Frm_Auswahl_Betr");
            QVERIFY(list != nullptr);
            auto* sub = qobject_cast<QMdiSubWindow*>(list->parentWidget());
            QCOMPARE(sub->width(), window->mdiArea()->viewport()->width());  // nothing unused
            auto* grid = list->findChild<QTableView*>("DBGrid1");
            const int name = persons ? 1 : 3;  // "Name (jur. Pers.)", "Betriebsname"
            // A name cut in its cell stands whole in its tooltip.
            QString longest;
            for (int row = 0; row < grid->model()->rowCount(); ++row) {
                const QModelIndex cell = grid->model()->index(row, name);
                QCOMPARE(cell.data(Qt::ToolTipRole).toString(), cell.data().toString());
                if (cell.data().toString().size() > longest.size())
                    longest = cell.data().toString();
            }
            QVERIFY(longest.size() > 20);  // longer than the column's part of the width
            // At 1024 pixels the columns fill the grid, and the names take the spare width.
            sub->resize(1024, sub->height());
            QCoreApplication::processEvents();
            int sum = 0;
            for (int c = 0; c < grid->model()->columnCount(); ++c) sum += grid->columnWidth(c);
            QCOMPARE(sum, grid->viewport()->width());
            QVERIFY(grid->columnWidth(name) >=
                    QFontMetrics(grid->font()).horizontalAdvance(QString(18, 'M')));
            tolma::core::A_Fenster_schliessen(*g);
            QTRY_VERIFY(window->findChildren<tolma::ui::ListWindow*>().isEmpty());
        }
    }

    void exportFormWritesTheStoreFromTheMenu() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_export_textdatei");
        auto* form = window->findChild<QWidget*>("Frm_Verwaltungsblock");
        QVERIFY(form != nullptr);
        QCOMPARE(form->findChild<QLineEdit*>("Text1_10")->text(), QString("52"));
        QVERIFY(form->findChild<QLineEdit*>("Text1_0")->isReadOnly());
        QVERIFY(!form->findChild<QLineEdit*>("Text1_4")->isReadOnly());
        form->findChild<QPushButton*>("Command1_0")->click();
        QTRY_VERIFY(window->findChild<QWidget*>("Frm_Verwaltungsblock") == nullptr);
        QVERIFY(QString::fromStdString(dialogs.shown.back()).startsWith("Die Datei '"));
        QVERIFY(!window->menuEntry("menue_export_textdatei")->isChecked());
    }

    void optionsKeepOnlyTheActiveKindsControlsEnabled() {
        window->trigger("menue_extras_optionen");
        auto* form = window->findChild<QWidget*>("Frm_Optionen");
        QVERIFY(form != nullptr);
        QVERIFY(window->menuEntry("menue_extras_optionen")->isChecked());
        QVERIFY(form->findChild<QWidget*>("Frame1_0")->isEnabled());
        QVERIFY(!form->findChild<QWidget*>("Frame1_1")->isEnabled());
        QVERIFY(!form->findChild<QWidget*>("List1")->isEnabled());
        form->findChild<QPushButton*>("Command12_0")->click();
        QVERIFY(!form->findChild<QWidget*>("Frame1_0")->isEnabled());
        QVERIFY(form->findChild<QWidget*>("Frame1_1")->isEnabled());
        QVERIFY(window->windowTitle().startsWith("TOLMA_4x_Access (meldungsbezogene Daten)"));
        form->findChild<QCheckBox*>("Check1")->click();
        QVERIFY(form->findChild<QWidget*>("List1")->isEnabled());
        form->findChild<QPushButton*>("Command6")->click();
        QCOMPARE(form->findChild<QListWidget*>("List1")->count(), 11004);
        form->findChild<QListWidget*>("List1")->item(1)->setSelected(true);
        form->findChild<QPushButton*>("Command3_1")->click();
        QTRY_VERIFY(window->findChild<QWidget*>("Frm_Optionen") == nullptr);
        QVERIFY(!window->menuEntry("menue_extras_optionen")->isChecked());
        auto marked = g->stores.db_org.OpenRecordset("aktuelleGemeinde");
        QCOMPARE(marked.RecordCount(), 1L);
        QCOMPARE(QString::fromStdString(marked.Fields("gem-name").Value().toString()),
                 QString("Kiel, Landeshauptstadt"));
    }

    void optionsSetHowManyImportRunsKeepTheirRecords() {
        window->trigger("menue_extras_optionen");
        auto* form = window->findChild<QWidget*>("Frm_Optionen");
        QVERIFY(form != nullptr);
        auto* kept = form->findChild<QSpinBox*>("Spin_Importlaeufe");
        QVERIFY(kept != nullptr);
        QCOMPARE(kept->value(), 10);
        kept->setValue(3);
        QCOMPARE(tolma::transfer::keptImportRuns(*g), 3);
    }

    void aFormClosedAndOpenedAgainAtOnceCanStillBeClosed() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_suchen_person");
        tolma::core::A_Fenster_schliessen(*g);  // the old list goes once the events run
        window->trigger("menue_suchen_person");
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(window->findChildren<tolma::ui::ListWindow*>("Frm_Auswahl_Pers").size(), 1);
        g->shell->unloadForm("Frm_Auswahl_Pers");  // the new one is still known by its name
        QTRY_VERIFY(window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Pers") == nullptr);

        // The main window goes cleanly while a closed form still waits to be deleted.
        window->trigger("menue_suchen_person");
        tolma::core::A_Fenster_schliessen(*g);
        window->trigger("menue_suchen_person");
        window.reset();
        QVERIFY(!g->forms.marks.menue_suchen_person);
        window = std::make_unique<tolma::ui::MainWindow>(*g);
    }

    void closingWithFormsOpenEndsCleanly() {
        window->trigger("menue_extras_optionen");
        QVERIFY(window->findChild<QWidget*>("Frm_Optionen") != nullptr);
        window.reset();  // the main window goes while a form stands open
        QVERIFY(!g->forms.marks.menue_extras_optionen);
        window = std::make_unique<tolma::ui::MainWindow>(*g);
    }

    void checkingAFileAndTakingBackImportsFromTheirWindows() {
        const auto edit = window->menuBar()->actions()[1]->menu()->actions();
        QCOMPARE(edit[0]->objectName(), QString("menue_import_datenbank"));
        QCOMPARE(edit[1]->text(), QString("Transferdatei &prüfen..."));
        QCOMPARE(edit[2]->text(), QString("Import &zurücknehmen..."));

        const std::string sample =
            (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
        tolma::transfer::ImportCheck report;
        tolma::transfer::checkTransferFile(*g, sample, report);
        tolma::ui::CheckReportWindow check(sample, report);
        QVERIFY(check.findChild<QPlainTextEdit*>("Text_Bericht")
                    ->toPlainText()
                    .contains("Betriebe in der Datei: 52"));
        // The report as a text file; "Einlesen" ends the window for reading the file in.
        const auto saved = home / "bericht.txt";
        QCOMPARE(QString::fromStdString(check.saveAs(saved.string())), QString());
        QVERIFY(std::filesystem::file_size(saved) > 100);
        QCOMPARE(std::filesystem::status(saved).permissions() & std::filesystem::perms::others_read,
                 std::filesystem::perms::none);
        QVERIFY(!check.saveAs((home / "fehlt" / "bericht.txt").string()).empty());
        QVERIFY(check.findChild<QPushButton*>("Command_Schliessen")->isDefault());
        QTest::mouseClick(check.findChild<QPushButton*>("Command_Einlesen"), Qt::LeftButton);
        QCOMPARE(check.result(), tolma::ui::CheckReportWindow::kReadIn);
        QCOMPARE(g->stores.db_daten.OpenRecordset("betrieb").RecordCount(),
                 0L);  // the check kept nothing

        tolma::transfer::Upd_1_Start(*g, sample);
        tolma::ui::TakeBackWindow runs(*g);
        QCOMPARE(runs.table()->rowCount(), 1);
        QCOMPARE(runs.table()->item(0, 4)->text(), QString("nein"));
        // Enter only closes the window: taking back wants a click.
        runs.show();
        QVERIFY(QTest::qWaitForWindowExposed(&runs));
        runs.table()->setFocus();
        const size_t asked = dialogs.shown.size();
        QTest::keyClick(runs.table(), Qt::Key_Return);
        QVERIFY(!runs.isVisible());
        QCOMPARE(dialogs.shown.size(), asked);
        QCOMPARE(runs.table()->item(0, 4)->text(), QString("nein"));
        // Its question has "Nein" as the default answer.
        QTest::mouseClick(runs.findChild<QPushButton*>("Command_Zuruecknehmen"), Qt::LeftButton);
        QVERIFY(dialogs.styles.size() >= asked + 1);
        QCOMPARE(dialogs.styles[asked],
                 tolma::core::msg::vbQuestionYesNo | tolma::core::msg::vbDefaultButton2);
        QCOMPARE(runs.table()->item(0, 4)->text(), QString("ja"));
        QCOMPARE(g->stores.db_daten.OpenRecordset("betrieb").RecordCount(), 0L);
    }

    void retentionWindowShowsWhatGoesAndDeletesOnlyWhatItShowed() {
        const std::string sample =
            (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
        tolma::transfer::Upd_1_Start(*g, sample);
        const long before = g->stores.db_daten.OpenRecordset("betrieb").RecordCount();
        tolma::ui::RetentionWindow retention(*g);
        auto* day = retention.findChild<QDateEdit*>("Datum_Abgemeldet_vor");
        // The proposal lies the options' period before today.
        QCOMPARE(day->date(), QDateTime::fromSecsSinceEpoch(g->clock()).date().addYears(-5));
        auto* remove = retention.findChild<QPushButton*>("Command_Loeschen");
        QVERIFY(!remove->isEnabled());  // nothing is shown yet
        day->setDate(QDate(2020, 1, 1));
        retention.check();
        QCOMPARE(retention.businesses()->rowCount(), 1);
        QCOMPARE(retention.businesses()->item(0, 0)->text(), QString("010540002739"));
        QCOMPARE(retention.persons()->item(0, 2)->text(), QString("wird gelöscht"));
        QVERIFY(remove->isEnabled());
        day->setDate(QDate(2023, 1, 1));
        QVERIFY(!remove->isEnabled());  // another day wants its own check first
        day->setDate(QDate(2020, 1, 1));
        retention.check();
        QCOMPARE(g->stores.db_daten.OpenRecordset("betrieb").RecordCount(), before);
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(g->stores.db_daten.OpenRecordset("betrieb").RecordCount(), before - 1);
        QCOMPARE(retention.businesses()->rowCount(), 0);
        QVERIFY(!remove->isEnabled());
        tolma::ui::ProtocolWindow protocol(*g);
        QCOMPARE(protocol.table()->rowCount(), 1);
        QCOMPARE(protocol.table()->item(0, 3)->text(), QString("Löschung"));
        QCOMPARE(protocol.table()->item(0, 5)->text(), QString("010540002739"));
    }

    void infoStandsBesideOtherFunctionsAndTheOptionsQuestionOnlyShowsTheForm() {
        window->trigger("menue_extras_optionen");
        window->trigger("menue_info");
        QVERIFY(window->findChild<QWidget*>("Frm_Optionen") != nullptr);  // nothing closed
        QVERIFY(g->forms.marks.menue_extras_optionen);
        QVERIFY(!g->forms.marks.menue_info);
        auto* text = window->findChild<QTextEdit*>("RichTextBox1");
        const QString first = text->toPlainText();
        text->setPlainText("verändert");
        window->trigger("menue_info");
        QCOMPARE(window->findChildren<QWidget*>("Frm_Info").size(), 1);
        QCOMPARE(text->toPlainText(), first);  // a second activation builds the same text anew
        QVERIFY(first.startsWith("TOLMA_4x_Access\n"));

        // "Ja" to a question that leads to the options shows the form and nothing else.
        g->shell->unloadForm("Frm_Optionen");
        QCoreApplication::processEvents();
        window->trigger("menue_suchen_betrieb");
        const bool listMarked = g->forms.marks.menue_suchen_betrieb;
        g->shell->showForm("Frm_Optionen");
        QTRY_VERIFY(window->findChild<QWidget*>("Frm_Optionen") != nullptr);
        QCOMPARE(g->forms.marks.menue_suchen_betrieb, listMarked);
        QVERIFY(!g->forms.marks.menue_extras_optionen);
    }

    void printEntriesActWhileInfoStands() {
        window->trigger("menue_info");
        const size_t shown = dialogs.shown.size();
        window->trigger("menue_druck_betrieb");  // no record is chosen yet: it says so
        QCOMPARE(dialogs.shown.size(), shown + 1);
        QCOMPARE(QString::fromStdString(dialogs.shown.back()),
                 QString("Es wurde kein Datensatz ausgewählt!"));
    }

    void everyControlOfEveryTabStandsInViewWithoutScrolling() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->fitRecordView();
        const QSize screen = window->screen()->availableGeometry().size();
        QVERIFY(window->width() <= screen.width() && window->height() <= screen.height());
        g->forms.startView.Image2Visible = false;
        g->forms.startView.SSTab1Visible = true;
        g->forms.startView.Frame_UeberschriftVisible = true;
        // A business with a legal person at its head: the person's tab shows "Personen anzeigen".
        tolma::browse::DB_Load_DATA(*g, "01054056", "010540001074", "1", "");
        window->refreshFromCore();
        auto* tabs = window->findChild<QTabWidget*>("SSTab1");
        for (int tab = 0; tab < tabs->count(); ++tab) {
            tabs->setCurrentIndex(tab);
            QCoreApplication::processEvents();
            auto* scroll = qobject_cast<QScrollArea*>(tabs->currentWidget());
            QVERIFY2(scroll->verticalScrollBar()->maximum() == 0 &&
                         scroll->horizontalScrollBar()->maximum() == 0,
                     qPrintable(QString("Karte %1 rollt").arg(tab)));
            const QRect visible(scroll->viewport()->mapTo(window.get(), QPoint(0, 0)),
                                scroll->viewport()->size());
            for (auto* control : scroll->widget()->findChildren<QWidget*>()) {
                if (!control->isVisibleTo(scroll->widget()) || qobject_cast<QScrollBar*>(control))
                    continue;
                const QRect at(control->mapTo(window.get(), QPoint(0, 0)), control->size());
                QVERIFY2(visible.contains(at),
                         qPrintable(QString("Karte %1: %2 steht bei %3,%4 (%5×%6) außerhalb von "
                                            "%7×%8")
                                        .arg(tab)
                                        .arg(control->objectName())
                                        .arg(at.x())
                                        .arg(at.y())
                                        .arg(at.width())
                                        .arg(at.height())
                                        .arg(visible.right() + 1)
                                        .arg(visible.bottom() + 1)));
            }
        }
        tabs->setCurrentIndex(3);
        QVERIFY(window->findChild<QPushButton*>("Command1")->isVisible());
    }

    void aQuestionWhoseStyleNamesTheSecondButtonAnswersNoToEnter() {
        tolma::ui::QtDialogs qt(window.get());
        const auto answerWithEnter = [&](int style) {
            QTimer::singleShot(0, [] {
                QTRY_VERIFY(QApplication::activeModalWidget() != nullptr);
                QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Return);
            });
            return qt.MsgBox("Soll der Vorgang gestartet werden?", style, "Import zurücknehmen");
        };
        QCOMPARE(answerWithEnter(tolma::core::msg::vbQuestionYesNo), tolma::core::msg::vbYes);
        QCOMPARE(
            answerWithEnter(tolma::core::msg::vbQuestionYesNo | tolma::core::msg::vbDefaultButton2),
            tolma::core::msg::vbNo);
    }

    void theWindowGrowsWithinTheScreenWhereATabNeedsRoom() {
        const QSize designed(tolma::ui::twipsToPixels(window.get(), 12165),
                             tolma::ui::twipsToPixels(window.get(), 8940));
        const QSize before = window->recordView()->missingRoom();
        window->fitRecordView();
        const QSize kept = window->keptSize();
        QVERIFY(kept.width() >= designed.width() && kept.height() >= designed.height());
        QVERIFY(kept.width() <=
                std::max(designed.width(), window->screen()->availableGeometry().width()));
        QVERIFY(kept.height() <=
                std::max(designed.height(), window->screen()->availableGeometry().height()));
        if (before.width() > 0 || before.height() > 0)
            QVERIFY(kept != designed);  // it grew where room was missing
        window->resize(designed);
        QCOMPARE(window->size(), kept);  // and keeps that size
    }

    void aLongValueStandsWholeInItsBoxOrElseInItsTooltip() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->fitRecordView();
        g->forms.startView.Image2Visible = false;
        g->forms.startView.SSTab1Visible = true;
        g->forms.startView.Frame_UeberschriftVisible = true;
        if (window->screen()->availableGeometry().size() != QSize(1024, 768))
            QSKIP("Die Breiten gelten für einen Bildschirm von 1024×768 Pixeln.");
        // A limited company with a craft card and a legal person at its head: its legal forms,
        // the craft card's kind (in two lines) and authority all stand whole.
        QCOMPARE(boxesCuttingTheirValues("010540001074"), QStringList());
        QCOMPARE(window->findChild<QPlainTextEdit*>("TextBetrHwk_126")->toPlainText(),
                 QString("Eintragung in die Handwerksrolle (Maurer und Betonbauer)"));
        // An estate agent's permit and its authorities are longer than their boxes, which stand
        // half a row wide: their values stand in the tooltips.
        QCOMPARE(boxesCuttingTheirValues("010540001222"),
                 QStringList({"TextBetrErl_2", "TextBetrErl_4", "TextPErl_62"}));
    }

    void evaluationShowsTableAndChartAndOpensTheBusinessesOfANumberSayingWhatTheyAre() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_extras_auswertungen");
        auto* form = window->findChild<tolma::ui::EvaluationWindow*>("Frm_Auswertung");
        QVERIFY(form != nullptr);
        auto* from = form->findChild<QLineEdit*>("Datum_Von");
        auto* to = form->findChild<QLineEdit*>("Datum_Bis");
        auto* counted = form->findChild<QLabel*>("Label_Zeitraum");
        // The sample's newest notification is of March 2026.
        QCOMPARE(from->text(), QString("04.2025"));
        QCOMPARE(to->text(), QString("03.2026"));
        QCOMPARE(counted->text(), QString("Zeitraum: 04.2025 – 03.2026"));

        // A month in a form of neither kind is refused by name, and nothing is counted anew.
        const size_t shown = dialogs.shown.size();
        from->setText("2000/01");
        form->evaluate();
        QCOMPARE(dialogs.shown.size(), shown + 1);
        QVERIFY(QString::fromStdString(dialogs.shown.back())
                    .startsWith("Ungültiger Zeitraum: '2000/01' (erwartet wird MM.JJJJ oder "
                                "JJJJ-MM"));
        QCOMPARE(counted->text(), QString("Zeitraum: 04.2025 – 03.2026"));

        from->setText("2000-01");  // as scripts write it, beside the shown form
        to->setText("12.2026");
        form->evaluate();
        QCOMPARE(dialogs.shown.size(), shown + 1);
        QCOMPARE(counted->text(), QString("Zeitraum: 01.2000 – 12.2026"));
        auto* table = form->table();
        QVERIFY(table->rowCount() >= 2);
        const int sum = table->rowCount() - 1;
        QCOMPARE(table->item(sum, 0)->text(), QString("Summe"));
        QCOMPARE(table->horizontalHeaderItem(4)->text(), QString("Saldo"));
        QCOMPARE(table->item(sum, 1)->text().toLong() - table->item(sum, 3)->text().toLong(),
                 table->item(sum, 4)->text().toLong());

        // A number opens the list of what it counts, and the list says what that is.
        int gastgewerbe = 0;
        while (gastgewerbe < sum && table->item(gastgewerbe, 0)->text() != "I Gastgewerbe")
            ++gastgewerbe;
        QVERIFY(gastgewerbe < sum);
        const long registrations = table->item(gastgewerbe, 1)->text().toLong();
        QVERIFY(registrations > 0);
        emit table->cellClicked(gastgewerbe, 1);
        auto* list = window->findChild<tolma::ui::ListWindow*>("Frm_Auswahl_Betr");
        QVERIFY(list != nullptr);
        QCOMPARE(list->form().data.Recordset().RecordCount(), registrations);
        const QString what = "Anmeldungen 01.2000 – 12.2026, Abschnitt I Gastgewerbe";
        auto* restriction = list->findChild<QLabel*>("Label_Auswertung");
        QVERIFY(restriction != nullptr);
        QCOMPARE(restriction->text(), "Gezählt in der Auswertung: " + what);
        QVERIFY(list->windowTitle().contains(what));
        QVERIFY(list->parentWidget()->windowTitle().contains(what));  // the MDI frame's title
        // "Alle" is not checked while the list is restricted; choosing it lists the whole store
        // and says that the restriction is gone.
        auto* all = list->findChild<QRadioButton*>("Option1_0");
        new QAbstractItemModelTester(list->findChild<QTableView*>("DBGrid1")->model(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, list);
        QVERIFY(!all->isChecked());
        all->click();
        QVERIFY(all->isChecked());
        QVERIFY(list->form().data.Recordset().RecordCount() > registrations);
        QCOMPARE(restriction->text(),
                 "Alle Betriebe: die Einschränkung auf „" + what + "“ ist aufgehoben.");
        QVERIFY(!list->windowTitle().contains(what));
    }

    void searchShowsHitsWhileTypingAndOpensTheBusinessKeepingThem() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        QCOMPARE(window->menuEntry("menue_suchen_alle")->shortcut(),
                 QKeySequence(QKeySequence::Find));
        window->trigger("menue_suchen_alle");
        auto* form = window->findChild<tolma::ui::SearchWindow*>("Frm_Suchen");
        QVERIFY(form != nullptr);
        auto* count = form->findChild<QLabel*>("Label_Treffer");
        QTest::keyClicks(form->box(), "Petersn Husum");  // by sound, and a second word
        QTRY_VERIFY(form->table()->rowCount() > 0);
        QCOMPARE(form->table()->item(0, 3)->text(), QString("Bäckerei Petersen e.K."));
        QCOMPARE(count->text(), QString("%1 Treffer").arg(form->table()->rowCount()));
        // Down goes from the box into the hits.
        form->box()->setFocus();
        if (form->box()->hasFocus()) {
            QTest::keyClick(form->box(), Qt::Key_Down);
            QVERIFY(form->table()->hasFocus());
        }
        QTest::keyClick(form->box(), Qt::Key_Return);
        QCOMPARE(text("Text_1"), QString("Bäckerei Petersen e.K."));
        QVERIFY(window->findChild<tolma::ui::SearchWindow*>("Frm_Suchen") !=
                nullptr);  // it keeps its hits
        QVERIFY(form->table()->rowCount() > 0);
        // ... and steps aside, so that the business is in view.
        QVERIFY(qobject_cast<QMdiSubWindow*>(form->parentWidget())->isMinimized());

        // A person found opens on that person, not on the business's first one.
        form->box()->setText("Jensen");
        form->search();
        int row = -1;
        for (int r = 0; r < form->table()->rowCount() && row < 0; ++r)
            if (form->table()->item(r, 0)->text() == "Person") row = r;
        QVERIFY(row >= 0);
        form->table()->selectRow(row);
        emit form->table()->activated(form->table()->model()->index(row, 0));
        QCOMPARE(text("TextPers_100"), QString("Jensen"));

        // Numbers are found; no hit is said; Escape closes.
        form->box()->setText(form->table()->item(0, 1)->text());
        form->search();
        QVERIFY(form->table()->rowCount() > 0);
        form->box()->setText("Zzyzxq");
        form->search();
        QCOMPARE(count->text(), QString("keine Treffer"));
        qobject_cast<QMdiSubWindow*>(form->parentWidget())->showNormal();
        form->box()->setFocus();
        QTest::keyClick(form->box(), Qt::Key_Escape);
        QTRY_VERIFY(window->findChild<tolma::ui::SearchWindow*>("Frm_Suchen") == nullptr);
    }

    void disclosureListsThePersonsOfANameAndSavesTheChosenOne() {
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->trigger("menue_auskunft");
        auto* form = window->findChild<tolma::ui::DisclosureWindow*>("Frm_Auskunft");
        QVERIFY(form != nullptr);
        QTest::keyClicks(form->nameBox(), "carstensen");
        QTest::keyClick(form->nameBox(), Qt::Key_Return);
        QCOMPARE(form->table()->rowCount(), 2);
        QCOMPARE(form->status()->text(), QString("2 Personen gefunden; bitte eine wählen."));
        int birte = -1;
        for (int r = 0; r < 2; ++r)
            if (form->table()->item(r, 2)->text() == "Birte") birte = r;
        QVERIFY(birte >= 0);
        form->table()->selectRow(birte);
        const auto file = home / "auskunft.csv";
        auto* csv = form->findChild<QPushButton*>("Command_CSV");
        csv->click();  // cancelled: nothing written
        QVERIFY(!std::filesystem::exists(file));
        dialogs.saveFile = file.string();
        csv->click();
        std::ifstream in(file, std::ios::binary);
        const std::string written((std::istreambuf_iterator<char>(in)), {});
        QVERIFY(written.find("vornamen;Birte") != std::string::npos);
        QVERIFY(written.find("Hauke") == std::string::npos);
        QVERIFY(form->status()->text().contains("gespeichert"));

        form->birthBox()->setText("1972-01-18");
        form->search();
        QVERIFY(QString::fromStdString(dialogs.shown.back()).contains("TT.MM.JJJJ"));
        form->findChild<QPushButton*>("Command_Schliessen")->click();
        QTRY_VERIFY(window->findChild<tolma::ui::DisclosureWindow*>("Frm_Auskunft") == nullptr);
    }

    void helpOpensThePageWhereItStandsAndAMissingOneShowsNothing() {
        QDesktopServices::setUrlHandler("file", this, "openFile");
        opened.clear();
        window->trigger("menue_hilfe_suchen");
        QCOMPARE(opened,
                 QStringList{QString::fromStdString((g->paths.dataDir / "hilfe.htm").string())});

        const size_t shown = dialogs.shown.size();
        const bool logged = g->log.fehler_vorhanden;
        g->paths.dataDir = home / "ohne-hilfe";
        window->trigger("menue_hilfe_suchen");
        QDesktopServices::unsetUrlHandler("file");
        QCOMPARE(opened.size(), 1);  // nothing handed to the desktop's opener
        QCOMPARE(dialogs.shown.size(), shown);
        QCOMPARE(g->log.fehler_vorhanden, logged);
    }

    void cancelledFileDialogTellsAndClearsTheMark() {
        // The import closes the open options before its file dialog appears.
        window->trigger("menue_extras_optionen");
        bool optionsShown = true;
        dialogs.whileChoosing = [&] {
            auto* options = window->findChild<QWidget*>("Frm_Optionen");
            optionsShown = options && options->isVisible();
        };
        std::filesystem::current_path(std::filesystem::temp_directory_path());
        dialogs.file.clear();
        window->trigger("menue_import_datenbank");
        dialogs.whileChoosing = nullptr;
        const auto after = std::filesystem::current_path();
        // The home goes with the test: a directory that lasts is left current.
        std::filesystem::current_path(std::filesystem::temp_directory_path());
        QVERIFY(!optionsShown);
        QVERIFY(!window->menuEntry("menue_extras_optionen")->isChecked());
        QCOMPARE(QString::fromStdString(dialogs.shown.back()),
                 QString("Es wurde keine Update-Datei ausgewählt!"));
        QVERIFY(!window->menuEntry("menue_import_datenbank")->isChecked());
        QVERIFY(std::filesystem::equivalent(after, g->paths.pfad_app));  // the dialog may move it
    }
};

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
