// Taking back imports: after an import and its taking back, every table of the system holds
// exactly the rows it held before, however the import ended.
#include <gtest/gtest.h>

#include "core/db_connection.h"
#include "import_fixture.h"
#include "model/schema.h"
#include "options/options_form.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "transfer/journal.h"

namespace tolma::test {
namespace {

std::string business(const std::string& nr, const std::string& name,
                     const std::string& person = "") {
    std::string b = "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
                    "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n"
                    "<b-eintr-name>" +
                    name +
                    "</b-eintr-name>\n<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n"
                    "<b-strasse>Großstraße " +
                    nr + "</b-strasse>\n</adresse>\n</adressen>\n";
    if (!person.empty())
        b += "<personen>\n<person>\n<p-funktion>1</p-funktion>\n<pers-nr>" + person +
             "</pers-nr>\n<p-art>NP</p-art>\n"
             "<fam-name>" +
             name +
             "</fam-name>\n<staatsangehoerigkeiten>\n<staatsangehoerigkeit>\n"
             "<staat-text>deutsch</staat-text>\n</staatsangehoerigkeit>\n</"
             "staatsangehoerigkeiten>\n</person>\n</personen>\n";
    return b;
}

TmlFile fileOf(std::vector<std::string> businesses) {
    TmlFile f;
    f.betriebe = std::move(businesses);
    return f;
}

struct JournalFixture : ImportFixture {
    // Every row of every table of the system's data store, sorted.
    Strings dump() {
        Strings all;
        for (const auto& t : model::dataTables()) {
            Strings rows = this->rows("SELECT * FROM " + t.name);
            for (auto& r : rows) r = t.name + "|" + r;
            std::sort(rows.begin(), rows.end());
            all.insert(all.end(), rows.begin(), rows.end());
        }
        return all;
    }
    store::Connection& store() { return *g().stores.db_daten.connection(); }
    long long scalar(const std::string& sql) {
        auto st = store().prepare(sql);
        st->step();
        return st->column(0).toInteger();
    }
    // Imports `file`, pressing ESC after its `escAfter`-th business (never with 0).
    void importWithEscAfter(const TmlFile& file, int escAfter) {
        int seen = 0;
        shell.onEvents = [&] {
            if (++seen == escAfter) g().view.taste = 27;
        };
        import(file);
        shell.onEvents = {};
    }
    transfer::TakeBackResult takeBack(std::optional<long> from = std::nullopt) {
        dialogs.answers = {core::msg::vbYes};
        return transfer::askAndTakeBack(g(), from);
    }
};

const TmlFile kFirst =
    fileOf({business("1001", "Bäckerei Alt", "5001"), business("1002", "Fischhandel", "5002"),
            business("1003", "Schmiede")});
const TmlFile kSecond =
    fileOf({business("1002", "Fischhandel Neu", "5001"), business("1004", "Neubau", "5004")});
const TmlFile kThird =
    fileOf({business("1001", "Bäckerei Jung"), business("1005", "Kiosk", "5002")});

TEST(ImportJournalTest, FirstImportAndReplaceAreTakenBackExactly) {
    JournalFixture f;
    const Strings empty = f.dump();
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    const Strings afterFirst = f.dump();
    ASSERT_GT(afterFirst.size(), 8u);
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Finished);
    ASSERT_NE(f.dump(), afterFirst);

    auto r = f.takeBack();
    EXPECT_EQ(r.outcome, transfer::TakeBackOutcome::Done);
    ASSERT_EQ(r.runs.size(), 1u);
    EXPECT_EQ(r.runs[0].lauf, 2);
    EXPECT_EQ(f.dump(), afterFirst);
    EXPECT_NE(f.dialogs.shown[f.dialogs.shown.size() - 2].text.find(
                  "Lauf 2 vom 14.11.2023 22:13:20: test.tml, 2 Betriebe"),
              std::string::npos);

    // The store goes on as before: an import after taking back is recorded and taken back too.
    ASSERT_EQ(f.import(kThird), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), afterFirst);
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), empty);
    EXPECT_EQ(f.takeBack().outcome, transfer::TakeBackOutcome::Nothing);
    EXPECT_EQ(f.lastMessage(), "Es gibt keinen Importlauf, der zurückgenommen werden kann.");
}

TEST(ImportJournalTest, SeveralRunsGoInOneStepAndTheListSaysSo) {
    JournalFixture f;
    ASSERT_EQ(f.import(fileOf({business("0999", "Vorher", "5999")})),
              transfer::ImportOutcome::Finished);
    const Strings before = f.dump();
    for (const auto* file : {&kFirst, &kSecond, &kThird})
        ASSERT_EQ(f.import(*file), transfer::ImportOutcome::Finished);

    f.dialogs.answers = {core::msg::vbNo};
    EXPECT_EQ(transfer::askAndTakeBack(f.g(), 2).outcome, transfer::TakeBackOutcome::Refused);
    EXPECT_EQ(transfer::importRuns(f.store()).size(), 4u);

    const auto r = f.takeBack(2);
    EXPECT_EQ(r.outcome, transfer::TakeBackOutcome::Done);
    ASSERT_EQ(r.runs.size(), 3u);
    EXPECT_EQ(r.runs.front().lauf, 4);  // newest first
    EXPECT_EQ(f.dump(), before);
    const auto runs = transfer::importRuns(f.store());
    ASSERT_EQ(runs.size(), 4u);
    EXPECT_FALSE(runs[0].zurueckgenommen);
    EXPECT_TRUE(runs[1].zurueckgenommen && runs[2].zurueckgenommen && runs[3].zurueckgenommen);
    EXPECT_EQ(runs[1].betriebe, 3);
    EXPECT_EQ(f.takeBack(3).outcome, transfer::TakeBackOutcome::Nothing);  // gone with run 2
}

TEST(ImportJournalTest, AnImportCutByEscIsTakenBackWithWhatItStored) {
    JournalFixture f;
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    const Strings before = f.dump();
    int seen = 0;
    f.shell.onEvents = [&] {
        if (++seen == 2) f.g().view.taste = 27;
    };
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Cancelled);
    f.shell.onEvents = {};
    ASSERT_NE(f.dump(), before);  // the first business of the cut run was stored
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), before);
}

TEST(ImportJournalTest, WhatNoElementCameToRemoveStaysAsWithoutRecord) {
    // The rows of a block go before its first element; those of elements cut off by ESC, or of
    // persons behind a section that makes an element give up, must come back.
    std::string broken = business("1002", "Fischhandel Kaputt", "5001");
    broken.erase(broken.find("</adresse>"), std::string("</adresse>\n").size());
    const TmlFile cut = fileOf(
        {business("1003", "Schmiede Neu"), broken, business("1001", "Bäckerei Neu", "5002")});
    for (const int escAfter : {1, 0}) {
        SCOPED_TRACE(escAfter ? "ESC nach dem ersten Betrieb" : "ohne ESC");
        JournalFixture plain;
        plain.g().recordImportRuns = false;
        ASSERT_EQ(plain.import(kFirst), transfer::ImportOutcome::Finished);
        plain.importWithEscAfter(cut, escAfter);

        JournalFixture f;
        ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
        const Strings before = f.dump();
        f.importWithEscAfter(cut, escAfter);
        EXPECT_EQ(f.dump(), plain.dump());
        EXPECT_EQ(f.takeBack().runs.size(), 1u);
        EXPECT_EQ(f.dump(), before);
    }
}

// A business with `addresses` addresses.
std::string withAddresses(const std::string& nr, const std::string& name, int addresses) {
    std::string b = "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
                    "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + name +
                    "</b-eintr-name>\n<adressen>\n";
    for (int a = 1; a <= addresses; ++a)
        b += "<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n<b-strasse>Großstraße " +
             std::to_string(a) + "</b-strasse>\n</adresse>\n";
    return b + "</adressen>\n";
}

// The hits of the search for every business, as the index kept gives them and as one built
// anew from the store would.
void expectSearchAsBuilt(JournalFixture& f) {
    auto hits = [&] {
        return search::hitsText(search::find(f.store(), "Großstraße", search::Kind::Both, 100));
    };
    const std::string kept = hits();
    f.store().execute("BEGIN");
    search::buildIndex(f.store());
    const std::string built = hits();
    f.store().execute("ROLLBACK");
    EXPECT_EQ(kept, built);
}

// The rows that a cut block puts back held the highest row ids of their tables, and the
// elements stored before the cut took some of those ids: a row put back under a new id must
// not take the old id of one still to come.
TEST(ImportJournalTest, RowsPutBackAfterACutBlockDoNotCollideWithNewRowIds) {
    const TmlFile stored =
        fileOf({withAddresses("1001", "Bäckerei", 1), withAddresses("1009", "Schmiede Alt", 3)});
    std::string broken = withAddresses("1009", "Schmiede Kaputt", 3);
    broken.erase(broken.find("</adresse>"), std::string("</adresse>\n").size());
    struct Case {
        const char* name;
        TmlFile file;
        int escAfter;  // 0: no ESC
    } cases[] = {
        {"ESC nach dem ersten Betrieb",
         fileOf({withAddresses("1005", "Neu", 2), withAddresses("1009", "Schmiede Neu", 3)}), 1},
        {"ESC nach dem zweiten Betrieb",
         fileOf({withAddresses("1005", "Neu", 1), withAddresses("1006", "Neuer", 1),
                 withAddresses("1009", "Schmiede Neu", 3), withAddresses("1001", "Bäckerei", 2)}),
         2},
        {"ein aufgegebener Betrieb", fileOf({withAddresses("1005", "Neu", 2), broken}), 0},
    };
    for (const Case& cs : cases) {
        SCOPED_TRACE(cs.name);
        JournalFixture plain;
        plain.g().recordImportRuns = false;
        ASSERT_EQ(plain.import(stored), transfer::ImportOutcome::Finished);
        plain.importWithEscAfter(cs.file, cs.escAfter);

        JournalFixture f;
        ASSERT_EQ(f.import(stored), transfer::ImportOutcome::Finished);
        search::buildIndex(f.store());
        const Strings before = f.dump();
        f.importWithEscAfter(cs.file, cs.escAfter);
        EXPECT_EQ(f.entries("Upd_1_Start"), 0);
        EXPECT_EQ(f.dump(), plain.dump());
        expectSearchAsBuilt(f);
        EXPECT_EQ(f.takeBack().runs.size(), 1u);
        EXPECT_EQ(f.dump(), before);
        expectSearchAsBuilt(f);
    }
}

TEST(ImportJournalTest, NumbersThatComeTwiceInABlockAreStoredAsWithoutRecordAndTakenBackExactly) {
    // A stored business and stored persons, each twice in one block of the file.
    const TmlFile twice =
        fileOf({business("1001", "Bäckerei Neu", "5002"), business("1003", "Schmiede Neu", "5002"),
                business("1001", "Bäckerei Neuer", "5001")});
    JournalFixture plain;
    plain.g().recordImportRuns = false;
    ASSERT_EQ(plain.import(kFirst), transfer::ImportOutcome::Finished);
    ASSERT_EQ(plain.import(twice), transfer::ImportOutcome::Finished);

    JournalFixture f;
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    const Strings before = f.dump();
    ASSERT_EQ(f.import(twice), transfer::ImportOutcome::Finished);
    EXPECT_EQ(f.dump(), plain.dump());
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), before);
}

TEST(ImportJournalTest, OnlyTheNewestRunsKeepTheirRecords) {
    JournalFixture f;
    transfer::setKeptImportRuns(f.g(), 2);
    EXPECT_EQ(transfer::keptImportRuns(f.g()), 2);
    for (const auto* file : {&kFirst, &kSecond, &kThird})
        ASSERT_EQ(f.import(*file), transfer::ImportOutcome::Finished);
    const auto runs = transfer::importRuns(f.store());
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0].lauf, 2);
    EXPECT_EQ(f.takeBack(1).outcome, transfer::TakeBackOutcome::Nothing);
    // The records hold what the kept runs need and no more.
    EXPECT_EQ(f.scalar("SELECT count(*) FROM tolma_rueck_betrieb WHERE lauf < 2"), 0);

    // The number is the settings store's: it holds after a restart, and a lower one drops the
    // older records at the start of the next import, not before.
    transfer::setKeptImportRuns(f.g(), 1);
    f.newRun();
    f.start();
    EXPECT_EQ(transfer::keptImportRuns(f.g()), 1);
    EXPECT_EQ(transfer::importRuns(f.store()).size(), 2u);
    ASSERT_EQ(f.import(fileOf({business("1006", "Werft")})), transfer::ImportOutcome::Finished);
    const auto left = transfer::importRuns(f.store());
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].lauf, 4);
    EXPECT_EQ(f.scalar("SELECT count(*) FROM tolma_rueck_betrieb WHERE lauf < 4"), 0);
    EXPECT_EQ(f.scalar("SELECT count(*) FROM tolma_import_marke WHERE lauf < 4"), 0);
}

TEST(ImportJournalTest, TenRunsKeepTheirRecordsByDefault) {
    JournalFixture f;
    EXPECT_EQ(transfer::keptImportRuns(f.g()), 10);
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    const Strings afterFirst = f.dump();
    for (int i = 2; i <= 10; ++i)
        ASSERT_EQ(f.import(fileOf({business(std::to_string(2000 + i), "Lauf")})),
                  transfer::ImportOutcome::Finished);
    EXPECT_EQ(transfer::importRuns(f.store()).size(), 10u);
    EXPECT_GT(f.scalar("SELECT count(*) FROM tolma_import_marke WHERE lauf = 1"), 0);

    // The eleventh run drops the first one's record, and only that.
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Finished);
    const auto runs = transfer::importRuns(f.store());
    ASSERT_EQ(runs.size(), 10u);
    EXPECT_EQ(runs.front().lauf, 2);
    EXPECT_EQ(runs.back().lauf, 11);
    EXPECT_EQ(f.scalar("SELECT count(*) FROM tolma_import_marke WHERE lauf = 1"), 0);
    EXPECT_EQ(f.takeBack(1).outcome, transfer::TakeBackOutcome::Nothing);
    EXPECT_EQ(f.takeBack(2).runs.size(), 10u);
    EXPECT_EQ(f.dump(), afterFirst);
}

TEST(ImportJournalTest, EmptyingTheStoreLeavesNothingToTakeBack) {
    JournalFixture f;
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Finished);
    options::OptionsForm form;
    options::Form_Activate(f.g(), form);
    f.dialogs.answers = {core::msg::vbYes};
    options::Command4_Click(f.g(), form, 0);
    ASSERT_EQ(f.lastMessage(), "Die Datenbank wurde gelöscht und ersetzt!");
    EXPECT_TRUE(transfer::importRuns(f.store()).empty());
    EXPECT_EQ(f.takeBack().outcome, transfer::TakeBackOutcome::Nothing);
    // The next run is recorded in the new store as its first.
    ASSERT_EQ(f.import(kThird), transfer::ImportOutcome::Finished);
    const auto runs = transfer::importRuns(f.store());
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].lauf, 1);
}

TEST(ImportJournalTest, CompactionKeepsTheRecords) {
    JournalFixture f;
    const Strings empty = f.dump();
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    const Strings afterFirst = f.dump();
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Finished);
    // The replaced business left a gap in the row ids, which a rewrite must not close.
    ASSERT_GT(f.scalar("SELECT max(rowid) - count(*) FROM betrieb"), 0);

    // Space freed by other tools makes the store worth rewriting.
    f.store().execute(
        "CREATE TABLE ballast AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
        "WHERE i < 2000) SELECT randomblob(1000) AS b FROM n");
    f.store().execute("DELETE FROM ballast");
    ASSERT_GT(f.scalar("PRAGMA freelist_count") * 5, f.scalar("PRAGMA page_count"));
    core::DB_Komprimieren(f.g());
    ASSERT_EQ(f.scalar("PRAGMA freelist_count"), 0);  // rewritten
    EXPECT_FALSE(f.g().log.fehler_vorhanden) << f.logText();

    EXPECT_EQ(transfer::importRuns(f.store()).size(), 2u);
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), afterFirst);
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.dump(), empty);
}

TEST(ImportJournalTest, AFailedTakingBackChangesNothing) {
    JournalFixture f;
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    ASSERT_EQ(f.import(kSecond), transfer::ImportOutcome::Finished);
    const Strings before = f.dump();
    // A record damaged by other tools: the person table's record is gone.
    const auto file = f.g().settings.db_pfad_aktuell;
    f.newRun();
    store::Database::OpenDatabase(file).Execute("DROP TABLE tolma_rueck_person");
    f.start();
    const auto r = f.takeBack(1);
    EXPECT_EQ(r.outcome, transfer::TakeBackOutcome::Failed);
    EXPECT_EQ(f.lastMessage(),
              "Der Import konnte nicht zurückgenommen werden; der Datenbestand ist unverändert.");
    EXPECT_EQ(f.dump(), before);
    for (const auto& run : transfer::importRuns(f.store())) EXPECT_FALSE(run.zurueckgenommen);
    EXPECT_EQ(f.entries("Import_zuruecknehmen"), 1);
}

TEST(ImportJournalTest, TheRecordStaysOutOfTheSchemaAndTheExportsView) {
    JournalFixture f;
    ASSERT_EQ(f.import(kFirst), transfer::ImportOutcome::Finished);
    // No trigger stays behind in the store or on the connection once the run is over.
    auto st = f.store().prepare("SELECT count(*) FROM sqlite_master WHERE type = 'trigger'");
    st->step();
    EXPECT_EQ(st->column(0).toInteger(), 0);
    auto temp = f.store().prepare("SELECT count(*) FROM sqlite_temp_master WHERE type = 'trigger'");
    temp->step();
    EXPECT_EQ(temp->column(0).toInteger(), 0);
    // An edit after the run is no part of it.
    f.store().execute("UPDATE betrieb SET [b-eintr-name] = 'Geändert' WHERE [betr-nr] = '1003'");
    EXPECT_EQ(f.takeBack().runs.size(), 1u);
    EXPECT_EQ(f.count("betrieb"), 0);
}

}  // namespace
}  // namespace tolma::test
