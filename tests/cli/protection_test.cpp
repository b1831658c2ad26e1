// Deleting businesses after the period since their deregistration, and the record of it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "cli_fixture.h"

namespace tolma::cli {
namespace {

struct Business {
    std::string nr, art, ende;  // ende as in the file: JJJJMMTT, or empty
    std::vector<std::pair<std::string, std::string>> persons;  // pers-nr, fam-name
    std::string hist = "1";
};

std::string transferFile(const std::string& path, const std::vector<Business>& businesses,
                         const std::string& structure = "BETRIEBSBEZOGEN") {
    std::string t =
        "<gewerbedatei>\n<verwaltungsblock>\n<verarbeitungsart>MIGRATION</verarbeitungsart>\n"
        "<struktur>" +
        structure +
        "</struktur>\n<tml-version>1.5.1</tml-version>\n"
        "<zahl-betriebe-gesamt>" +
        std::to_string(businesses.size()) +
        "</zahl-betriebe-gesamt>\n</verwaltungsblock>\n<datenblock>\n";
    for (const auto& b : businesses) {
        t += "<betrieb>\n<gem-kz>01054056</gem-kz>\n<betr-nr>" + b.nr +
             "</betr-nr>\n<betr-hist-nr>" + b.hist + "</betr-hist-nr>\n<b-eintr-name>Betrieb " +
             b.nr + "</b-eintr-name>\n<meld-art>" + b.art + "</meld-art>\n";
        if (!b.ende.empty()) t += "<betr-ende>" + b.ende + "</betr-ende>\n";
        t += "<meld-datum>20100101</meld-datum>\n<adressen>\n<adresse art=\"1\">\n"
             "<b-adr-art>1</b-adr-art>\n<b-strasse>Markt " +
             b.nr + "</b-strasse>\n</adresse>\n</adressen>\n<personen>\n";
        for (const auto& [nr, name] : b.persons)
            t += "<person>\n<p-funktion>1</p-funktion>\n<pers-nr>" + nr +
                 "</pers-nr>\n<p-art>NP</p-art>\n<fam-name>" + name +
                 "</fam-name>\n<vornamen>Anna</vornamen>\n</person>\n";
        t += "</personen>\n</betrieb>\n";
    }
    t += "</datenblock>\n</gewerbedatei>\n";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << t;
    return path;
}

std::string count(const std::string& home, const std::string& query) {
    const auto r = runCli({"--home", home, "sql", "SELECT count(*) AS n FROM " + query});
    return r.out.substr(r.out.find('\n') + 1);
}

bool fileHolds(const std::filesystem::path& file, const std::string& bytes) {
    std::ifstream in(file, std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(in)), {});
    return all.find(bytes) != std::string::npos;
}

TEST_F(CliTest, LoeschenChecksThenDeletesExactlyTheDeregisteredBusinessesAndTheirOwnPersons) {
    // 100 ended long ago, with a person of its own and one it shares with 200, which goes on;
    // 300 ended lately.
    const std::string file = transferFile(
        home + "/daten.tml", {{"100", "03", "20151231", {{"P1", "Quendtwick"}, {"P2", "Geteilt"}}},
                              {"200", "01", "", {{"P2", "Geteilt"}}},
                              {"300", "03", "20240115", {{"P3", "Spaet"}}}});
    // Read twice, 100 the second time with its persons the other way round: the second run's
    // record holds old images of it.
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", file}).code, 0);
    const std::string again = transferFile(
        home + "/wieder.tml", {{"100", "03", "20151231", {{"P2", "Geteilt"}, {"P1", "Quendtwick"}}},
                               {"200", "01", "", {{"P2", "Geteilt"}}},
                               {"300", "03", "20240115", {{"P3", "Spaet"}}}});
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", again}).code, 0);
    ASSERT_EQ(count(home, "betrieb"), "3\n");

    auto r = runCli({"--home", home, "loeschen", "--abgemeldet-vor", "2020-01-01", "--pruefen"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Abgemeldet vor dem 01.01.2020: 1 Betrieb\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  100\tBetrieb 100\tabgemeldet am 31.12.2015\n"), std::string::npos);
    EXPECT_NE(r.out.find("gelöscht werden:\n  P1\tQuendtwick, Anna\n"), std::string::npos);
    EXPECT_NE(r.out.find("anderen Betrieb verbunden):\n  P2\tGeteilt, Anna\n"), std::string::npos);
    EXPECT_EQ(r.out.find("300"), std::string::npos);
    EXPECT_EQ(count(home, "betrieb"), "3\n");  // the check changes nothing

    r = runCli({"--home", home, "--no", "loeschen", "--abgemeldet-vor", "2020-01-01"});
    EXPECT_EQ(r.code, 3);
    EXPECT_EQ(count(home, "betrieb"), "3\n");

    r = runCli({"--home", home, "--yes", "loeschen", "--abgemeldet-vor", "2020-01-01"});
    EXPECT_EQ(r.code, 0) << r.err << r.out;
    EXPECT_NE(r.out.find("Gelöscht: 1 Betrieb, 1 Person ("), std::string::npos) << r.out;
    EXPECT_EQ(count(home, "betrieb WHERE [betr-nr] = '100'"), "0\n");
    EXPECT_EQ(count(home, "betrieb_adresse WHERE [betr-nr] = '100'"), "0\n");
    EXPECT_EQ(count(home, "beziehung_betrieb_person WHERE [bez-betr-nr] = '100'"), "0\n");
    EXPECT_EQ(count(home, "person WHERE [pers-nr] = 'P1'"), "0\n");
    EXPECT_EQ(count(home, "person WHERE [pers-nr] IN ('P2', 'P3')"), "2\n");
    EXPECT_EQ(count(home, "beziehung_betrieb_person"), "2\n");
    // Nothing of it is left to find, to take back, or in the file.
    r = runCli({"--home", home, "search", "Quendtwick"});
    EXPECT_EQ(r.out.find("Quendtwick"), std::string::npos) << r.out;
    r = runCli({"--home", home, "imports"});
    EXPECT_NE(r.out.find("\tja\n"), std::string::npos) << r.out;  // the runs say so
    ASSERT_EQ(runCli({"--home", home, "--yes", "undo", "--lauf", "1"}).code, 0);
    EXPECT_EQ(count(home, "betrieb WHERE [betr-nr] = '100'"), "0\n");
    EXPECT_EQ(count(home, "person WHERE [pers-nr] = 'P1'"), "0\n");
    for (const auto& f : std::filesystem::directory_iterator(std::filesystem::path(home) / "DB"))
        EXPECT_FALSE(fileHolds(f.path(), "Quendtwick")) << f.path();

    r = runCli({"--home", home, "protokoll"});
    EXPECT_EQ(r.code, 0) << r.err;
    const auto lines = std::count(r.out.begin(), r.out.end(), '\n');
    EXPECT_EQ(lines, 2) << r.out;
    EXPECT_NE(r.out.find("\tLöschung\tabgemeldet vor dem 01.01.2020\t100\t"), std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find("Quendtwick"), std::string::npos);
}

TEST_F(CliTest, LoeschenByStatesGoesByTheLatestStateAndTakesEveryStateOfTheBusiness) {
    // 100 registered, then deregistered long ago; 200 deregistered long ago and registered
    // again, so it stays with both its states.
    const std::string file = transferFile(home + "/staende.tml",
                                          {{"100", "01", "", {{"P1", "Erst"}}, "1"},
                                           {"100", "03", "20151231", {{"P1", "Erst"}}, "2"},
                                           {"200", "03", "20141231", {{"P2", "Zweit"}}, "1"},
                                           {"200", "01", "", {{"P2", "Zweit"}}, "2"}},
                                          "MELDUNGSBEZOGEN");
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", file}).code, 0);
    ASSERT_EQ(count(home, "betrieb"), "4\n");
    const auto r = runCli({"--home", home, "--yes", "loeschen", "--abgemeldet-vor", "2020-01-01"});
    EXPECT_EQ(r.code, 0) << r.err << r.out;
    EXPECT_NE(r.out.find("  100\tBetrieb 100\tabgemeldet am 31.12.2015\n"), std::string::npos)
        << r.out;
    EXPECT_EQ(count(home, "betrieb WHERE [betr-nr] = '100'"), "0\n");
    EXPECT_EQ(count(home, "betrieb WHERE [betr-nr] = '200'"), "2\n");
    EXPECT_EQ(count(home, "person"), "1\n");
}

TEST_F(CliTest, LoeschenRefusesWrongDaysAndSaysWhenNothingIsDue) {
    EXPECT_EQ(runCli({"--home", home, "loeschen"}).code, 2);
    EXPECT_EQ(runCli({"--home", home, "loeschen", "--abgemeldet-vor", "2021-02-29"}).code, 2);
    EXPECT_EQ(runCli({"--home", home, "loeschen", "--abgemeldet-vor", "01.01.2020"}).code, 2);
    const std::string file =
        transferFile(home + "/daten.tml", {{"100", "03", "20151231", {{"P1", "Quendtwick"}}}});
    ASSERT_EQ(runCli({"--home", home, "import", "--yes", file}).code, 0);
    const auto r = runCli({"--home", home, "--yes", "loeschen", "--abgemeldet-vor", "2015-12-31"});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Es gibt keine Betriebe, die vor dem 31.12.2015 abgemeldet wurden."),
              std::string::npos)
        << r.out;
    EXPECT_EQ(count(home, "betrieb"), "1\n");
    EXPECT_EQ(runCli({"--home", home, "protokoll"}).out,
              "Nr\tZeit\tBenutzer\tAktion\tKriterium\tBetroffen\tAnzahl\n");
}

}  // namespace
}  // namespace tolma::cli
