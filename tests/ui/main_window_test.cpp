// The main window starts with its design caption and size, and closes cleanly.
#include <QMdiArea>
#include <QtTest>

#include "ui/main_window.h"
#include "ui/twips.h"

class MainWindowTest : public QObject {
    Q_OBJECT

private slots:
    void startsWithDesignCaptionAndSize() {
        tolma::ui::MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.objectName(), QString("MDIForm1"));
        QCOMPARE(w.windowTitle(), QString("TOLMA_4x_Access (betriebsbezogene Daten)"));
        QCOMPARE(w.width(), tolma::ui::twipsToPixels(&w, 12165));
        QCOMPARE(w.height(), tolma::ui::twipsToPixels(&w, 8940));
        QVERIFY(w.mdiArea() != nullptr);
        QVERIFY(w.close());
    }
};

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
