// The error log's file, byte for byte, and the question at the way down.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/error_log.h"
#include "core_fixture.h"

namespace tolma::test {
namespace {

const std::string kHead = std::string(88, '_') + "\r\n" + std::string(88, '#') + "\r\n" +
                          "[Error-Log vom      14.11.2023 22:13:20]\r\n";

std::string entry(const std::string& proc, const std::string& src, const std::string& nr,
                  const std::string& text, const std::string& loc, const std::string& val) {
    return std::string(38, '-') + "\r\n" + "Fehler in Sub/Function: " + proc + "\r\n" +
           "Fehler-Source:          " + src + "\r\n" + "Fehlernummer:           " + nr + "\r\n" +
           "Fehlertext:             " + text + "\r\n" + "Fehlerortung:           " + loc + "\r\n" +
           "Ortungs-Nummer/BetrNr:  " + val + "\r\n";
}

TEST(ErrorLogTest, OneHeadPerRunSevenLinesPerEntryInWindows1252) {
    CoreFixture f;
    f.start();
    core::A_Error_Log(f.g(), "Upd_5_Felder", "Feld zu klein für Datenmenge, Inhalt wurde gekürzt!",
                      "3163", "Dao.Field", "b-ort = Straße", "0");
    core::A_Error_Log(f.g(), "DB_Load", "", "3024", "Datei nicht gefunden.", "Fehlerortung: ", "0");
    EXPECT_TRUE(f.g().log.fehler_vorhanden);
    const std::string first =
        kHead +
        entry("Upd_5_Felder", "Feld zu klein f\xFCr Datenmenge, Inhalt wurde gek\xFCrzt!", "3163",
              "Dao.Field",
              "b-ort = Stra\xDF"
              "e",
              "0") +
        entry("DB_Load", "", "3024", "Datei nicht gefunden.", "Fehlerortung: ", "0");
    EXPECT_EQ(f.logText(), first);

    // A new run appends behind the old content, with a head of its own.
    f.newRun();
    f.start();
    core::A_Error_Log(f.g(), "A_Start", "DAO.DBEngine", "3045", "x", "Fehlerortung: ", "0");
    EXPECT_EQ(f.logText(),
              first + kHead + entry("A_Start", "DAO.DBEngine", "3045", "x", "Fehlerortung: ", "0"));
}

TEST(ErrorLogTest, LogIsOfferedOnlyWhenThisRunWroteToIt) {
    CoreFixture f;
    f.start();
    core::A_Log_anbieten(f.g());
    EXPECT_TRUE(f.dialogs.shown.empty());

    core::A_Error_Log(f.g(), "A_Start", "s", "1", "t", "Fehlerortung: ", "0");
    f.dialogs.answers = {core::msg::vbNo, core::msg::vbYes};
    core::A_Log_anbieten(f.g());
    EXPECT_TRUE(f.dialogs.viewed.empty());
    core::A_Log_anbieten(f.g());  // every door asks again
    ASSERT_EQ(f.dialogs.shown.size(), 2u);
    EXPECT_EQ(f.dialogs.shown[1].title, "Achtung!");
    EXPECT_EQ(f.dialogs.shown[1].style, 36);
    EXPECT_EQ(f.dialogs.shown[1].text, "Update-Fehler!\nWollen Sie die Log-Datei ('" +
                                           f.g().paths.pfad_log + "ERROR.LOG') ansehen?");
    EXPECT_EQ(f.dialogs.viewed, (std::vector<std::string>{f.g().paths.pfad_log + "ERROR.LOG"}));
}

TEST(ErrorLogTest, ANewLogIsTheOwnersAloneAndAnOldOneKeepsItsRights) {
    namespace fs = std::filesystem;
    CoreFixture f;
    f.start();
    const fs::path log = f.home() / "Log" / "ERROR.LOG";
    const mode_t before = ::umask(022);  // as most desktops set it
    core::A_Error_Log(f.g(), "A_Start", "s", "1", "t", "Fehlerortung: ", "0");
    ::umask(before);
    EXPECT_EQ(fs::status(log).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // An administrator opened it to a group: the next entry leaves that as it is.
    const auto shared = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(log, shared);
    core::A_Error_Log(f.g(), "A_Start", "s", "2", "t", "Fehlerortung: ", "0");
    EXPECT_EQ(fs::status(log).permissions() & fs::perms::all, shared);
    EXPECT_NE(f.logText().find("Fehlernummer:           2"), std::string::npos);
}

}  // namespace
}  // namespace tolma::test
