// tolma-cli commands, run in-process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/cli.h"
#include "cli/terminal_dialogs.h"
#include "cli_fixture.h"
#include "store/disk_space.h"

namespace tolma::cli {
namespace {

TEST_F(CliTest, VersionPrintsTheVersionRecord) {
    auto r = runCli({"--version"});
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out, "TOLMA_4x_Access 420.151.3\n");
}

TEST_F(CliTest, SqlPrintsHeaderAndTabSeparatedRowsWithNullAsEmpty) {
    ASSERT_EQ(runCli({"--home", home, "sql",
                      "INSERT INTO betrieb ([betr-nr], [betr-hist-nr], [b-eintr-name]) VALUES "
                      "('1', '1', 'A\tB')"})
                  .out,
              "1\n");
    auto r = runCli({"--home", home, "sql",
                     "SELECT DISTINCTROW [betr-nr], [betr-ende], [b-eintr-name] FROM betrieb;"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "betr-nr\tbetr-ende\tb-eintr-name\n1\t\tA\\tB\n");
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(home) / "DB" / "tl_4x_b.mdb"));
}

TEST_F(CliTest, SqlOnTheSettingsStoreAndErrors) {
    auto r = runCli({"--home", home, "sql", "--settings",
                     "SELECT [gem-name] FROM gemeindekennzahlen WHERE [gem-kz] = '01001000'"});
    EXPECT_EQ(r.out, "gem-name\nFlensburg, Stadt\n");
    r = runCli({"--home", home, "sql", "SELECT * FROM gibtsnicht"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("3078"), std::string::npos);
    EXPECT_EQ(runCli({"--home", home, "sql"}).code, 2);
    EXPECT_EQ(runCli({"frage"}).code, 2);
}

TEST_F(CliTest, EveryCommandStartsFromNothingInAnEmptyHome) {
    auto r = runCli({"--home", home, "sql", "SELECT ALL * From betrieb"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, 16), "betr-nr\tbetr-his");
    for (const char* d : {"Log", "Dat", "DB"})
        EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(home) / d));
    r = runCli(
        {"--home", home, "sql", "--settings", "SELECT [datenart], [filter_aktiv] FROM Optionen"});
    EXPECT_EQ(r.out, "datenart\tfilter_aktiv\nBETRIEBSBEZOGEN\t0\n");
}

TEST_F(CliTest, HeldSettingsStoreFailsTheCommandWithALogEntry) {
    ASSERT_EQ(runCli({"--home", home, "sql", "SELECT 1"}).code, 0);
    const auto marker = std::filesystem::path(home) / "gesperrt";
    const std::string store = (std::filesystem::path(home) / "DB" / "TL_Org.mdb").string();
    FILE* holder = ::popen(
        (std::string(TOLMA_LOCK_PROBE) + " '" + store + "' hold '" + marker.string() + "'").c_str(),
        "w");
    ASSERT_NE(holder, nullptr);
    for (int i = 0; i < 200 && !std::filesystem::exists(marker); ++i) ::usleep(10000);
    auto r = runCli({"--home", home, "sql", "SELECT * FROM betrieb"});
    ::pclose(holder);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("Die Einstellungsdatenbank konnte nicht geöffnet werden: Die Datei '" +
                         store + "' wird bereits"),
              std::string::npos)
        << r.err;
    std::ifstream log(std::filesystem::path(home) / "Log" / "ERROR.LOG");
    std::stringstream text;
    text << log.rdbuf();
    EXPECT_NE(text.str().find("Fehler in Sub/Function: A_Start"), std::string::npos);
}

TEST_F(CliTest, ImportExportAndOptionsRunAsTheProgramDoes) {
    const std::string sample = std::string(TOLMA_SOURCE_DIR) + "/data/beispiel.tml";
    auto r = runCli({"--home", home, "import", "--no", sample});
    EXPECT_EQ(r.code, 3);  // the consent refused: cancelled
    EXPECT_NE(r.out.find("Datenbank-Update!: Der Vorgang wurde abgebrochen!"), std::string::npos);
    r = runCli({"--home", home, "import", "--yes", sample});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Datenbank-Update!: Die Daten wurden übertragen!"), std::string::npos);
    EXPECT_EQ(runCli({"--home", home, "import"}).code, 2);

    r = runCli({"--home", home, "export", "--set", "4=Frau Meier"});
    EXPECT_EQ(r.code, 0) << r.err;
    const std::string file = r.out.substr(r.out.rfind('\n', r.out.size() - 2) + 1,
                                          r.out.size() - r.out.rfind('\n', r.out.size() - 2) - 2);
    ASSERT_TRUE(std::filesystem::exists(file)) << r.out;
    std::ifstream exported(file, std::ios::binary);
    std::stringstream text;
    text << exported.rdbuf();
    EXPECT_NE(text.str().find("<ersteller>Frau Meier</ersteller>\r\n"), std::string::npos);
    EXPECT_NE(text.str().find("<zahl-betriebe-gesamt>52</zahl-betriebe-gesamt>"),
              std::string::npos);
    EXPECT_EQ(runCli({"--home", home, "export", "--set", "15=x"}).code, 2);

    r = runCli({"--home", home, "options", "--filter", "on", "--gemeinde", "01054056"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Filter: aktiviert\nGemeinde: 01054056  Husum, Stadt\n"),
              std::string::npos)
        << r.out;
    r = runCli({"--home", home, "options", "--datenart", "MELDUNGSBEZOGEN"});
    EXPECT_NE(r.out.find("Daten-Art: MELDUNGSBEZOGEN"), std::string::npos) << r.out;
    EXPECT_EQ(runCli({"--home", home, "options", "--filter", "vielleicht"}).code, 2);
}

// A small transfer file of the store's kind: one business per number, each with an address.
std::string transferFile(const std::string& path, const std::vector<std::string>& numbers) {
    std::string t =
        "<gewerbedatei xmlns:tolmaML='http://www.tolma.de/tolma.htm'>\r\n<verwaltungsblock>\r\n"
        "<verarbeitungsart>MIGRATION</verarbeitungsart>\r\n<struktur>BETRIEBSBEZOGEN</"
        "struktur>\r\n<tml-version>1.5.1</tml-version>\r\n<zahl-betriebe-gesamt>" +
        std::to_string(numbers.size()) +
        "</zahl-betriebe-gesamt>\r\n</verwaltungsblock>\r\n<datenblock>\r\n";
    for (const auto& nr : numbers)
        t += "<betrieb>\r\n<gem-kz>01054056</gem-kz>\r\n<betr-nr>" + nr +
             "</betr-nr>\r\n<betr-hist-nr>1</betr-hist-nr>\r\n<b-eintr-name>Betrieb " + nr +
             "</b-eintr-name>\r\n<adressen>\r\n<adresse art=\"1\">\r\n<b-adr-art>1</"
             "b-adr-art>\r\n<b-strasse>Markt " +
             nr + "</b-strasse>\r\n</adresse>\r\n</adressen>\r\n</betrieb>\r\n";
    t += "</datenblock>\r\n</gewerbedatei>\r\n";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << t;
    return path;
}

std::vector<std::vector<std::string>> tabRows(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) fields.push_back(cell);
        rows.push_back(fields);
    }
    return rows;
}

TEST_F(CliTest, ImportsListsTheRunsAndUndoTakesBackARunAndEveryLaterOne) {
    const std::string sample = std::string(TOLMA_SOURCE_DIR) + "/data/beispiel.tml";
    const std::string header =
        "Lauf\tDatum\tDatei\tBetriebe\tZurückgenommen\tNach Löschfrist gelöscht\n";
    auto r = runCli({"--home", home, "imports"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, header);
    r = runCli({"--home", home, "undo", "--yes"});
    EXPECT_EQ(r.code, 1);  // nothing to take back
    EXPECT_NE(r.out.find("Es gibt keinen Importlauf, der zurückgenommen werden kann."),
              std::string::npos)
        << r.out;

    ASSERT_EQ(runCli({"--home", home, "import", "--yes", sample}).code, 0);
    const std::string count = "SELECT count(*) AS n FROM betrieb";
    const std::string afterFirst = runCli({"--home", home, "sql", count}).out;
    ASSERT_EQ(afterFirst, "n\n52\n");
    const std::string second = transferFile(home + "/zweite.tml", {"900001", "900002"});
    const std::string third = transferFile(home + "/dritte.tml", {"900003"});
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", second}).code, 0);
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", third}).code, 0);
    ASSERT_EQ(runCli({"--home", home, "sql", count}).out, "n\n55\n");

    r = runCli({"--home", home, "imports"});
    EXPECT_EQ(r.code, 0) << r.err;
    auto rows = tabRows(r.out);
    ASSERT_EQ(rows.size(), 4u) << r.out;
    EXPECT_EQ(r.out.substr(0, header.size()), header);
    const std::vector<std::pair<std::string, std::string>> expected{
        {"beispiel.tml", "52"}, {"zweite.tml", "2"}, {"dritte.tml", "1"}};
    for (size_t i = 1; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 6u) << r.out;
        EXPECT_EQ(rows[i][0], std::to_string(i));
        EXPECT_EQ(rows[i][1].size(), 19u) << rows[i][1];  // DD.MM.YYYY HH:MM:SS
        EXPECT_EQ(std::filesystem::path(rows[i][2]).filename(), expected[i - 1].first);
        EXPECT_EQ(rows[i][3], expected[i - 1].second);
        EXPECT_EQ(rows[i][4], "nein");
    }

    r = runCli({"--home", home, "undo", "--yes", "--lauf", "2"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Zurückgenommen: Lauf 3 vom "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(": dritte.tml, 1 Betrieb\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(": zweite.tml, 2 Betriebe\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("beispiel.tml"), std::string::npos) << r.out;
    EXPECT_EQ(runCli({"--home", home, "sql", count}).out, afterFirst);
    rows = tabRows(runCli({"--home", home, "imports"}).out);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1][4], "nein");
    EXPECT_EQ(rows[2][4], "ja");
    EXPECT_EQ(rows[3][4], "ja");

    EXPECT_EQ(runCli({"--home", home, "undo", "--yes", "--lauf", "3"}).code, 1);  // gone already
    EXPECT_EQ(runCli({"--home", home, "undo", "--yes", "--lauf", "0"}).code, 2);
    r = runCli({"--home", home, "undo", "--yes"});  // the newest run still standing
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find(": beispiel.tml, 52 Betriebe\n"), std::string::npos) << r.out;
    EXPECT_EQ(runCli({"--home", home, "sql", count}).out, "n\n0\n");
    EXPECT_EQ(runCli({"--home", home, "undo", "--yes"}).code, 1);
}

// Rows changed by a statement are written anew from the file when it is read again.
TEST_F(CliTest, TheSameFileReadAgainUndoesWhatAStatementChanged) {
    const std::string file = transferFile(home + "/eins.tml", {"900001", "900002"});
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", file}).code, 0);
    const std::string dump = "SELECT [betr-nr], [b-eintr-name] FROM betrieb ORDER BY [betr-nr]";
    const std::string before = runCli({"--home", home, "sql", dump}).out;
    ASSERT_EQ(runCli({"--home", home, "sql", "UPDATE betrieb SET [b-eintr-name] = 'Anders'"}).out,
              "2\n");
    ASSERT_NE(runCli({"--home", home, "sql", dump}).out, before);
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", file}).code, 0);
    EXPECT_EQ(runCli({"--home", home, "sql", dump}).out, before);
}

TEST_F(CliTest, ImportCheckPrintsTheReportAndKeepsNothing) {
    const std::string sample = std::string(TOLMA_SOURCE_DIR) + "/data/beispiel.tml";
    ASSERT_EQ(
        runCli({"--home", home, "import", "--yes", transferFile(home + "/vorher.tml", {"900001"})})
            .code,
        0);
    const std::string dump = "SELECT [betr-nr], [b-eintr-name] FROM betrieb ORDER BY [betr-nr]";
    const std::string before = runCli({"--home", home, "sql", dump}).out;
    ASSERT_EQ(before, "betr-nr\tb-eintr-name\n900001\tBetrieb 900001\n");
    const std::string runs = runCli({"--home", home, "imports"}).out;

    auto r = runCli({"--home", home, "import", "--check", sample});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "Prüfung der Transferdatei beispiel.tml");
    EXPECT_NE(r.out.find("  Datenart:     BETRIEBSBEZOGEN\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  Ersteller:    Kreis Nordfriesland, Fachdienst Ordnung\n"),
              std::string::npos);
    EXPECT_NE(r.out.find("Betriebe in der Datei: 52\n  neu im Bestand: 52\n"), std::string::npos)
        << r.out;
    EXPECT_EQ(runCli({"--home", home, "sql", dump}).out, before);
    EXPECT_EQ(runCli({"--home", home, "imports"}).out, runs);  // a check is no run

    r = runCli({"--home", home, "import", "--check", home + "/fehlt.tml"});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("fehlt.tml"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("kann nicht gelesen werden"), std::string::npos) << r.err;
    EXPECT_EQ(runCli({"--home", home, "import", "--check"}).code, 2);
}

// A file that gives no business is a failure a script must see: the system's message, then
// the cause, and exit 1; the check says the same.
TEST_F(CliTest, AnImportThatReadsNoBusinessFailsAndSaysWhy) {
    const auto dir = std::filesystem::path(home) / "Dateien";
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "leer.tml");
    std::string utf16 = "\xFF\xFE";
    for (char c : std::string("<gewerbedatei><datenblock><betrieb><betr-nr>1</betr-nr>"))
        utf16 += std::string{c, '\0'};
    std::ofstream(dir / "utf16.tml", std::ios::binary) << utf16;
    std::ofstream(dir / "ohne.tml") << "<gewerbedatei>\n</gewerbedatei>\n";
    struct Case {
        std::string file, cause;
    } cases[] = {
        {(dir / "fehlt.tml").string(), "Die Datei gibt es nicht."},
        {(dir / "leer.tml").string(), "Die Datei ist leer."},
        {(dir / "utf16.tml").string(), "Die Datei ist in UTF-16 geschrieben"},
        {(dir / "ohne.tml").string(), "Die Datei enthält kein Element <betrieb>."},
    };
    for (const auto& cs : cases) {
        SCOPED_TRACE(cs.file);
        auto r = runCli({"--home", home, "import", "--yes", cs.file});
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.out.find("Die Transfer-Datei enthält keine Gewerbedaten!"), std::string::npos);
        EXPECT_NE(r.err.find(cs.cause), std::string::npos) << r.err;
        r = runCli({"--home", home, "import", "--check", cs.file});
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find(cs.cause), std::string::npos) << r.err;
    }
}

TEST_F(CliTest, AnImportEndsWithItsCounts) {
    const std::string file = (std::filesystem::path(home) / "Dateien" / "a.tml").string();
    transferFile(file, {"1", "2", "3"});
    auto r = runCli({"--home", home, "import", "--yes", file});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Betriebe eingelesen: 3 (neu: 3, ersetzt: 0); darunter Abmeldungen: 0\n"),
              std::string::npos)
        << r.out;
    transferFile(file, {"3", "4"});
    r = runCli({"--home", home, "import", "--yes", file});
    EXPECT_NE(r.out.find("Betriebe eingelesen: 2 (neu: 1, ersetzt: 1)"), std::string::npos)
        << r.out;
}

// Help explains in German and runs nothing; a wrong call names what is wrong.
TEST_F(CliTest, HelpExplainsAndWrongCallsSayWhatIsWrong) {
    auto r = runCli({"--help"});
    EXPECT_EQ(r.code, 0);
    for (const char* part : {"Befehle:", "--answers JN...", "Rückgabewerte:", "auswertung"})
        EXPECT_NE(r.out.find(part), std::string::npos) << part;
    EXPECT_EQ(r.out.find("--von JJJJ-MM --bis"), std::string::npos);  // both are optional
    for (const char* command : {"import", "imports", "undo", "export", "print", "search",
                                "auswertung", "options", "sql"}) {
        r = runCli({"--home", home, command, "--help"});
        EXPECT_EQ(r.code, 0) << command;
        EXPECT_NE(r.out.find(std::string("tolma-cli [--home VERZEICHNIS] ")), std::string::npos)
            << command;
        EXPECT_NE(r.out.find("Rückgabewerte:"), std::string::npos) << command;
    }
    // Nothing ran: no home was made, no statement run, no file asked about.
    EXPECT_FALSE(std::filesystem::exists(home));
    // The help page knows the functions added to the menus, and the commands.
    std::ifstream page(std::string(TOLMA_SOURCE_DIR) + "/data/hilfe.htm");
    const std::string html((std::istreambuf_iterator<char>(page)), {});
    for (const char* part : {"Suchen...", "Transferdatei prüfen...", "Import\nzurücknehmen...",
                             "Auswertungen...", "<code>undo</code>", "<code>search</code>"})
        EXPECT_NE(html.find(part), std::string::npos) << part;
    struct Case {
        std::vector<std::string> args;
        std::string says;
    } cases[] = {
        {{"search", "--nur", "firmen", "Meyer"},
         "--nur erwartet „betriebe“ oder „personen“, nicht „firmen“."},
        {{"search", "--limit", "viele", "Meyer"}, "--limit erwartet eine Zahl"},
        {{"search", "--gross", "Meyer"}, "unbekannte Option --gross"},
        {{"undo", "--lauf", "abc"},
         "--lauf erwartet die Nummer eines Laufs (1, 2, ...), nicht „abc“."},
        {{"import"}, "es fehlt die Datei."},
        {{"--gross", "import"}, "Unbekannte Option: --gross"},
    };
    for (const auto& cs : cases) {
        std::vector<std::string> args{"--home", home};
        args.insert(args.end(), cs.args.begin(), cs.args.end());
        r = runCli(args);
        EXPECT_EQ(r.code, 2) << cs.says;
        EXPECT_NE(r.err.find(cs.says), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("--help"), std::string::npos) << r.err;
    }
}

TEST(TerminalDialogsTest, MessagesAsTitleAndTextAndScriptedAnswers) {
    std::ostringstream out;
    std::istringstream in;
    TerminalDialogs d(out, in, false);
    EXPECT_EQ(d.MsgBox("Die Daten wurden\nübertragen!", 64, "Datenbank-Update!"), 1);
    d.setMode(TerminalDialogs::Mode::Script, "jn");
    EXPECT_EQ(d.MsgBox("Weiter?", 68, "Frage"), 6);
    EXPECT_EQ(d.MsgBox("Weiter?", 36, "Frage"), 7);
    EXPECT_EQ(d.MsgBox("Noch einmal?", 36, "Frage"), 7);  // beyond the script: No
    EXPECT_EQ(out.str(),
              "Datenbank-Update!: Die Daten wurden übertragen!\nFrage: Weiter? -> Ja\n"
              "Frage: Weiter? -> Nein\nFrage: Noch einmal? -> Nein\n");
    std::istringstream typed("j\n");
    TerminalDialogs asking(out, typed, true);
    EXPECT_EQ(asking.MsgBox("Jetzt?", 36, "Frage"), 6);
    TerminalDialogs noTerminal(out, typed, false);
    EXPECT_EQ(noTerminal.MsgBox("Jetzt?", 36, "Frage"), 7);
}

TEST_F(CliTest, SearchPrintsItsHitsWithAHeaderAndEndsWellAlsoWithoutHits) {
    const std::string sample =
        (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", sample}).code, 0);
    const std::string header =
        "Art\tBetriebsnummer\tHist.-Nr.\tName\tStraße\tOrt\tGemeinde-KZ\tStatus\n";
    auto r = runCli({"--home", home, "search", "--nur", "personen", "--limit", "1", "Karstens"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, header.size()), header);
    EXPECT_EQ(r.out.substr(header.size(), r.out.find('\t', header.size()) - header.size()),
              "Person");
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2);
    r = runCli({"--home", home, "search", "Xylophonbau"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, header);
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{}, {"--nur", "vereine", "Hansen"}, {"--limit", "0", "Hansen"}}) {
        std::vector<std::string> args{"--home", home, "search"};
        args.insert(args.end(), bad.begin(), bad.end());
        EXPECT_EQ(runCli(args).code, 2) << (bad.empty() ? "" : bad[0]);
    }
}

std::string pdfText(const std::string& pdf) {
    const std::string text = pdf + ".txt";
    if (std::system(("pdftotext '" + pdf + "' '" + text + "'").c_str()) != 0) return {};
    std::ifstream in(text);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST_F(CliTest, EvaluationNamesItsPeriodFirstWritesItsFilesAndRefusesAMalformedPeriod) {
    const std::string sample =
        (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", sample}).code, 0);
    const std::string pdf = home + "/auswertung.pdf", csv = home + "/auswertung.csv",
                      png = home + "/auswertung.png";
    // Both forms of a month, as shown and as scripts write them.
    auto r = runCli({"--home", home, "auswertung", "--von", "01.2000", "--bis", "2026-12",
                     "--gruppe", "gemeinde", "--csv", csv, "--pdf", pdf, "--png", png});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "Zeitraum: 01.2000 – 12.2026");
    EXPECT_NE(r.out.find("\nGemeinde\tAnmeldungen\tUmmeldungen\tAbmeldungen\tSaldo\tNebenerwerb\n"),
              std::string::npos);
    EXPECT_EQ(r.out.substr(r.out.rfind('\n', r.out.size() - 2) + 1, 6), "Summe\t");
    {
        std::ifstream in(csv, std::ios::binary);
        std::string first;
        std::getline(in, first);
        EXPECT_EQ(first, "\xEF\xBB\xBFZeitraum: 01.2000 – 12.2026\r");
    }
    EXPECT_GT(std::filesystem::file_size(png), 1000u);
    const bool pdftotext = std::system("command -v pdftotext > /dev/null") == 0;
    if (pdftotext) {
        const std::string text = pdfText(pdf);
        EXPECT_NE(text.find("Auswertung der Gewerbemeldungen"), std::string::npos) << text;
        EXPECT_NE(text.find("Zeitraum: 01.2000 – 12.2026"), std::string::npos) << text;
        EXPECT_NE(text.find("Summe"), std::string::npos);
    }

    // Without a period: the twelve calendar months up to the sample's newest, March 2026.
    r = runCli({"--home", home, "auswertung"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "Zeitraum: 04.2025 – 03.2026");

    // Every section stands whole in the PDF, however long its name. pdftotext joins a name's
    // lines and drops the hyphen of "Finanz- und" at a line's end: blanks and hyphens aside, the
    // page's text holds each line's name of the table.
    r = runCli(
        {"--home", home, "auswertung", "--von", "2000-01", "--bis", "2026-12", "--pdf", pdf});
    EXPECT_EQ(r.code, 0) << r.err;
    if (pdftotext) {
        auto squeezed = [](std::string s) {
            std::erase_if(s, [](char c) { return c == ' ' || c == '\n' || c == '-'; });
            return s;
        };
        const std::string text = squeezed(pdfText(pdf));
        std::istringstream lines(r.out);
        std::string line;
        int sections = 0;
        while (std::getline(lines, line))
            if (line.size() > 2 && line[1] == ' ' && line.find('\t') != std::string::npos) {
                const std::string name = line.substr(0, line.find('\t'));
                EXPECT_NE(text.find(squeezed(name)), std::string::npos) << name << "\n" << text;
                ++sections;
            }
        EXPECT_GE(sections, 5);
    }

    for (const std::vector<std::string>& bad : {std::vector<std::string>{"--von", "2025-13"},
                                                {"--bis", "2025/01"},
                                                {"--von", "1.2025"},
                                                {"--von", "05.2025", "--bis", "2025-04"},
                                                {"--gruppe", "branche"},
                                                {"--von"}}) {
        std::vector<std::string> args{"--home", home, "auswertung"};
        args.insert(args.end(), bad.begin(), bad.end());
        r = runCli(args);
        EXPECT_EQ(r.code, 2) << bad[0];
        if (bad.size() == 2 && bad[0] != "--gruppe") {
            EXPECT_NE(r.err.find("Ungültiger Zeitraum: '" + bad[1] + "'"), std::string::npos)
                << r.err;
        }
    }
}

// Outputs on a disk that runs full: the command fails with the cause and a log entry, and leaves
// neither a cut file under the name nor its temporary file.
TEST_F(CliTest, OutputsOnAFullDiskFailTheCommandAndLeaveNoFile) {
    const std::string sample =
        (std::filesystem::path(TOLMA_SOURCE_DIR) / "data" / "beispiel.tml").string();
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", sample}).code, 0);
    const std::string out = home + "/ausgabe";
    const std::vector<std::string> evaluation{"--home",  home,    "auswertung", "--von",
                                              "2000-01", "--bis", "2026-12"};
    const std::vector<std::string> record{"--home",    home,           "print",          "record",
                                          "--betr-nr", "010540001037", "--betr-hist-nr", "3"};
    const std::vector<std::string> persons{"--home", home, "print", "list", "personen"};
    struct Case {
        std::vector<std::string> command;
        std::string option;
        long long room;
    } cases[] = {{evaluation, "--csv", 0},     {evaluation, "--csv", 16},
                 {evaluation, "--png", 0},     {evaluation, "--png", 4'096},
                 {evaluation, "--pdf", 4'096}, {evaluation, "--pdf", 32'768},
                 {record, "--pdf", 0},         {record, "--pdf", 8'192},
                 {record, "--pdf", 24'576},    {persons, "--pdf", 8'192}};
    for (const Case& c : cases) {
        const std::string what = c.command[3] + " " + c.option + " " + std::to_string(c.room);
        std::vector<std::string> args = c.command;
        args.insert(args.end(), {c.option, out});
        store::disk_space::limit(c.room);
        const Result r = runCli(args);
        store::disk_space::unlimit();
        EXPECT_EQ(r.code, 1) << what << "\n" << r.err;
        EXPECT_NE(r.err.find("Nicht genügend Speicherplatz auf dem Datenträger"), std::string::npos)
            << what << "\n"
            << r.err;
        EXPECT_NE(r.err.find(out), std::string::npos) << what << "\n" << r.err;
        EXPECT_FALSE(std::filesystem::exists(out)) << what;
        EXPECT_FALSE(std::filesystem::exists(out + ".unvollstaendig")) << what;
    }
    std::ifstream log(std::filesystem::path(home) / "Log" / "ERROR.LOG", std::ios::binary);
    std::stringstream text;
    text << log.rdbuf();
    EXPECT_NE(text.str().find("Fehler in Sub/Function: Auswertung\r\n"), std::string::npos);
    EXPECT_NE(text.str().find("Fehler in Sub/Function: tolma-cli print\r\n"), std::string::npos);
}

}  // namespace
}  // namespace tolma::cli
