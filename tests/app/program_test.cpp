// The desktop program started as main starts it.
#include <sys/file.h>
#include <unistd.h>
#include <QDialogButtonBox>
#include <QFile>
#include <QLibraryInfo>
#include <QPushButton>
#include <QtTest>

#include <fcntl.h>
#include <filesystem>

#include "../core/fake_dialogs.h"
#include "app/program.h"
#include "ui/main_window.h"

class ProgramTest : public QObject {
    Q_OBJECT

    std::filesystem::path dir;

  private slots:
    void init() {
        dir = std::filesystem::temp_directory_path() /
              ("tolma-app-" + std::to_string(QCoreApplication::applicationPid()));
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir / "laufzeit");
        // The lock that tells a second copy, where no other test or running program holds it.
        qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString((dir / "laufzeit").string()));
    }
    void cleanup() { std::filesystem::remove_all(dir); }

    void aSecondCopyIsWarnedAtItsStartAndTheFirstIsNot() {
        // The first copy holds the instance lock and its settings store.
        const auto home = dir / "home";
        std::filesystem::create_directories(home / "DB");
        std::filesystem::copy_file(std::filesystem::path(TOLMA_STORE_DIR) / "TL_Org.mdb",
                                   home / "DB" / "TL_Org.mdb");
        const std::string lockFile =
            (dir / "laufzeit").string() + "/tolma-" + std::to_string(::getuid()) + ".lock";
        const int instance = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        QVERIFY(instance >= 0 && ::flock(instance, LOCK_EX | LOCK_NB) == 0);
        const auto marker = dir / "gesperrt";
        FILE* holder =
            ::popen((std::string(TOLMA_LOCK_PROBE) + " '" + (home / "DB" / "TL_Org.mdb").string() +
                     "' hold '" + marker.string() + "'")
                        .c_str(),
                    "w");
        QVERIFY(holder != nullptr);
        QTRY_VERIFY(std::filesystem::exists(marker));

        tolma::test::FakeDialogs second;
        {
            tolma::app::Program program(&second);
            program.globals().paths.dataDir = TOLMA_STORE_DIR;
            program.start(home);
            QVERIFY(!program.globals().stores.db_org.isSet());  // the store stays the first copy's
        }
        ::pclose(holder);
        ::close(instance);
        QVERIFY(!second.shown.empty());
        QCOMPARE(QString::fromStdString(second.shown.front().title), QString("Programmstart!"));
        QCOMPARE(second.shown.front().style, tolma::core::msg::vbCritical);

        // Once the first copy has gone, a copy starts without the warning and opens its stores.
        tolma::test::FakeDialogs alone;
        tolma::app::Program program(&alone);
        program.globals().paths.dataDir = TOLMA_STORE_DIR;
        program.start(home);
        QVERIFY(program.globals().stores.db_org.isSet());
        for (const auto& shown : alone.shown) QVERIFY(shown.title != "Programmstart!");
    }

    void qtsOwnDialogsAndButtonsSpeakGerman() {
        const QString catalogue =
            QLibraryInfo::path(QLibraryInfo::TranslationsPath) + "/qtbase_de.qm";
        if (!QFile::exists(catalogue))
            QSKIP("Qt's deutsche Übersetzungen (qt6-translations-l10n) fehlen.");
        QVERIFY(tolma::app::loadGermanQtTranslations(*QCoreApplication::instance()));
        QCOMPARE(QCoreApplication::translate("QFileDialog", "Open"), QString("Öffnen"));
        QCOMPARE(QCoreApplication::translate("QFileDialog", "Look in:"), QString("Suchen in:"));
        QDialogButtonBox buttons(QDialogButtonBox::Cancel);
        QCOMPARE(buttons.button(QDialogButtonBox::Cancel)->text().remove('&'),
                 QString("Abbrechen"));
    }
};

QTEST_MAIN(ProgramTest)
#include "program_test.moc"
