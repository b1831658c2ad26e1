// Reading a transfer file again into a store that holds its businesses: whatever the import
// saves itself, a clerk sees the store, the order of each business's rows, the log, the counts,
// the listed runs and the taking back exactly as when every row was replaced.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "import_fixture.h"
#include "model/relations.h"
#include "model/schema.h"
#include "store/connection.h"
#include "store/jet_sql.h"
#include "tml_generator.h"
#include "transfer/export_form.h"
#include "transfer/journal.h"

namespace tolma::test {
namespace {

// Every row of the data store, each table's rows by their key and, under one key, in the order
// the record view shows them (their row ids), the row ids themselves left out.
struct ReplaceFixture : ImportFixture {
    Strings dump() {
        Strings all;
        auto& c = *g().stores.db_daten.connection();
        for (const auto& t : model::dataTables()) {
            std::string order;
            if (const model::Relation* r = model::relationOf(t.name))
                for (std::string_view k : {r->keys.number, r->keys.state, r->keys.person})
                    if (!k.empty()) order += store::jet::quoteName(std::string(k)) + ", ";
            auto st = c.prepare("SELECT * FROM main." + store::jet::quoteName(t.name) +
                                " ORDER BY " + order + "rowid");
            Strings rows;
            while (st->step()) {
                std::string line = t.name;
                for (int i = 0; i < st->columnCount(); ++i) line += "|" + st->column(i).toString();
                rows.push_back(line);
            }
            // Rows without a key compare as a set.
            if (order.empty()) std::sort(rows.begin(), rows.end());
            all.insert(all.end(), rows.begin(), rows.end());
        }
        return all;
    }

    // What one run leaves for the clerk: the store, the log lines it added, its counts.
    struct Seen {
        Strings store;
        std::string log;
        transfer::ImportCounts counts;
        std::string message;
    };
    Seen run(const std::string& bytes, std::deque<int> answers = {core::msg::vbYes}) {
        const size_t logBefore = logText().size();
        dialogs.answers = std::move(answers);
        Seen seen;
        EXPECT_EQ(transfer::Upd_1_Start(g(), write(bytes), &seen.counts),
                  transfer::ImportOutcome::Finished);
        seen.store = dump();
        seen.log = logText().substr(logBefore);
        seen.message = lastMessage();
        return seen;
    }
    std::vector<transfer::ImportRun> runs() {
        return transfer::importRuns(*g().stores.db_daten.connection());
    }
    void exportAll() {
        transfer::VerwaltungsblockForm form = transfer::Frm_Verwaltungsblock_Load(g());
        ASSERT_EQ(transfer::Frm_Verwaltungsblock_Command1_Click(g(), form, 0).outcome,
                  transfer::ExportResult::Outcome::Finished);
    }
    void takeBack() {
        dialogs.answers = {core::msg::vbYes};
        ASSERT_EQ(transfer::askAndTakeBack(g(), std::nullopt).outcome,
                  transfer::TakeBackOutcome::Done);
    }
};

std::string generated(long businesses, long changedEvery = 0, unsigned round = 1, int states = 0) {
    bench::GeneratorOptions options;
    options.businesses = businesses;
    if (states > 0) {
        options.structure = "MELDUNGSBEZOGEN";
        options.historyStates = states;
    }
    options.seed = 7;
    options.changedEvery = changedEvery;
    options.changeRound = round;
    std::ostringstream out;
    bench::writeTransferFile(out, options);
    return out.str();
}

std::string sample() {
    std::ifstream in(std::string(TOLMA_SOURCE_DIR) + "/data/beispiel.tml", std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string person(const std::string& nr, const std::string& art, const std::string& funktion,
                   const std::string& more = "") {
    return "<person>\n<p-funktion>" + funktion + "</p-funktion>\n<pers-nr>" + nr +
           "</pers-nr>\n<p-art>" + art + "</p-art>\n" + more + "</person>\n";
}

// The import's hard cases in one file: an element the table lacks (a log entry), a business
// twice, an empty address pair, two addresses and activities whose order counts, a person at
// two businesses with different data (the later one wins), a legal person with its
// representatives, persons' permits, a person without a number.
TmlFile hardCases(const std::string& second = "Zweiter Name") {
    const std::string addresses =
        "<adressen>\n<adresse art=\"1\">\n<b-adr-art>1</b-adr-art>\n<b-ort>Kiel</b-ort>\n"
        "</adresse>\n<adresse art=\"2\">\n<b-adr-art>2</b-adr-art>\n<b-ort>Eutin</b-ort>\n"
        "</adresse>\n</adressen>\n<taetigkeiten>\n<taetigkeit>\n<tk-schl>56.10</tk-schl>\n"
        "</taetigkeit>\n<taetigkeit>\n<tk-schl>47.24</tk-schl>\n</taetigkeit>\n</taetigkeiten>\n";
    const std::string permit =
        "<p-erlaubnisse>\n<p-erlaubnis>\n<p-erl-art>§ 34c</p-erl-art>\n"
        "<p-erl-datum>20200102</p-erl-datum>\n</p-erlaubnis>\n</p-erlaubnisse>\n";
    auto business = [](const std::string& nr, const std::string& name, const std::string& more) {
        return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
               "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + name +
               "</b-eintr-name>\n<b-rechtsform>350</b-rechtsform>\n" + more;
    };
    TmlFile f;
    f.betriebe = {
        business("2001", "Erster Name",
                 "<unbekannt>1</unbekannt>\n" + addresses + "<personen>\n" +
                     person("7001", "NP", "1", "<fam-name>Alt</fam-name>\n" + permit) +
                     "</personen>\n"),
        business("2002", "GmbH",
                 "<adressen>\n</adressen>\n<personen>\n" + person("7002", "JP", "4") +
                     person("7003", "NP", "3", "<fam-name>Vertreter</fam-name>\n") +
                     person("", "NP", "3") + "</personen>\n"),
        business("2003", second,
                 addresses + "<personen>\n" +
                     person("7001", "NP", "1", "<fam-name>Neu</fam-name>\n" + permit) +
                     "</personen>\n"),
        business("2001", "Erster Name wieder", addresses),
    };
    return f;
}

void expectSameAsBefore(ReplaceFixture& f, const std::string& bytes) {
    const auto first = f.run(bytes);
    const auto again = f.run(bytes);
    EXPECT_EQ(again.store, first.store);
    EXPECT_EQ(again.log, first.log);
    EXPECT_EQ(again.counts.read, first.counts.read);
    EXPECT_EQ(again.counts.removals, first.counts.removals);
    EXPECT_EQ(again.message, "Die Daten wurden übertragen!");
    const auto runs = f.runs();
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[1].betriebe, runs[0].betriebe);
    f.takeBack();
    EXPECT_EQ(f.dump(), first.store);
}

TEST(ReplaceTest, TheSameFileAgainLeavesStoreLogCountsAndRecordAsBefore) {
    {
        ReplaceFixture f;
        expectSameAsBefore(f, sample());
    }
    {
        ReplaceFixture f;
        expectSameAsBefore(f, generated(300));
    }
    {
        ReplaceFixture f;
        expectSameAsBefore(f, hardCases().text());
        EXPECT_EQ(f.entries("Upd_3_Betr"), 2);  // the unknown element, once per run
    }
}

// The rows that belong to a business state or link a person to one.
Strings businessRows(const Strings& rows) {
    Strings out;
    for (const auto& r : rows) {
        const model::Relation* rel = model::relationOf(r.substr(0, r.find('|')));
        if (rel && (rel->owner == model::Owner::BusinessState || rel->owner == model::Owner::Link))
            out.push_back(r);
    }
    return out;
}

// A file with a tenth, or with all, of its businesses changed, read over the original, leaves
// each business of the file as a store that read only the changed file holds it; taking it back
// restores the original. Persons who left a business stay in the store as they stood.
TEST(ReplaceTest, AChangedTenthIsStoredAsByAFreshImportAndTakenBack) {
    for (const auto& [original, changed] :
         {std::pair{generated(300), generated(300, 10)},
          std::pair{generated(300), generated(300, 1, 2)},
          std::pair{hardCases().text(), hardCases("Geänderter Name").text()}}) {
        ReplaceFixture replaced, fresh;
        const auto before = replaced.run(original);
        const auto after = replaced.run(changed);
        const auto reference = fresh.run(changed);
        EXPECT_EQ(after.log, reference.log);
        EXPECT_EQ(after.counts.read, reference.counts.read);
        EXPECT_EQ(businessRows(after.store), businessRows(reference.store));
        for (const auto& r : reference.store)
            EXPECT_NE(std::find(after.store.begin(), after.store.end(), r), after.store.end()) << r;
        EXPECT_NE(after.store, before.store);
        replaced.takeBack();
        EXPECT_EQ(replaced.dump(), before.store);
    }
}

// Taken back, the store holds the original again: the changed file read once more must be
// stored anew, though the store last read exactly its elements.
TEST(ReplaceTest, AfterTakingBackTheSameChangedFileIsStoredAgain) {
    ReplaceFixture f;
    const auto original = f.run(generated(200));
    const auto changed = f.run(generated(200, 10));
    f.takeBack();
    EXPECT_EQ(f.dump(), original.store);
    const auto again = f.run(generated(200, 10));
    EXPECT_EQ(again.store, changed.store);
    EXPECT_EQ(again.log, changed.log);
}

// The export sets the processing status of the businesses it wrote. Read again, the file's
// elements write their rows anew, the status they carry with them.
TEST(ReplaceTest, AfterAnExportTheSameFileAgainWritesItsRowsAsTheFirstTime) {
    for (const std::string& bytes : {generated(200), hardCases().text()}) {
        ReplaceFixture f;
        const auto first = f.run(bytes);
        f.exportAll();
        ASSERT_NE(f.dump(), first.store);
        const auto again = f.run(bytes);
        EXPECT_EQ(again.store, first.store);
        EXPECT_EQ(again.log, first.log);
    }
}

// A store whose table lost a column since the last read: every element that fills it is told
// of in the log again, as a store that never had it tells.
TEST(ReplaceTest, AColumnGoneSinceTheLastReadIsLoggedAgain) {
    const std::string bytes = hardCases().text();
    const std::string drop = "ALTER TABLE betrieb DROP COLUMN [b-rechtsform]";
    ReplaceFixture replaced, fresh;
    replaced.run(bytes);
    replaced.g().stores.db_daten.connection()->execute(drop);
    fresh.g().stores.db_daten.connection()->execute(drop);
    const auto again = replaced.run(bytes);
    const auto reference = fresh.run(bytes);
    EXPECT_NE(reference.log.find("BetrNr: 2002"), std::string::npos) << reference.log;
    EXPECT_EQ(again.log, reference.log);
    EXPECT_EQ(again.store, reference.store);
}

// Data by state: each business comes in three states, and the persons' permits go for all
// states of a number at once.
TEST(ReplaceTest, ByStateTheSameFileKeepsAndAChangedTenthWritesAsAFreshImport) {
    const std::string original = generated(150, 0, 1, 3), changed = generated(150, 10, 1, 3);
    const std::deque<int> switchStore{core::msg::vbYes, core::msg::vbYes};
    ReplaceFixture replaced, fresh;
    const auto first = replaced.run(original, switchStore);
    replaced.g().settings.datenart_wert = "MELDUNGSBEZOGEN";
    const auto again = replaced.run(original);
    EXPECT_EQ(again.store, first.store);
    EXPECT_EQ(again.log, first.log);
    // Left as they stand, the states are in the second run's record as such, without values.
    auto st = replaced.g().stores.db_daten.connection()->prepare(
        "SELECT count(*) FROM tolma_rueck_betrieb WHERE lauf = 2 AND art = 'G' AND [betr-nr] IS "
        "NULL");
    ASSERT_TRUE(st->step());
    EXPECT_GT(st->column(0).toInteger(), 300);
    st.reset();
    const auto after = replaced.run(changed);
    const auto reference = fresh.run(changed, switchStore);
    EXPECT_EQ(after.log, reference.log);
    EXPECT_EQ(businessRows(after.store), businessRows(reference.store));
    EXPECT_NE(after.store, first.store);
}

// ESC after a business left as it stands, while a later business of the same block, changed,
// shares a person with it: the block is read to its end, as if ESC had come there, and the
// person is not put back as the store held it before.
TEST(ReplaceTest, EscWithinABlockThatLeavesBusinessesAsTheyStandTakesEffectAtItsEnd) {
    auto file = [](const std::string& secondName) {
        auto business = [](const std::string& nr, const std::string& name,
                           const std::string& familyName) {
            return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
                   "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + name +
                   "</b-eintr-name>\n<personen>\n" +
                   person("7001", "NP", "1", "<fam-name>" + familyName + "</fam-name>\n") +
                   "</personen>\n";
        };
        TmlFile f;
        f.betriebe = {business("3001", "Erster", "Alt"), business("3002", secondName, "Neu")};
        return f.text();
    };
    ReplaceFixture f, reference;
    f.run(file("Zweiter"));
    reference.run(file("Zweiter"));
    int calls = 0;
    f.shell.onEvents = [&] {
        if (++calls == 1) f.g().view.taste = 27;
    };
    f.dialogs.answers = {core::msg::vbYes};
    EXPECT_EQ(transfer::Upd_1_Start(f.g(), f.write(file("Zweiter, umbenannt"))),
              transfer::ImportOutcome::Cancelled);
    const auto expected = reference.run(file("Zweiter, umbenannt"));
    EXPECT_EQ(f.dump(), expected.store);
}

// By state, a person's permits belong to the number, not to a state: a file that changes only
// the later state of a business leaves them as a fresh import of it does.
TEST(ReplaceTest, ByStateOneStateChangedLeavesThePermitsAsAFreshImport) {
    auto file = [](const std::string& laterName) {
        const std::string permit =
            "<p-erlaubnisse>\n<p-erlaubnis>\n<p-erl-art>§ 34c</p-erl-art>\n</p-erlaubnis>\n"
            "</p-erlaubnisse>\n";
        auto state = [&](const std::string& hist, const std::string& name,
                         const std::string& familyName) {
            return "<gem-kz>01001000</gem-kz>\n<betr-nr>4001</betr-nr>\n<betr-hist-nr>" + hist +
                   "</betr-hist-nr>\n<b-eintr-name>" + name + "</b-eintr-name>\n<personen>\n" +
                   person("8001", "NP", "1", "<fam-name>" + familyName + "</fam-name>\n" + permit) +
                   person("800" + hist + "0", "NP", "3", permit) + "</personen>\n";
        };
        TmlFile f;
        f.struktur = "MELDUNGSBEZOGEN";
        f.betriebe = {state("1", "Früher", "Alt"), state("2", laterName, "Neu")};
        return f.text();
    };
    const std::deque<int> switchStore{core::msg::vbYes, core::msg::vbYes};
    for (const auto& [original, changed] : {std::pair{file("Später"), file("Später, umbenannt")},
                                            std::pair{file("Später, umbenannt"), file("Später")}}) {
        ReplaceFixture replaced, fresh;
        replaced.run(original, switchStore);
        replaced.g().settings.datenart_wert = "MELDUNGSBEZOGEN";
        const auto after = replaced.run(changed);
        const auto reference = fresh.run(changed, switchStore);
        EXPECT_EQ(after.store, reference.store);
        EXPECT_EQ(after.log, reference.log);
    }
}

// A file whose first block leaves nearly everything as it stands, with a business and its
// person new to the store at its start and again, renamed, in a later block; its later
// businesses as they stand or changed. Each business ends as a fresh import of the file leaves
// it, the new one as its later element wrote it.
TEST(ReplaceTest, ANumberNewInTheFirstBlockAndAgainInALaterOneEndsAsInAFreshImport) {
    auto business = [](const std::string& name) {
        return "<betrieb>\n<gem-kz>01001000</gem-kz>\n<betr-nr>990000000001</betr-nr>\n"
               "<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" +
               name + "</b-eintr-name>\n<personen>\n" +
               person("990000000002", "NP", "1", "<fam-name>" + name + "</fam-name>\n") +
               "</personen>\n</betrieb>\n";
    };
    auto nth = [](const std::string& text, int n) {
        size_t at = 0;
        for (int i = 0; i < n; ++i) at = text.find("<betrieb>", at + 1);
        return at;
    };
    const std::string original = generated(2000), allChanged = generated(2000, 1, 2);
    ASSERT_GT(original.size(), transfer::kBlockSize + 500000);  // two blocks at least
    for (const std::string& later : {original, allChanged}) {
        std::string changed =
            original.substr(0, nth(original, 1400)) + later.substr(nth(later, 1400));
        changed.insert(changed.rfind("</datenblock>"), business("Spaeter"));
        changed.insert(changed.find("<betrieb>"), business("Frueher"));
        ReplaceFixture replaced, fresh;
        replaced.run(original);
        const auto after = replaced.run(changed);
        const auto reference = fresh.run(changed);
        EXPECT_EQ(after.log, reference.log);
        EXPECT_EQ(businessRows(after.store), businessRows(reference.store));
        for (const auto& r : reference.store)
            EXPECT_NE(std::find(after.store.begin(), after.store.end(), r), after.store.end()) << r;
        const Strings rows = businessRows(reference.store);
        auto naming = [&](const std::string& name) {
            return std::count_if(rows.begin(), rows.end(),
                                 [&](const std::string& r) { return r.find(name) != r.npos; });
        };
        EXPECT_EQ(naming("|Spaeter|"), 1);
        EXPECT_EQ(naming("|Frueher|"), 0);
    }
}

// An element that logged leaves no fingerprint, and the one it replaced goes: the element as it
// stood before, read once more, is stored again rather than taken for what the store holds.
TEST(ReplaceTest, AnElementAsBeforeAfterOneThatLoggedIsStoredAgain) {
    auto file = [](const std::string& name, const std::string& more) {
        TmlFile f;
        f.betriebe = {
            "<gem-kz>01001000</gem-kz>\n<betr-nr>5001</betr-nr>\n"
            "<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" +
            name + "</b-eintr-name>\n" + more};
        return f.text();
    };
    ReplaceFixture f, fresh;
    f.run(file("Vorher", ""));
    const auto logged = f.run(file("Geloggt", "<unbekannt>1</unbekannt>\n"));
    EXPECT_NE(logged.log.find("BetrNr: 5001"), std::string::npos) << logged.log;
    const auto again = f.run(file("Vorher", ""));
    EXPECT_EQ(again.store, fresh.run(file("Vorher", "")).store);
}

}  // namespace
}  // namespace tolma::test
