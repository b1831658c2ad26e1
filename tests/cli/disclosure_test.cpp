// A disclosure for one person: finding them, what it holds, its files and the record of it.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "cli_fixture.h"

namespace tolma::cli {
namespace {

struct Person {
    std::string nr, name, vornamen, geboren;  // geboren as in the file: JJJJMMTT
};
struct Business {
    std::string nr, name;
    std::vector<Person> persons;
};

// A transfer file in the encoding of the office's files (Latin-1: "\xFC" is "ü").
std::string transferFile(const std::string& path, const std::vector<Business>& businesses) {
    std::string t =
        "<gewerbedatei>\n<verwaltungsblock>\n<verarbeitungsart>MIGRATION</verarbeitungsart>\n"
        "<struktur>BETRIEBSBEZOGEN</struktur>\n<tml-version>1.5.1</tml-version>\n"
        "<zahl-betriebe-gesamt>" +
        std::to_string(businesses.size()) +
        "</zahl-betriebe-gesamt>\n</verwaltungsblock>\n<datenblock>\n";
    for (const auto& b : businesses) {
        t += "<betrieb>\n<gem-kz>01054056</gem-kz>\n<betr-nr>" + b.nr +
             "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + b.name +
             "</b-eintr-name>\n<meld-art>01</meld-art>\n<meld-datum>20100101</meld-datum>\n"
             "<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n<b-strasse>Markt</"
             "b-strasse>\n<b-hausnr-von>" +
             b.nr +
             "</b-hausnr-von>\n<b-plz>25813</b-plz>\n<b-ort>Husum</b-ort>\n</adresse>\n"
             "</adressen>\n<personen>\n";
        for (const auto& p : b.persons)
            t += "<person>\n<p-funktion>1</p-funktion>\n<p-eintr-datum>20100101</p-eintr-datum>\n"
                 "<pers-nr>" +
                 p.nr + "</pers-nr>\n<p-art>NP</p-art>\n<fam-name>" + p.name +
                 "</fam-name>\n<vornamen>" + p.vornamen + "</vornamen>\n<geb-datum>" + p.geboren +
                 "</geb-datum>\n<geb-ort>Schleswig</geb-ort>\n<p-strasse>Theodor-Storm-Stra\xDF"
                 "e</p-strasse>\n<p-plz>25813</p-plz>\n<p-ort>Husum</p-ort>\n"
                 "<staatsangehoerigkeiten>\n<staatsangehoerigkeit>\n<staat-text>deutsch</"
                 "staat-text>\n<staat-schl>000</staat-schl>\n</staatsangehoerigkeit>\n"
                 "</staatsangehoerigkeiten>\n</person>\n";
        t += "</personen>\n</betrieb>\n";
    }
    t += "</datenblock>\n</gewerbedatei>\n";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << t;
    return path;
}

const Person kAnna{"P2", "M\xFCller", "Anna Maria", "19800115"};
const Person kBernd{"P3", "Mueller", "Bernd", "19700101"};
const Person kAnnaYoung{"P4", "M\xDCLLER", "Anna", "19900202"};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::vector<std::string> split(const std::string& s, char at) {
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t to; (to = s.find(at, from)) != std::string::npos; from = to + 1)
        parts.push_back(s.substr(from, to - from));
    parts.push_back(s.substr(from));
    return parts;
}

// The CSV's rows as (Bereich, Feld) → values, after its byte order mark and header.
std::multimap<std::pair<std::string, std::string>, std::string> csvFacts(const std::string& csv) {
    EXPECT_EQ(csv.substr(0, 3), "\xEF\xBB\xBF");
    auto lines = split(csv.substr(3), '\n');
    EXPECT_EQ(lines.front(), "Bereich;Eintrag;Feld;Wert\r");
    std::multimap<std::pair<std::string, std::string>, std::string> facts;
    for (size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].empty()) continue;
        auto cells = split(lines[i].substr(0, lines[i].size() - 1), ';');
        EXPECT_EQ(cells.size(), 4u) << lines[i];
        if (cells.size() == 4) facts.emplace(std::pair{cells[0], cells[2]}, cells[3]);
    }
    return facts;
}

std::string pdfText(const std::string& pdf) {
    const std::string txt = pdf + ".txt";
    EXPECT_EQ(std::system(("pdftotext -raw '" + pdf + "' '" + txt + "'").c_str()), 0);
    return readFile(txt);
}

class DisclosureTest : public CliTest {
  protected:
    void SetUp() override {
        CliTest::SetUp();
        const std::string file =
            transferFile(home + "/erste.tml", {{"100", "Backstube", {kAnna}},
                                               {"200", "Hofladen", {kAnna, kBernd}},
                                               {"300", "Werkstatt", {kAnnaYoung}}});
        ASSERT_EQ(runCli({"--home", home, "--yes", "import", file}).code, 0);
    }
    Result disclose(std::vector<std::string> args) {
        args.insert(args.begin(), {"--home", home, "auskunft"});
        return runCli(args);
    }
};

TEST_F(DisclosureTest, APersonOfTwoBusinessesIsDisclosedWholeInTheCsvAndThePdf) {
    const std::string csv = home + "/auskunft.csv", pdf = home + "/auskunft.pdf";
    auto r = disclose({"--name", "m\xC3\xBCller", "--vornamen", "anna maria", "--csv", csv});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, csv + "\n");
    const auto facts = csvFacts(readFile(csv));

    // Every field the store holds of the person, read back with its value.
    const auto stored =
        runCli({"--home", home, "sql", "SELECT * FROM person WHERE [pers-nr] = 'P2'"});
    const auto lines = split(stored.out, '\n');
    ASSERT_GE(lines.size(), 2u);
    const auto names = split(lines[0], '\t'), values = split(lines[1], '\t');
    ASSERT_EQ(names.size(), values.size());
    int compared = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (values[i].empty()) continue;
        const auto it = facts.find({"Person", names[i]});
        ASSERT_NE(it, facts.end()) << names[i];
        EXPECT_EQ(it->second, values[i]) << names[i];
        ++compared;
    }
    EXPECT_GE(compared, 9);  // P2, NP, name, first names, birth day and place, the address
    EXPECT_EQ(facts.find({"Person", "fam-name"})->second, "M\xC3\xBCller");
    EXPECT_EQ(facts.count({"Staatsangehörigkeiten", "staat-text"}), 1u);

    // Both businesses, with their names and addresses, and the run that brought them.
    std::set<std::string> numbers;
    for (auto [it, end] = facts.equal_range({"Betriebe", "betr-nr"}); it != end; ++it)
        numbers.insert(it->second);
    EXPECT_EQ(numbers, (std::set<std::string>{"100", "200"}));
    EXPECT_EQ(facts.count({"Betriebe", "b-eintr-name"}), 2u);
    EXPECT_EQ(facts.count({"Betriebe", "b-ort"}), 2u);
    EXPECT_EQ(facts.count({"Betriebe", "p-funktion"}), 2u);
    EXPECT_EQ(facts.find({"Betriebe", "Funktion"})->second, "Einzelgewerbetreibender");
    const auto run = facts.equal_range({"Betriebe", "Importdatei"});
    ASSERT_NE(run.first, run.second);
    EXPECT_NE(run.first->second.find("erste.tml"), std::string::npos);

    r = disclose({"--name", "Mueller", "--geburtsdatum", "15.01.1980", "--pdf", pdf});
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string text = pdfText(pdf);
    for (const char* expected : {"Auskunft über gespeicherte Daten", "Müller", "Anna Maria",
                                 "Staatsangehörigkeiten", "Betriebe", "100", "200", "Seite 1"})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    EXPECT_EQ(text.find("Werkstatt"), std::string::npos);  // another Müller's business

    // One row for each disclosure: the person's number, what was given, and no names.
    r = runCli({"--home", home, "protokoll"});
    const auto rows = split(r.out, '\n');
    ASSERT_EQ(rows.size(), 4u) << r.out;  // header, two rows, the end
    EXPECT_NE(rows[1].find("\tAuskunft\tName, Vornamen angegeben\tP2\t"), std::string::npos)
        << rows[1];
    EXPECT_NE(rows[2].find("\tAuskunft\tName, Geburtsdatum angegeben\tP2\t"), std::string::npos)
        << rows[2];
    for (const char* personal : {"ller", "Anna", "1980", "Husum"})
        EXPECT_EQ(r.out.find(personal), std::string::npos) << personal;
}

TEST_F(DisclosureTest, SeveralPersonsAreListedUntilTheFiltersLeaveOne) {
    const std::string csv = home + "/auskunft.csv";
    auto r = disclose({"--name", "MÜLLER", "--csv", csv});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.out,
              "Personennummer\tName\tVornamen\tGeburtsdatum\n"
              "P2\tMüller\tAnna Maria\t15.01.1980\n"
              "P3\tMueller\tBernd\t01.01.1970\n"
              "P4\tMÜLLER\tAnna\t02.02.1990\n");
    EXPECT_NE(r.err.find("--vornamen oder --geburtsdatum"), std::string::npos) << r.err;
    r = disclose({"--name", "Muller", "--vornamen", "Anna", "--csv", csv});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.out.find("P3"), std::string::npos) << r.out;
    EXPECT_FALSE(std::filesystem::exists(csv));
    r = disclose(
        {"--name", "Muller", "--vornamen", "Anna", "--geburtsdatum", "02.02.1990", "--csv", csv});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(csvFacts(readFile(csv)).find({"Betriebe", "betr-nr"})->second, "300");

    r = disclose({"--name", "Niemand", "--csv", csv});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("Keine Person gefunden"), std::string::npos) << r.err;
    EXPECT_NE(readFile(home + "/Log/ERROR.LOG").find("Keine Person gefunden"), std::string::npos);

    for (const auto& wrong : std::vector<std::vector<std::string>>{
             {"--csv", csv},
             {"--name", "Mueller"},
             {"--name", "Mueller", "--csv", csv, "--pdf", csv + ".pdf"},
             {"--name", "Mueller", "--geburtsdatum", "1980-01-15", "--csv", csv},
             {"--name", "Mueller", "--csv"}})
        EXPECT_EQ(disclose(wrong).code, 2) << wrong.back();
    // Only the disclosure given is recorded.
    r = runCli({"--home", home, "protokoll"});
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out;
}

TEST_F(DisclosureTest, EachBusinessNamesTheNewestRunThatWroteIt) {
    // A second file changes business 200 only; taking it back brings the first run's data back.
    const std::string second =
        transferFile(home + "/zweite.tml", {{"200", "Hofladen am Markt", {kAnna, kBernd}}});
    ASSERT_EQ(runCli({"--home", home, "--yes", "import", second}).code, 0);
    const std::string csv = home + "/auskunft.csv";
    const auto runOf = [&]() {
        const auto r = disclose({"--name", "Mueller", "--vornamen", "Bernd", "--csv", csv});
        EXPECT_EQ(r.code, 0) << r.err;
        const auto facts = csvFacts(readFile(csv));
        EXPECT_EQ(facts.find({"Betriebe", "betr-nr"})->second, "200");
        return facts.find({"Betriebe", "Importdatei"})->second;
    };
    EXPECT_NE(runOf().find("zweite.tml"), std::string::npos);
    ASSERT_EQ(runCli({"--home", home, "--yes", "undo"}).code, 0);
    EXPECT_NE(runOf().find("erste.tml"), std::string::npos);
}

}  // namespace
}  // namespace tolma::cli
