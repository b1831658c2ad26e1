// The search: names by sound, spellings folded, the index kept with the store.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "../transfer/import_fixture.h"
#include "core/db_connection.h"
#include "protection/retention.h"
#include "search/index_rows.h"
#include "search/index_words.h"
#include "search/phonetic.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/german_text.h"
#include "text/text.h"
#include "tml_generator.h"
#include "transfer/journal.h"

namespace tolma::test {
namespace {

TEST(KoelnerPhonetikTest, ReferenceValuesAndTheRulesEdges) {
    struct Case {
        const char* word;
        const char* code;
    } cases[] = {
        {"Müller-Lüdenscheidt", "65752682"},
        {"Breschnew", "17863"},
        {"Wikipedia", "3412"},
        {"Meier", "67"},
        {"Maier", "67"},
        {"Mair", "67"},
        {"Meyer", "67"},
        {"Meyr", "67"},
        {"Mejer", "67"},
        {"Major", "67"},
        // C at the start: 4 before A, H, K, L, O, Q, R, U, X, else 8.
        {"Christoph", "47823"},
        {"Cäsar", "487"},
        {"Celle", "85"},
        // C inside: 4 before A, H, K, O, Q, U, X unless after S or Z; else 8.
        {"Dachs", "248"},
        {"Schmidt", "862"},
        {"Ecke", "04"},
        {"Mücke", "64"},
        // X: 48, but 8 after C, K or Q.
        {"Xaver", "4837"},
        {"Hexe", "048"},
        {"Axel", "0485"},
        {"Dax", "248"},
        {"Kex", "448"},
        {"Tickx", "248"},
        // H is no sound at all; vowels only at the beginning; repeats once.
        {"Huhn", "06"},
        {"Anna", "06"},
        {"Otto", "02"},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(search::koelnerPhonetik(c.word), c.code) << c.word;
}

TEST(SearchFoldTest, SpellingsAgreeAsPeopleSpellThem) {
    struct Case {
        const char* a;
        const char* b;
        bool same;
    } cases[] = {
        {"Müller", "Mueller", true}, {"Müller", "Muller", true}, {"MÜLLER", "müller", true},
        {"Straße", "Strasse", true}, {"Dvořák", "Dvorak", true}, {"Öztürk", "Oezturk", true},
        {"René", "Rene", true},      {"Meier", "Mayer", false},  {"Bäcker", "Backer", true},
        {"Bäcker", "Becker", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(search::fold(c.a) == search::fold(c.b), c.same) << c.a << " / " << c.b;
}

// A row holds each word once as lower() gives it, the folded spelling apart only where fold()
// gives another, and for names the sound: the shortcuts for plain ASCII words must agree.
TEST(SearchRowWordsTest, EachWordOnceFoldedWhereItDiffersAndNamesBySound) {
    const char* texts[] = {"Bäckerei MEYER, Hauptstraße 5 Meyer",
                           "AEUSSERE Ueberseestr. 12a aeussere",
                           "Queen-Mary-Weg;Oevelgoenne",
                           "Dvořák & Söhne GmbH",
                           "  ",
                           "Christoph Xaver Huhn 25704 Meldorf"};
    for (const char* t : texts) {
        for (const bool names : {false, true}) {
            std::set<std::string> expected;
            for (const auto& w : search::wordsOf(t)) {
                const std::string lower = text::lower(w), folded = search::fold(w);
                expected.insert(lower);
                if (folded != lower) expected.insert(search::kFoldedMark + folded);
                if (const auto code = search::koelnerPhonetik(w); names && !code.empty())
                    expected.insert(search::kSoundMark + code);
            }
            search::RowWords row;
            row.add(t, names);
            std::vector<std::string> tokens;
            std::istringstream in(row.text());
            for (std::string token; in >> token;) tokens.push_back(token);
            EXPECT_EQ(std::set<std::string>(tokens.begin(), tokens.end()), expected) << t;
            EXPECT_EQ(tokens.size(), expected.size()) << t;  // none twice
        }
    }
    // A word first among other texts, then in a name, gains its sound.
    search::RowWords row;
    row.add("Meyerstraße Meyer", false);
    row.add("Meyer", true);
    EXPECT_EQ(row.text(), "meyerstraße _meyerstrasse meyer #67 ");
}

std::string business(const std::string& nr, const std::string& name, const std::string& street,
                     const std::string& person, const std::string& ende = "",
                     const std::string& persNr = "") {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
           "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + name +
           "</b-eintr-name>\n" + (ende.empty() ? "" : "<betr-ende>" + ende + "</betr-ende>\n") +
           "<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n<b-strasse>" + street +
           "</b-strasse>\n<b-ort>Husum</b-ort>\n</adresse>\n</"
           "adressen>\n<personen>\n<person>\n<p-funktion>1</p-funktion>\n"
           "<pers-nr>" +
           (persNr.empty() ? "9" + nr : persNr) + "</pers-nr>\n<p-art>NP</p-art>\n<fam-name>" +
           person + "</fam-name>\n</person>\n</personen>\n";
}

struct SearchFixture : ImportFixture {
    store::Connection& c() { return *g().stores.db_daten.connection(); }
    // The connection that holds the index file.
    store::Connection& ix() {
        if (!index_) index_ = search::indexConnection(c(), true);
        return *index_;
    }
    std::shared_ptr<store::Connection> index_;
    // A search as the window and the command line make it: the index is built first where it
    // does not follow the store, since a search itself only reads.
    std::vector<search::Hit> search(const std::string& query, search::Kind kind, int limit) {
        if (!search::hasIndex(c())) search::buildIndex(c());
        return search::find(c(), query, kind, limit);
    }
    std::vector<std::string> names(const std::string& query,
                                   search::Kind kind = search::Kind::Businesses) {
        std::vector<std::string> out;
        for (const auto& h : search(query, kind, 20)) out.push_back(h.name);
        return out;
    }
    // The index's rows without their numbers, but with whether they are of removed businesses.
    std::vector<std::string> indexRows() {
        auto st = ix().prepare(
            "SELECT art, betr_nr, hist, pers_nr, name, strasse, ort, gem_kz, worte, zeile >= " +
            std::to_string(search::kRemoved) + " FROM tolma_suchtreffer WHERE zeile > 0");
        std::vector<std::string> out;
        while (st->step()) {
            std::string row;
            for (int i = 0; i < 10; ++i) row += st->column(i).toString() + "|";
            out.push_back(row);
        }
        std::sort(out.begin(), out.end());
        return out;
    }
    // The rows an index built anew has; it is built anew.
    std::vector<std::string> rebuiltRows() {
        search::buildIndex(c());
        return indexRows();
    }
    // A generated file of `businesses` businesses, read in.
    transfer::ImportOutcome importGenerated(long businesses, unsigned seed) {
        std::ostringstream file;
        bench::GeneratorOptions options;
        options.businesses = businesses;
        options.seed = seed;
        bench::writeTransferFile(file, options);
        return importBytes(file.str());
    }
    void expectKeptAsBuilt(const char* step) {
        const auto kept = indexRows();
        EXPECT_EQ(kept, rebuiltRows()) << step;
        EXPECT_FALSE(kept.empty()) << step;
        // The full-text index agrees with its rows: no word of a replaced row is left behind.
        EXPECT_NO_THROW(
            ix().execute("INSERT INTO tolma_suchbegriffe (tolma_suchbegriffe, rank) "
                         "VALUES ('integrity-check', 1)"))
            << step;
    }
};

TEST(SearchTest, WordsMatchAsWrittenFoldedByPrefixAndNamesBySound) {
    SearchFixture f;
    TmlFile file;
    file.cp1252 = false;  // "ř" has no place in Windows-1252
    file.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer"),
                     business("1002", "Müller Transporte", "Am Hafen 1", "Müller"),
                     business("1003", "Maier Bau", "Hauptstraße 9", "Maier", "20200101"),
                     business("1004", "Fischhandel Dvořák", "Hafenweg 2", "Dvořák"),
                     business("1005", "Muller Kiosk", "Meyerstraße 3", "Muller")};
    ASSERT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    f.c().execute(
        "UPDATE betrieb SET [b-reg-schl] = 'HRB', [b-eintr-nr] = '8412' WHERE [betr-nr] = '1004'");
    search::buildIndex(f.c());
    struct Case {
        const char* query;
        std::vector<std::string> names;  // in rank order
    } cases[] = {
        // Numbers: the business number whole and as a beginning, the register number.
        {"1002", {"Müller Transporte"}},
        {"100",
         {"Bäckerei Meyer", "Fischhandel Dvořák", "Muller Kiosk", "Müller Transporte",
          "Maier Bau"}},
        {"HRB 8412", {"Fischhandel Dvořák"}},
        {"HRB 84", {"Fischhandel Dvořák"}},
        {"Bäckerei Meyer", {"Bäckerei Meyer"}},
        {"baeckerei", {"Bäckerei Meyer"}},
        {"Mueller", {"Muller Kiosk", "Müller Transporte"}},  // both folded: German order
        {"Dvorak", {"Fischhandel Dvořák"}},
        {"Hauptstrasse", {"Bäckerei Meyer", "Maier Bau"}},      // the removed business last
        {"Meier", {"Bäckerei Meyer", "Maier Bau"}},             // by sound, the current one first
        {"Maier", {"Maier Bau", "Bäckerei Meyer"}},             // as written before by sound
        {"Hafe", {"Fischhandel Dvořák", "Müller Transporte"}},  // the last word as a beginning
        {"Hafen Müller", {"Müller Transporte"}},                // every word must match
        {"Hauptstrasse Müller", {}},
        {"Transport", {"Müller Transporte"}},
        {"Transport Bäckerei", {}},                         // a beginning only for the last word
        {"Muller", {"Muller Kiosk", "Müller Transporte"}},  // as written before folded
        {"Müller", {"Müller Transporte", "Muller Kiosk"}},
        {"Meierstrasse", {}},  // streets not by sound
        {"Meyerstrasse", {"Muller Kiosk"}},
        {"Kiosk Muler", {"Muller Kiosk"}},  // a name by sound, also as a beginning
        {"Hafen Husum Transporte Müller", {"Müller Transporte"}},
        {"Husum",
         {"Bäckerei Meyer", "Fischhandel Dvořák", "Muller Kiosk", "Müller Transporte",
          "Maier Bau"}},  // equal rank: current ones first, each in German order
    };
    for (const auto& cs : cases) EXPECT_EQ(f.names(cs.query), cs.names) << cs.query;
    // A stray byte of a broken text (the start of "Ä") is no beginning of every umlaut word.
    EXPECT_TRUE(f.names("\xC3").empty());
    EXPECT_EQ(f.names("Transporte M\xC3"), Strings{"Müller Transporte"});
    // A person by the person's number.
    EXPECT_EQ(f.names("91002", search::Kind::Persons), Strings{"Müller"});
    // Persons, with their business.
    const auto persons = f.search("Müller", search::Kind::Persons, 10);
    ASSERT_EQ(persons.size(), 2u);
    EXPECT_TRUE(persons[0].person);
    EXPECT_EQ(persons[0].name, "Müller");
    EXPECT_EQ(persons[0].betrNr, "1002");
    const auto maier = f.search("Maier Bau", search::Kind::Businesses, 10);
    ASSERT_EQ(maier.size(), 1u);
    EXPECT_TRUE(maier[0].abgemeldet);
    EXPECT_NE(search::hitsText(maier).find("\tabgemeldet\n"), std::string::npos);
}

TEST(SearchTest, TheIndexFollowsImportReplaceTakingBackAndRebuild) {
    SearchFixture f;
    TmlFile first;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    EXPECT_FALSE(search::hasIndex(f.c()));
    EXPECT_EQ(f.names("Meyer"), std::vector<std::string>{"Bäckerei Meyer"});  // built on first use
    EXPECT_TRUE(search::hasIndex(f.c()));

    TmlFile replace;
    replace.betriebe = {business("1001", "Konditorei Schulz", "Hauptstraße 5", "Schulz"),
                        business("1002", "Kiosk Meyer", "Am Markt 1", "Meyer")};
    ASSERT_EQ(f.import(replace), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.names("Meyer"),
              std::vector<std::string>{"Kiosk Meyer"});  // the replaced name is gone
    EXPECT_EQ(f.names("Konditorei"), std::vector<std::string>{"Konditorei Schulz"});

    f.dialogs.answers = {core::msg::vbYes};
    ASSERT_EQ(transfer::askAndTakeBack(f.g(), std::nullopt).outcome,
              transfer::TakeBackOutcome::Done)
        << f.logText();
    EXPECT_EQ(f.names("Meyer"), std::vector<std::string>{"Bäckerei Meyer"});
    EXPECT_TRUE(f.names("Konditorei").empty());

    // A rebuild gives the same answers.
    long reported = 0;
    search::buildIndex(f.c(), [&](long done, long total) {
        if (done == total) reported = total;
    });
    EXPECT_EQ(reported, 1);
    EXPECT_EQ(f.names("Meyer"), std::vector<std::string>{"Bäckerei Meyer"});
}

// A search leaves no connection to the store open: compacting the store after it replaces the
// file whole, and the store opens again with what it held.
TEST(SearchTest, AStoreSearchedAndThenCompactedOpensWithItsData) {
    SearchFixture f;
    TmlFile file;
    file.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer"),
                     business("1002", "Kiosk Petersen", "Am Markt 1", "Petersen")};
    ASSERT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.names("Meyer"), Strings{"Bäckerei Meyer"});  // built here
    // Free pages worth compacting, and a change still in the store's log.
    const std::string path = f.c().file().string();
    core::DB_Schliessen(f.g());
    core::DB_Binden_loesen(f.g());
    {
        auto db = store::Database::OpenDatabase(path);
        db.Execute("CREATE TABLE ballast (x TEXT)");
        db.Execute(
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
            "INSERT INTO ballast SELECT printf('%.500c', 'x') FROM n");
        db.Execute("DROP TABLE ballast");
    }
    core::DB_Load(f.g());
    f.c().execute("DELETE FROM betrieb WHERE [betr-nr] = '1002'");
    const auto before = std::filesystem::file_size(path);
    core::DB_Komprimieren(f.g());
    ASSERT_TRUE(f.g().stores.db_daten.isSet()) << f.logText();
    EXPECT_LT(std::filesystem::file_size(path), before);  // compacted indeed
    EXPECT_EQ(f.count("betrieb"), 1);
    EXPECT_EQ(f.logText(), "");
}

TEST(SearchTest, TheIndexesOfEarlierFormsAreLetGoWhenTheIndexIsBuilt) {
    struct Form {
        const char* words;
        std::vector<std::string> create;
    } forms[] = {
        {"tolma_suchindex",
         {"CREATE VIRTUAL TABLE tolma_suchindex USING fts5(name UNINDEXED, exakt)",
          "INSERT INTO tolma_suchindex VALUES ('Bäckerei Meyer', 'bäckerei meyer')"}},
        {"tolma_suchworte",
         {"CREATE TABLE tolma_suchzeilen (zeile INTEGER PRIMARY KEY, name TEXT, exakt TEXT)",
          "CREATE VIRTUAL TABLE tolma_suchworte USING fts5(name UNINDEXED, exakt, content = "
          "'tolma_suchzeilen', content_rowid = 'zeile')",
          "INSERT INTO tolma_suchzeilen VALUES (1, 'Bäckerei Meyer', 'bäckerei meyer')",
          "INSERT INTO tolma_suchworte (tolma_suchworte) VALUES ('rebuild')"}},
        // The index of this form as the store file itself held it.
        {"tolma_suchbegriffe",
         {"CREATE TABLE tolma_suchtreffer (zeile INTEGER PRIMARY KEY, art TEXT, betr_nr TEXT, "
          "hist TEXT, pers_nr TEXT, name TEXT, strasse TEXT, ort TEXT, gem_kz TEXT, worte TEXT)",
          "CREATE VIRTUAL TABLE tolma_suchbegriffe USING fts5(worte, content = "
          "'tolma_suchtreffer', content_rowid = 'zeile')",
          "INSERT INTO tolma_suchtreffer (zeile, art) VALUES (-1, 'Worte 2')",
          "INSERT INTO tolma_suchtreffer (zeile, art, betr_nr, name, worte) VALUES (1, 'B', "
          "'1001', 'Bäckerei Meyer', 'bäckerei meyer')",
          "INSERT INTO tolma_suchbegriffe (tolma_suchbegriffe) VALUES ('rebuild')"}},
    };
    for (const auto& form : forms) {
        SearchFixture f;
        TmlFile first;
        first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer")};
        ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
        for (const auto& sql : form.create) f.c().execute(sql);
        EXPECT_FALSE(search::hasIndex(f.c())) << form.words;
        EXPECT_EQ(f.names("Meyer"), std::vector<std::string>{"Bäckerei Meyer"}) << form.words;
        EXPECT_TRUE(search::hasIndex(f.c())) << form.words;
        // Dropped, or emptied while the program's recordsets read the store.
        if (!f.rows(std::string("SELECT 1 FROM sqlite_master WHERE name = '") + form.words + "'")
                 .empty()) {
            EXPECT_EQ(f.rows(std::string("SELECT count(*) FROM ") + form.words), Strings{"0"});
        }
    }
}

// Two businesses, the first one deregistered long enough ago to be deleted after the period; the
// index is built.
void importOneToDelete(SearchFixture& f) {
    TmlFile file;
    std::string gone = business("1001", "Galerie Quendt", "Hafen 1", "Quendtwick", "20151231");
    gone.insert(gone.find("<adressen>"), "<meld-art>03</meld-art>\n");
    file.betriebe = {gone, business("1002", "Müller Transporte", "Am Hafen 1", "Müller")};
    ASSERT_EQ(f.import(file), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.names("Quendtwick"), Strings{"Galerie Quendt"});
}

// A deletion after the period leaves nothing of what it deleted in the index file or its log,
// not even in pages the index no longer uses.
TEST(SearchTest, ADeletionAfterThePeriodLeavesNoTraceInTheIndexFile) {
    SearchFixture f;
    importOneToDelete(f);
    f.dialogs.answers = {core::msg::vbYes};
    ASSERT_EQ(protection::deleteAfterPeriod(f.g(), 20200101, false, nullptr).outcome,
              protection::DeletionOutcome::Deleted);
    EXPECT_EQ(f.lastMessage().find("Suchindex"), std::string::npos) << f.lastMessage();
    EXPECT_EQ(f.names("Transporte"), Strings{"Müller Transporte"});
    const std::string index = store::Connection::indexFileOf(f.c().file()).string();
    for (const char* part : {"", "-wal"}) {
        std::ifstream in(index + part, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        EXPECT_EQ(bytes.find("uendtwick"), std::string::npos) << part;
    }
}

// The store and its index file change apart: a store file or an index file put back from a
// backup, or an index file of another store, is no index of the store.
TEST(SearchTest, AnIndexFileOfAnotherTimeIsBuiltAnew) {
    SearchFixture f;
    TmlFile first, second;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer")};
    second.betriebe = {business("1002", "Kiosk Petersen", "Am Markt 1", "Petersen")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.names("Meyer"), Strings{"Bäckerei Meyer"});
    const std::string indexFile = store::Connection::indexFileOf(f.c().file()).string();
    f.ix().execute("VACUUM suche INTO ?1", {store::Variant(indexFile + ".alt")});
    ASSERT_EQ(f.import(second), transfer::ImportOutcome::Finished);
    EXPECT_TRUE(search::hasIndex(f.c()));  // kept by the import
    EXPECT_EQ(search::find(f.c(), "Petersen", search::Kind::Businesses, 20).size(), 1u);

    f.index_.reset();
    for (const char* part : {"-wal", "-shm"}) std::filesystem::remove(indexFile + part);
    std::filesystem::rename(indexFile + ".alt", indexFile);
    EXPECT_FALSE(search::hasIndex(f.c()));
    EXPECT_EQ(f.names("Petersen"), Strings{"Kiosk Petersen"});
    EXPECT_TRUE(search::hasIndex(f.c()));

    // The store without its token, as a store emptied or copied without its index.
    f.c().execute("DELETE FROM tolma_suchstand");
    EXPECT_FALSE(search::hasIndex(f.c()));
}

// A business with two addresses, the first of another kind, two activities and two persons, the
// first of whom (7001) also stands for business 1002.
std::string richBusiness(const std::string& name, const std::string& sharedPerson,
                         const std::string& ende = "") {
    return "<gem-kz>01054056</gem-kz>\n<betr-nr>2001</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n"
           "<b-eintr-name>" +
           name + "</b-eintr-name>\n" +
           (ende.empty() ? "" : "<betr-ende>" + ende + "</betr-ende>\n") +
           "<adressen>\n<adresse art=\"2\">\n<b-adr-art>2</b-adr-art>\n<b-strasse>Postfach "
           "12</b-strasse>\n<b-ort>Kiel</b-ort>\n</adresse>\n<adresse art=\"1\">\n<b-adr-art>1</"
           "b-adr-art>\n<b-strasse>Süderstraße 3</b-strasse>\n<b-plz>25813</b-plz>\n<b-ort>Husum</"
           "b-ort>\n</adresse>\n</"
           "adressen>\n<taetigkeiten>\n<taetigkeit>\n<tk-originaltext>Reparatur "
           "von Kraftwagen</tk-originaltext>\n</taetigkeit>\n<taetigkeit>\n<tk-originaltext>Handel "
           "mit Gebrauchtwagen</tk-originaltext>\n</taetigkeit>\n</taetigkeiten>\n<personen>\n"
           "<person>\n<p-funktion>1</p-funktion>\n<pers-nr>7001</pers-nr>\n<p-art>NP</p-art>\n"
           "<fam-name>" +
           sharedPerson +
           "</fam-name>\n<vornamen>Jörn</vornamen>\n<p-strasse>Deichweg 1</p-strasse>\n<p-ort>"
           "Husum</p-ort>\n</person>\n<person>\n<p-funktion>2</p-funktion>\n<pers-nr>7002</"
           "pers-nr>\n<p-art>NP</p-art>\n<p-eintr-name>Ketels GmbH</p-eintr-name>\n</person>\n"
           "</personen>\n";
}

TEST(SearchTest, TheIndexKeptByImportsHoldsWhatABuildGives) {
    SearchFixture f;
    search::buildIndex(f.c());  // while the store is empty
    TmlFile first;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer"),
                      business("1002", "Kiosk am Deich", "Deichstraße 1", "Petersen", "", "7001"),
                      business("1003", "Maier Bau", "Hauptstraße 9", "Maier", "20200101"),
                      richBusiness("Autohaus Ørsted", "Petersen")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    f.expectKeptAsBuilt("first import");
    EXPECT_EQ(f.names("Jörn"), (Strings{"Autohaus Ørsted", "Kiosk am Deich"}));

    // The shared person is renamed by the other business: the kiosk's rows show the new name.
    TmlFile replace;
    replace.betriebe = {richBusiness("Autohaus Ørsted", "Petersen-Lüdtke"),
                        business("1003", "Maier Bau", "Hauptstraße 9", "Maier")};
    ASSERT_EQ(f.import(replace), transfer::ImportOutcome::Finished);
    f.expectKeptAsBuilt("replace");
    EXPECT_EQ(f.names("Luedtke"), (Strings{"Autohaus Ørsted", "Kiosk am Deich"}));
    EXPECT_EQ(f.names("Lüdtke", search::Kind::Persons),
              (Strings{"Petersen-Lüdtke, Jörn", "Petersen-Lüdtke, Jörn"}));

    TmlFile removals;
    removals.betriebe = {richBusiness("Autohaus Ørsted", "Petersen-Lüdtke", "20250630"),
                         business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer", "20250701"),
                         business("1003", "Maier Bau", "Hauptstraße 9", "Maier")};  // unchanged
    ASSERT_EQ(f.import(removals), transfer::ImportOutcome::Finished);
    f.expectKeptAsBuilt("removals");
    const auto hits = f.search("Hauptstrasse", search::Kind::Businesses, 10);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].name, "Maier Bau");  // current again, ahead of the removed bakery
    EXPECT_TRUE(hits[1].abgemeldet);
}

// Files of several blocks: the businesses new to the store are read from the rows each block
// wrote, the others by their numbers, and persons come back at later businesses.
TEST(SearchTest, TheIndexKeptByImportsOfManyBlocksHoldsWhatABuildGives) {
    SearchFixture f;
    search::buildIndex(f.c());
    ASSERT_EQ(f.importGenerated(2000, 1), transfer::ImportOutcome::Finished);
    f.expectKeptAsBuilt("first import");
    // Its first 2000 businesses, and persons of the same numbers, replace those of the first
    // file with other names and links; the others are new.
    ASSERT_EQ(f.importGenerated(7000, 2), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.count("betrieb"), 7000);
    f.expectKeptAsBuilt("many blocks");

    // Cut by ESC in a later block. While the run goes, what is committed shows an index marked
    // as not following, which a crash would leave to the next search to build anew.
    long records = 0;
    bool markedMeanwhile = false;
    f.shell.onEvents = [&] {
        if (++records != 4000) return;
        const auto other = store::Connection::openReader(f.c().file());
        markedMeanwhile = !search::hasIndex(*other);
        f.g().view.taste = 27;
    };
    ASSERT_EQ(f.importGenerated(7000, 3), transfer::ImportOutcome::Cancelled);
    f.shell.onEvents = {};
    EXPECT_TRUE(markedMeanwhile);
    f.expectKeptAsBuilt("cut by ESC");
}

TEST(SearchTest, AnIndexThatCannotFollowAnImportIsBuiltBeforeTheNextSearch) {
    SearchFixture f;
    TmlFile first;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    search::buildIndex(f.c());
    f.ix().execute(
        "CREATE TRIGGER suche.voll BEFORE INSERT ON tolma_suchtreffer WHEN NEW.zeile > 0 BEGIN "
        "SELECT "
        "RAISE(ABORT, 'database or disk is full'); END");
    TmlFile second;
    second.betriebe = {business("1002", "Müller Spedition", "Am Hafen 1", "Müller")};
    ASSERT_EQ(f.import(second), transfer::ImportOutcome::Finished);  // the businesses are stored
    EXPECT_EQ(f.entries("Suchindex"), 1);
    EXPECT_FALSE(search::hasIndex(f.c()));
    f.ix().execute("DROP TRIGGER suche.voll");
    // A search on its own only reads: it answers from what the index holds and leaves it
    // behind; the window's search builds it first.
    EXPECT_TRUE(search::find(f.c(), "Spedition", search::Kind::Businesses, 20).empty());
    EXPECT_FALSE(search::hasIndex(f.c()));
    EXPECT_EQ(f.names("Spedition"), Strings{"Müller Spedition"});
    EXPECT_EQ(f.names("Meyer"), Strings{"Bäckerei Meyer"});
}

// The last step of an import's upkeep, after its blocks are committed: the index file and the
// store take their common token. Where that fails, the clerk is told the data were stored,
// which they are, and the next search builds the index from them.
TEST(SearchTest, AnIndexWhoseTokenCannotBeWrittenAfterTheImportIsBuiltBeforeTheNextSearch) {
    SearchFixture f;
    TmlFile first, second;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer")};
    second.betriebe = {business("1002", "Müller Spedition", "Am Hafen 1", "Müller")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    search::buildIndex(f.c());
    f.ix().execute(
        "CREATE TRIGGER suche.voll BEFORE UPDATE ON tolma_suchtreffer BEGIN SELECT "
        "RAISE(ABORT, 'database or disk is full'); END");
    ASSERT_EQ(f.import(second), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.lastMessage(), "Die Daten wurden übertragen!");
    EXPECT_EQ(f.entries("Suchindex"), 1);
    EXPECT_EQ(f.rows("SELECT count(*) FROM betrieb"), Strings{"2"});
    EXPECT_FALSE(search::hasIndex(f.c()));
    f.ix().execute("DROP TRIGGER suche.voll");
    EXPECT_EQ(f.names("Spedition"), Strings{"Müller Spedition"});
    EXPECT_TRUE(search::hasIndex(f.c()));
    f.expectKeptAsBuilt("after the token");
}

TEST(SearchTest, AnImportOfAFewBusinessesWritesOnlyTheirRowsAnew) {
    SearchFixture f;
    TmlFile first;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer"),
                      business("1002", "Müller Transporte", "Am Hafen 1", "Müller"),
                      business("1003", "Maier Bau", "Hauptstraße 9", "Maier", "20200101"),
                      business("1004", "Fischhandel Peters", "Hafenweg 2", "Peters"),
                      business("1005", "Muller Kiosk", "Meyerstraße 3", "Muller")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    search::buildIndex(f.c());
    TmlFile second;
    second.betriebe = {business("1002", "Müller Spedition", "Am Hafen 1", "Müller")};
    ASSERT_EQ(f.import(second), transfer::ImportOutcome::Finished);
    EXPECT_TRUE(f.names("Transporte").empty());
    EXPECT_EQ(f.names("Spedition"), std::vector<std::string>{"Müller Spedition"});
    EXPECT_EQ(f.names("Mueller"), (std::vector<std::string>{"Muller Kiosk", "Müller Spedition"}));
    EXPECT_EQ(f.names("Husum"),
              (std::vector<std::string>{"Bäckerei Meyer", "Fischhandel Peters", "Muller Kiosk",
                                        "Müller Spedition", "Maier Bau"}));
    EXPECT_EQ(f.names("Spedition", search::Kind::Persons), std::vector<std::string>{"Müller"});
    // The full-text index agrees with its rows: no word of a replaced row is left behind.
    EXPECT_NO_THROW(f.ix().execute(
        "INSERT INTO tolma_suchbegriffe (tolma_suchbegriffe, rank) VALUES ('integrity-check', 1)"));
}

// The index a search uses holds what a build from the store gives, however the run before
// ended; the search builds it first where it is marked as behind.
void expectSearchAsBuilt(SearchFixture& f, const char* step) {
    const auto hits = f.names("Petersen");
    f.expectKeptAsBuilt(step);
    EXPECT_EQ(hits, f.names("Petersen")) << step;
}

// A block whose commit fails (a full disk) takes with it the index rows written in its
// transaction: the index must not be marked as following afterwards.
TEST(SearchTest, AnImportWhoseBlockCannotBeCommittedLeavesNoStaleIndex) {
    SearchFixture f;
    ASSERT_EQ(f.importGenerated(7000, 1), transfer::ImportOutcome::Finished);
    search::buildIndex(f.c());
    // Late in the run, the next commit fails as on a full disk, and SQLite rolls it back.
    long records = 0;
    f.shell.onEvents = [&] {
        if (++records != 5000) return;
        sqlite3_commit_hook(
            f.c().handle(), [](void*) { return 1; }, nullptr);
    };
    EXPECT_EQ(f.importGenerated(7000, 2), transfer::ImportOutcome::Failed);
    f.shell.onEvents = {};
    sqlite3_commit_hook(f.c().handle(), nullptr, nullptr);
    EXPECT_GT(transfer::importRuns(f.c()).back().betriebe, 0);  // blocks of it were kept
    expectSearchAsBuilt(f, "after the failed commit");
}

// Taking back commits first; an index that cannot be built afterwards is no failure of the
// taking back, and the next search builds it.
TEST(SearchTest, ATakingBackTellsTheTruthWhenTheIndexCannotBeBuiltAfterIt) {
    SearchFixture f;
    TmlFile first, second;
    first.betriebe = {business("1001", "Bäckerei Meyer", "Hauptstraße 5", "Meyer"),
                      business("1002", "Müller Transporte", "Am Hafen 1", "Müller")};
    second.betriebe = {business("1002", "Petersen Spedition", "Am Hafen 1", "Petersen")};
    ASSERT_EQ(f.import(first), transfer::ImportOutcome::Finished);
    ASSERT_EQ(f.import(second), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.names("Petersen"), Strings{"Petersen Spedition"});  // builds the index
    f.ix().execute(
        "CREATE TRIGGER suche.voll BEFORE INSERT ON tolma_suchtreffer WHEN NEW.zeile > 0 BEGIN "
        "SELECT "
        "RAISE(ABORT, 'database or disk is full'); END");
    f.dialogs.answers = {core::msg::vbYes};
    const auto result = transfer::askAndTakeBack(f.g(), std::nullopt);
    EXPECT_EQ(result.outcome, transfer::TakeBackOutcome::Done);
    EXPECT_NE(f.lastMessage().find("zurückgenommen"), std::string::npos);
    EXPECT_NE(f.lastMessage().find("Der Suchindex wird bei der nächsten Suche neu aufgebaut."),
              std::string::npos)
        << f.lastMessage();
    EXPECT_EQ(f.lastMessage().find("unverändert"), std::string::npos);
    EXPECT_TRUE(transfer::importRuns(f.c()).back().zurueckgenommen);
    f.ix().execute("DROP TRIGGER suche.voll");
    EXPECT_TRUE(f.names("Petersen").empty());
    EXPECT_EQ(f.names("Transporte"), Strings{"Müller Transporte"});
    expectSearchAsBuilt(f, "after taking back");
}

TEST(SearchTest, ADeletionAfterThePeriodTellsTheTruthWhenTheIndexCannotBeBuiltAfterIt) {
    SearchFixture f;
    importOneToDelete(f);
    f.ix().execute(
        "CREATE TRIGGER suche.voll BEFORE INSERT ON tolma_suchtreffer WHEN NEW.zeile > 0 BEGIN "
        "SELECT "
        "RAISE(ABORT, 'database or disk is full'); END");
    f.dialogs.answers = {core::msg::vbYes};
    const auto result = protection::deleteAfterPeriod(f.g(), 20200101, false, nullptr);
    EXPECT_EQ(result.outcome, protection::DeletionOutcome::Deleted);
    EXPECT_NE(f.lastMessage().find("Gelöscht: 1 Betrieb, 1 Person"), std::string::npos);
    EXPECT_NE(f.lastMessage().find("Der Suchindex wird bei der nächsten Suche neu aufgebaut."),
              std::string::npos)
        << f.lastMessage();
    EXPECT_EQ(f.lastMessage().find("unverändert"), std::string::npos);
    auto left = f.c().prepare("SELECT count(*) FROM betrieb");
    left->step();
    EXPECT_EQ(left->column(0).toInteger(), 1);
    left.reset();
    f.ix().execute("DROP TRIGGER suche.voll");
    // The next search builds the index anew: the deleted business is not found.
    EXPECT_TRUE(f.names("Quendtwick").empty());
    EXPECT_EQ(f.names("Transporte"), Strings{"Müller Transporte"});
    expectSearchAsBuilt(f, "after deleting");
}

}  // namespace
}  // namespace tolma::test
