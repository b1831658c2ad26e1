// Every window by keyboard alone, every control named for assistive technology, large text and
// colours that can be read: the program as a clerk without a mouse, with a screen reader or with
// large text meets it.
#include <QAbstractButton>
#include <QAbstractItemModelTester>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QDesktopServices>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QTabBar>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QToolButton>
#include <QtTest>

#include <filesystem>
#include <functional>

#include "browse/record_view.h"
#include "core/menu.h"
#include "core/start.h"
#include "print/qt/evaluation_paint.h"
#include "transfer/import_driver.h"
#include "ui/evaluation_window.h"
#include "ui/import_windows.h"
#include "ui/keyboard.h"
#include "ui/list_window.h"
#include "ui/main_window.h"
#include "ui/record_view.h"
#include "ui/search_window.h"
#include "ui_fixture.h"

namespace {

using tolma::ui::withoutMnemonic;

// A window of the program, opened as the clerk opens it; dialogs are shown without their own
// event loop.
struct Opener {
    const char* name;
    std::function<QWidget*()> open;
};

QWidget* formIn(QMdiArea* area, const char* objectName) {
    for (auto* sub : area->subWindowList())
        if (sub->widget() && sub->widget()->objectName() == objectName) return sub->widget();
    return nullptr;
}

bool isTabStop(const QWidget* w, const QWidget* form) {
    return w->isVisible() && w->isEnabled() && (w->focusPolicy() & Qt::TabFocus) &&
           !w->focusProxy() && w->window() == form->window() && form->isAncestorOf(w);
}

// The part of `w` that can be seen: its rectangle cut by every widget it lies in.
QRect visiblePart(const QWidget* w) {
    QRect r = w->rect();
    for (const QWidget* p = w; !p->isWindow(); p = p->parentWidget())
        r = r.translated(p->pos()).intersected(p->parentWidget()->rect());
    return r;
}

// The room a widget can be scrolled into: the smallest viewport it lies in.
QSize roomAround(const QWidget* w) {
    for (const QWidget* p = w->parentWidget(); p; p = p->parentWidget())
        if (auto* area = qobject_cast<const QAbstractScrollArea*>(p->parentWidget());
            area && area->viewport() == p)
            return p->size();
    return w->window()->size();
}

// A group's title names the one input it holds, never one of several.
qsizetype inputsIn(const QGroupBox* group) {
    return group->findChildren<QLineEdit*>().size() +
           group->findChildren<QPlainTextEdit*>().size() +
           group->findChildren<QComboBox*>().size() +
           group->findChildren<QAbstractItemView*>().size();
}

const QList<QAccessible::Role> kInteractive = {QAccessible::PushButton,   QAccessible::Button,
                                               QAccessible::CheckBox,     QAccessible::RadioButton,
                                               QAccessible::EditableText, QAccessible::ComboBox,
                                               QAccessible::SpinBox,      QAccessible::Table,
                                               QAccessible::List,         QAccessible::PageTab};

// The faults of the accessible tree below `a`: interactive objects without a name, or named like
// their group, their value or a glyph.
void collectNameFaults(QAccessibleInterface* a, QStringList& faults) {
    if (!a || a->state().invisible) return;
    const QAccessible::Role role = a->role();
    if (kInteractive.contains(role)) {
        const QString name = a->text(QAccessible::Name).trimmed();
        auto* widget = qobject_cast<QWidget*>(a->object());
        const QString where =
            widget ? widget->objectName() + " (" + widget->metaObject()->className() + ")"
                   : QString::number(role);
        QGroupBox* group = nullptr;
        for (QWidget* p = widget ? widget->parentWidget() : nullptr; p && !group;
             p = p->parentWidget())
            group = qobject_cast<QGroupBox*>(p);
        const QString value = a->text(QAccessible::Value).trimmed();
        if (name.isEmpty())
            faults << where + " ohne Namen";
        else if (!name.contains(QRegularExpression("\\w")))
            faults << where + " heißt nach einem Zeichen: " + name;
        else if (group && name == withoutMnemonic(group->title()).trimmed() && inputsIn(group) > 1)
            faults << where + " heißt wie seine Gruppe: " + name;
        else if (!value.isEmpty() && name == value &&
                 (role == QAccessible::ComboBox || role == QAccessible::EditableText ||
                  role == QAccessible::SpinBox))
            faults << where + " heißt wie sein Wert: " + name;
        if (role == QAccessible::Table || role == QAccessible::List) return;  // the cells
    }
    for (int i = 0; i < a->childCount(); ++i) collectNameFaults(a->child(i), faults);
}

}  // namespace

class KeyboardTest : public QObject {
    Q_OBJECT

    std::filesystem::path home;
    uitest::ScriptedDialogs dialogs;
    std::unique_ptr<tolma::core::Globals> g;
    std::unique_ptr<tolma::ui::MainWindow> window;
    std::vector<std::unique_ptr<QWidget>> dialogWindows;

    QMdiArea* area() { return window->mdiArea(); }

    void showBusiness() {
        tolma::browse::DB_Load_DATA(*g, "01054056", "1", "1", "");
        g->forms.startView.SSTab1Visible = true;
        g->forms.startView.Image2Visible = false;
        g->forms.startView.Frame_UeberschriftVisible = true;
        window->refreshFromCore();
    }

    // Every window that has controls of its own, as the menu or its dialog opens it.
    std::vector<Opener> openers() {
        const auto menu = [this](const char* entry, const char* form) {
            return [this, entry, form]() -> QWidget* {
                window->trigger(entry);
                return formIn(area(), form);
            };
        };
        const auto dialog = [this](std::function<QWidget*()> make) {
            return [this, make]() -> QWidget* {
                dialogWindows.emplace_back(make());
                dialogWindows.back()->show();
                dialogWindows.back()->activateWindow();
                (void)QTest::qWaitForWindowActive(dialogWindows.back().get());
                return dialogWindows.back().get();
            };
        };
        const std::string sample =
            (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
        return {
            {"Betriebsliste", menu("menue_suchen_betrieb", "Frm_Auswahl_Betr")},
            {"Personenliste", menu("menue_suchen_person", "Frm_Auswahl_Pers")},
            {"Suchen", menu("menue_suchen_alle", "Frm_Suchen")},
            {"Auswertungen", menu("menue_extras_auswertungen", "Frm_Auswertung")},
            {"Optionen", menu("menue_extras_optionen", "Frm_Optionen")},
            {"Export", menu("menue_export_textdatei", "Frm_Verwaltungsblock")},
            {"Info", menu("menue_info", "Frm_Info")},
            {"Prüfbericht", dialog([this, sample] {
                 static tolma::transfer::ImportCheck report;
                 tolma::transfer::checkTransferFile(*g, sample, report);
                 return new tolma::ui::CheckReportWindow(sample, report, window.get(), g.get());
             })},
            {"Import zurücknehmen",
             dialog([this] { return new tolma::ui::TakeBackWindow(*g, window.get()); })},
        };
    }

    // The widgets the focus visits from where it stands, Tab after Tab.
    static QList<QWidget*> tabWalk(int steps) {
        QList<QWidget*> seen;
        for (int i = 0; i < steps; ++i) {
            QWidget* focus = QApplication::focusWidget();
            if (!focus) break;
            seen << focus;
            QTest::keyClick(focus, Qt::Key_Tab);
        }
        return seen;
    }

  private slots:
    void initTestCase() { tolma::ui::setUpAccessibility(); }

    void init() {
        home = uitest::makeProgram(
            g, window, dialogs,
            "tolma-tasten-" + std::to_string(QCoreApplication::applicationPid()));
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        tolma::core::A_Start(*g, home);
        tolma::transfer::Upd_1_Start(
            *g, (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string());
        window->refreshFromCore();
    }
    void cleanup() {
        dialogWindows.clear();
        window.reset();
        g.reset();
        std::filesystem::remove_all(home);
    }

    void tabReachesEveryControlOfEveryWindowAndLeavesItsGrids() {
        for (const auto& opener : openers()) {
            QWidget* form = opener.open();
            QVERIFY2(form, opener.name);
            QApplication::processEvents();
            QWidget* start = QApplication::focusWidget();
            QVERIFY2(start && form->isAncestorOf(start), opener.name);  // the focus is in it
            QList<QWidget*> stops;
            for (auto* w : form->findChildren<QWidget*>())
                if (isTabStop(w, form)) stops << w;
            const QList<QWidget*> seen = tabWalk(static_cast<int>(stops.size()) * 2 + 4);
            for (auto* w : stops) {
                // An exclusive group of radio buttons is one stop: the arrows choose in it.
                auto* radio = qobject_cast<QRadioButton*>(w);
                if (radio && !radio->isChecked() && radio->autoExclusive()) continue;
                QVERIFY2(
                    seen.contains(w),
                    qPrintable(QString("%1: %2 nicht erreicht").arg(opener.name, w->objectName())));
            }
            for (qsizetype i = 0; i + 1 < seen.size(); ++i) {
                QVERIFY2(form->isAncestorOf(seen[i]),
                         qPrintable(QString("%1: Tab verlässt das Fenster").arg(opener.name)));
                if (qobject_cast<QAbstractItemView*>(seen[i]))
                    QVERIFY2(seen[i + 1] != seen[i],
                             qPrintable(QString("%1: Tab bleibt in %2")
                                            .arg(opener.name, seen[i]->objectName())));
            }
            if (auto* sub = qobject_cast<QMdiSubWindow*>(form->parentWidget())) sub->close();
            QApplication::processEvents();
        }
    }

    void theRecordViewsTabStopsAreControlsThatShowTheirFocus() {
        showBusiness();
        auto* view = window->recordView();
        auto* tabs = view->findChild<QTabWidget*>("SSTab1");
        tabs->findChild<QTabBar*>()->setFocus();
        const QList<QWidget*> seen = tabWalk(400);
        QVERIFY(seen.size() > 20);
        for (auto* w : seen) {
            const QString kind = w->metaObject()->className();
            QVERIFY2(kind != "QWidget" && kind != "QScrollArea" && w != view &&
                         !qobject_cast<QGroupBox*>(w),
                     qPrintable("unsichtbarer Fokus auf " + kind + " " + w->objectName()));
        }
        // Alt with a tab's letter turns to it.
        const QString caption = tabs->tabText(3);
        const qsizetype amp = caption.indexOf('&');
        QVERIFY(amp >= 0);
        QTest::keyClick(tabs->findChild<QTabBar*>(), caption[amp + 1].toLatin1(), Qt::AltModifier);
        QCOMPARE(tabs->currentIndex(), 3);
    }

    void everyInteractiveControlHasANameOfItsOwn() {
        QStringList faults;
        showBusiness();
        auto* tabs = window->recordView()->findChild<QTabWidget*>("SSTab1");
        for (int tab = 0; tab < tabs->count(); ++tab) {
            tabs->setCurrentIndex(tab);
            QApplication::processEvents();
            collectNameFaults(QAccessible::queryAccessibleInterface(window->recordView()), faults);
        }
        for (const auto& opener : openers()) {
            QWidget* form = opener.open();
            QVERIFY2(form, opener.name);
            QApplication::processEvents();
            QStringList own;
            collectNameFaults(QAccessible::queryAccessibleInterface(form), own);
            for (const auto& f : own) faults << QString(opener.name) + ": " + f;
            if (auto* evaluation = qobject_cast<tolma::ui::EvaluationWindow*>(form)) {
                // The chart's numbers in words.
                auto* chart = QAccessible::queryAccessibleInterface(
                    evaluation->findChild<QWidget*>("Diagramm"));
                QVERIFY(chart->text(QAccessible::Description).contains("Saldo"));
                QVERIFY(chart->text(QAccessible::Description).contains(QRegularExpression("\\d")));
            }
            if (auto* sub = qobject_cast<QMdiSubWindow*>(form->parentWidget())) sub->close();
            QApplication::processEvents();
        }
        QVERIFY2(faults.isEmpty(), qPrintable(faults.join("\n")));
    }

    void mnemonicsAreUniqueInAWindowAndLeaveTheMenuItsLetters() {
        for (const auto& opener : openers()) {
            QWidget* form = opener.open();
            QVERIFY2(form, opener.name);
            const bool inMainWindow = form->window() == window.get();
            QString used = inMainWindow ? tolma::ui::kMenuLetters : "";
            QStringList captions;
            for (auto* b : form->findChildren<QAbstractButton*>())
                if (!qobject_cast<QToolButton*>(b) && !b->text().isEmpty()) captions << b->text();
            // Labels of boxes that only show get a letter where one is left.
            for (auto* l : form->findChildren<QLabel*>()) {
                auto* box = qobject_cast<QLineEdit*>(l->buddy());
                if (box && !box->isReadOnly()) captions << l->text();
            }
            for (const auto& caption : captions) {
                const auto key = QKeySequence::mnemonic(caption);
                QVERIFY2(!key.isEmpty(), qPrintable(QString("%1: %2").arg(opener.name, caption)));
                const QChar letter = key.toString().back().toLower();
                QVERIFY2(!used.contains(letter),
                         qPrintable(QString("%1: %2 doppelt").arg(opener.name, caption)));
                used += letter;
            }
            if (auto* sub = qobject_cast<QMdiSubWindow*>(form->parentWidget())) sub->close();
            QApplication::processEvents();
        }
    }

    void aListIsUsedByKeysAlone() {
        QCOMPARE(window->menuEntry("menue_suchen_betrieb")->shortcut(),
                 QKeySequence(QKeySequence::Open));
        QCOMPARE(window->menuEntry("menue_druck_betrieb")->shortcut(),
                 QKeySequence(QKeySequence::Print));
        QCOMPARE(window->menuEntry("menue_hilfe_suchen")->shortcut(),
                 QKeySequence(QKeySequence::HelpContents));
        QTest::keySequence(window.get(), QKeySequence::Open);
        auto* list = qobject_cast<tolma::ui::ListWindow*>(formIn(area(), "Frm_Auswahl_Betr"));
        QVERIFY(list);
        // Typing in the first box finds; F3 there sorts by its column.
        new QAbstractItemModelTester(list->findChild<QTableView*>("DBGrid1")->model(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, list);
        auto* box = qobject_cast<QLineEdit*>(QApplication::focusWidget());
        QVERIFY(box && list->isAncestorOf(box));
        QTest::keyClick(box, Qt::Key_F3);
        QCOMPARE(list->form().gridColumn, box->objectName().mid(6).toInt());
        // Tab to the grid, Down one row, Enter opens it as OK does.
        auto* grid = list->findChild<QTableView*>("DBGrid1");
        while (QApplication::focusWidget() != grid) {
            QVERIFY(list->isAncestorOf(QApplication::focusWidget()));
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        }
        QTest::keyClick(grid, Qt::Key_Down);
        const QString name =
            grid->model()->index(grid->currentIndex().row(), 1).data().toString().trimmed();
        QTest::keyClick(grid, Qt::Key_Return);
        QTRY_VERIFY(!window->menuEntry("menue_suchen_betrieb")->isChecked());
        QVERIFY(!name.isEmpty());

        // Escape is Abbrechen; Ctrl+F4 closes as well.
        for (const auto key :
             {QKeyCombination(Qt::Key_Escape), QKeyCombination(Qt::ControlModifier, Qt::Key_F4)}) {
            window->trigger("menue_suchen_person");
            QWidget* persons = formIn(area(), "Frm_Auswahl_Pers");
            QVERIFY(persons);
            QVERIFY(persons->isAncestorOf(QApplication::focusWidget()));
            QTest::keyClick(QApplication::focusWidget(), key.key(), key.keyboardModifiers());
            QTRY_VERIFY2(!window->menuEntry("menue_suchen_person")->isChecked(),
                         qPrintable(QKeySequence(key).toString()));
        }
        // A window that closes gives the keyboard back to the one the clerk came from.
        window->trigger("menue_suchen_alle");
        QWidget* search = formIn(area(), "Frm_Suchen");
        window->trigger("menue_suchen_betrieb");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QTRY_VERIFY(search->isAncestorOf(QApplication::focusWidget()));
    }

    void aBusinessOpenedFromTheSearchClosesAnOpenListAsItsOkWould() {
        window->trigger("menue_suchen_betrieb");
        QVERIFY(formIn(area(), "Frm_Auswahl_Betr"));
        window->trigger("menue_suchen_alle");
        auto* search = qobject_cast<tolma::ui::SearchWindow*>(formIn(area(), "Frm_Suchen"));
        QTest::keyClicks(search->box(), "Petersen");
        search->search();
        QVERIFY(search->table()->rowCount() > 0);
        QTest::keyClick(search->box(), Qt::Key_Return);
        QTRY_VERIFY(!formIn(area(), "Frm_Auswahl_Betr"));
        QVERIFY(!g->forms.marks.menue_suchen_betrieb);  // the print entries act again
        QCOMPARE(g->view.satz_gewaehlt, std::string("ja"));
    }

    void largeTextLeavesEveryControlWithinReach() {
        // Run at QT_SCALE_FACTOR=1.5 on a 1024×768 screen by its own test entry; at 1.0 too.
        const QRect screen = window->screen()->availableGeometry();
        QVERIFY(window->width() <= screen.width() && window->height() <= screen.height());
        showBusiness();
        auto* view = window->recordView();
        auto* tabs = view->findChild<QTabWidget*>("SSTab1");
        for (int tab = 0; tab < tabs->count(); ++tab) {
            tabs->setCurrentIndex(tab);
            QApplication::processEvents();
            for (auto* w : view->findChildren<QWidget*>()) {
                const bool control = qobject_cast<QLineEdit*>(w) ||
                                     qobject_cast<QPlainTextEdit*>(w) ||
                                     qobject_cast<QAbstractButton*>(w) || qobject_cast<QTabBar*>(w);
                if (!control || !w->isVisible()) continue;
                // Scrolled into view as the focus would scroll it: inner areas first.
                for (QWidget* p = w->parentWidget(); p; p = p->parentWidget())
                    if (auto* scroll = qobject_cast<QScrollArea*>(p)) {
                        const QPoint at = w->mapTo(scroll->widget(), QPoint(0, 0));
                        const int halfW = w->width() / 2, halfH = w->height() / 2;
                        scroll->ensureVisible(at.x() + halfW, at.y() + halfH, halfW + 1, halfH + 1);
                    }
                QApplication::processEvents();
                const QRect seen = visiblePart(w);
                const QSize room = roomAround(w);
                QVERIFY2(
                    seen.width() >= std::min(w->width(), room.width()) &&
                        seen.height() >= std::min(w->height(), room.height()),
                    qPrintable(
                        QString("Karte %1: %2 nicht erreichbar").arg(tab).arg(w->objectName())));
            }
        }
        // The lists fit the room they open in.
        for (const char* entry : {"menue_suchen_betrieb", "menue_suchen_person"}) {
            window->trigger(entry);
            QWidget* list = area()->activeSubWindow()->widget();
            for (auto* w : list->findChildren<QWidget*>()) {
                if (!isTabStop(w, list)) continue;
                QVERIFY2(visiblePart(w).size() == w->size(),
                         qPrintable(QString("%1: %2 nicht sichtbar").arg(entry, w->objectName())));
            }
            area()->activeSubWindow()->close();
            QApplication::processEvents();
        }
    }

    void coloursMeetContrastAA() {
        using tolma::ui::contrastRatio;
        const QPalette palette = QApplication::palette();
        for (auto group : {QPalette::Active, QPalette::Inactive}) {
            QVERIFY(contrastRatio(palette.color(group, QPalette::HighlightedText),
                                  palette.color(group, QPalette::Highlight)) >= 4.5);
            QVERIFY(contrastRatio(palette.color(group, QPalette::Text),
                                  palette.color(group, QPalette::Base)) >= 4.5);
            QVERIFY(contrastRatio(palette.color(group, QPalette::WindowText),
                                  palette.color(group, QPalette::Window)) >= 4.5);
        }
        // The current cell's frame against the selected row and against a plain cell.
        QVERIFY(contrastRatio(tolma::ui::focusFrame(true), palette.color(QPalette::Highlight)) >=
                3);
        QVERIFY(contrastRatio(tolma::ui::focusFrame(false), palette.color(QPalette::Base)) >= 3);
        // The chart's bars against each other and the background; the line is black on white.
        const auto chart = tolma::print::chartColors();
        QVERIFY(contrastRatio(chart.registrations, chart.deregistrations) >= 3);
        QVERIFY(contrastRatio(chart.registrations, chart.background) >= 3);
        QVERIFY(contrastRatio(chart.deregistrations, chart.background) >= 3);
        QVERIFY(contrastRatio(chart.balance, chart.background) >= 3);
    }
};

QTEST_MAIN(KeyboardTest)
#include "keyboard_test.moc"
