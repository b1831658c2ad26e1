// The main menu's handlers that no window stands between: the single-instance warning and the
// two entries below hidden ones.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <fstream>

#include "core/menu.h"
#include "core_fixture.h"

namespace tolma::test {
namespace {

TEST(MenuTest, ASecondCopyOfTheProgramIsWarnedOnceAndGoesOn) {
    TempDir dir;
    const auto lockFile = dir.path() / "instanz.lock";
    // Another process holds the lock, as a copy of the program that runs already.
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t other = ::fork();
    if (other == 0) {
        const int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT, 0600);
        ::flock(fd, LOCK_EX);
        (void)!::write(ready[1], "x", 1);
        ::sleep(5);
        ::_exit(0);
    }
    char c;
    ASSERT_EQ(::read(ready[0], &c, 1), 1);
    EXPECT_TRUE(core::App_PrevInstance(lockFile));
    ::kill(other, SIGKILL);
    ::waitpid(other, nullptr, 0);
    // Once the other copy has ended, this one takes the lock and keeps it.
    EXPECT_FALSE(core::App_PrevInstance(lockFile));
    EXPECT_FALSE(core::App_PrevInstance(lockFile));

    CoreFixture f;
    core::MDIForm_Load(f.g(), false);
    EXPECT_TRUE(f.dialogs.shown.empty());
    core::MDIForm_Load(f.g(), true);
    ASSERT_EQ(f.dialogs.shown.size(), 1u);
    EXPECT_EQ(f.dialogs.shown[0].title, "Programmstart!");
    EXPECT_EQ(f.dialogs.shown[0].style, core::msg::vbCritical);
    EXPECT_EQ(f.dialogs.shown[0].text,
              "Eine Instanz dieses Programmes läuft bereits,\nbitte beenden Sie alle Instanzen im "
              "Hintergrund bevor Sie "
              "''OK'' klicken!\n\n");
}

TEST(MenuTest, ConversionFileEntryOffersTheOptionsWhenNoFileIsSet) {
    CoreFixture f;
    f.start();
    f.g().lastMessage.msg_titel = "Letzter Titel";
    f.dialogs.answers = {core::msg::vbYes};
    core::menue_Ums_bearbeiten(f.g());
    ASSERT_FALSE(f.dialogs.shown.empty());
    EXPECT_EQ(f.dialogs.shown.back().text,
              "\nEs wurde keine Umsetz-Datei ausgewählt!\n\nWollen Sie eine auswählen?\n");
    EXPECT_EQ(f.dialogs.shown.back().title, "Letzter Titel");
    EXPECT_EQ(f.shell.shown, std::vector<std::string>{"Frm_Optionen"});

    const auto file = f.dir.path() / "umsetzung.txt";
    std::ofstream(file) << "x";
    f.g().settings.umsetzdatei_pfad = file.string();
    core::menue_Ums_bearbeiten(f.g());
    EXPECT_EQ(f.dialogs.viewed, std::vector<std::string>{file.string()});
}

class ChoosingDialogs : public FakeDialogs {
  public:
    std::string file;
    std::string chooseFile(const std::string&, const std::string& filter, int index) override {
        filters.push_back(filter + "#" + std::to_string(index));
        return file;
    }
    std::vector<std::string> filters;
};

TEST(MenuTest, ExportDatabaseIsChosenStoredAndAskedForAgain) {
    CoreFixture f;
    ChoosingDialogs dialogs;
    f.g().dialogs = &dialogs;
    f.start();
    dialogs.file = "/daten/export.mdb";
    core::menue_DB_auswahl_export(f.g());  // no path yet: straight to the dialog
    ASSERT_EQ(dialogs.filters.size(), 1u);
    EXPECT_EQ(dialogs.filters[0], "Alle Dateien (*.*)|*.*|mdb-Dateien (*.mdb)|*.mdb|#2");
    EXPECT_EQ(f.g().settings.exportdatenbank_pfad, "/daten/export.mdb");
    f.g().stores.rs_optionen.MoveFirst();
    EXPECT_EQ(f.g().stores.rs_optionen.Fields("exportdatenbank").Value().toString(),
              "/daten/export.mdb");

    dialogs.answers = {core::msg::vbNo};
    core::menue_DB_auswahl_export(f.g());
    ASSERT_FALSE(dialogs.shown.empty());
    EXPECT_EQ(dialogs.shown.back().title, "Auswahl der Export-Datenbank!");
    EXPECT_EQ(
        dialogs.shown.back().text,
        "\nExport-Datenbank = /daten/export.mdb\n\nWollen Sie eine andere Datenbank auswählen?\n");
    EXPECT_EQ(dialogs.filters.size(), 1u);  // No ends it before the dialog
}

}  // namespace
}  // namespace tolma::test
