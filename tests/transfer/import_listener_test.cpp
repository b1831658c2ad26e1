// What a listener of the import driver hears, in order, for a run that ends, one cancelled by
// ESC, and one whose block cannot be committed.
#include <gtest/gtest.h>

#include "import_fixture.h"
#include "store/connection.h"

namespace tolma::test {
namespace {

std::string business(const std::string& nr, const std::string& trade) {
    return "<gem-kz>01001000</gem-kz>\n<betr-nr>" + nr +
           "</betr-nr>\n<betr-hist-nr>1</betr-hist-nr>\n<b-eintr-name>" + trade + " " + nr +
           "</b-eintr-name>";
}

TmlFile businesses(std::initializer_list<const char*> numbers,
                   const std::string& trade = "Bäckerei") {
    TmlFile f;
    for (const char* nr : numbers) f.betriebe.push_back(business(nr, trade));
    return f;
}

long rowsOf(store::Connection& c, const std::string& nr) {
    auto st = c.prepare("SELECT count(*) FROM betrieb WHERE [betr-nr] = ?1");
    st->bind(1, store::Variant(nr));
    st->step();
    return static_cast<long>(st->column(0).toInteger());
}

// Writes each event as a line; the stored rows of a business named by the keys are counted as
// the keys are told, before the block removes them.
struct Recorder : transfer::ImportListener {
    Strings events;
    bool failCommit = false;

    void runStarts(const std::string& file) override {
        events.push_back("starts " + std::filesystem::path(file).filename().string());
    }
    void readingStarts(store::Connection* c) override {
        events.push_back(c ? "reading" : "reading without store");
    }
    void headRead(const std::string& head) override {
        std::string struktur;
        transfer::headValue(head, "struktur", struktur);
        events.push_back("head " + struktur);
    }
    void compacting() override { events.push_back("compacting"); }
    void blockBegins(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("begins " + std::to_string(b.number));
    }
    transfer::RemovedAhead* blockKeys(store::Connection* c,
                                      const transfer::BlockKeys& keys) override {
        std::string line = "keys";
        for (const auto& [nr, hist] : keys.states)
            line += " " + nr + "(" + std::to_string(rowsOf(*c, nr)) + " stored)";
        events.push_back(line);
        return nullptr;
    }
    void blockRead(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("read " + std::to_string(b.read) + " of " +
                         std::to_string(b.elements.size()) + ", replaced " +
                         std::to_string(b.replaced) + ", records " + std::to_string(b.records));
    }
    void blockCommitting(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("committing " + std::to_string(b.number));
        // As the run's record does when it cannot write its count.
        if (failCommit) throw std::runtime_error("Nicht genügend Speicherplatz");
    }
    void blockCommitted(store::Connection*, const transfer::ImportBlock& b) override {
        events.push_back("committed " + std::to_string(b.number));
    }
    void blocksDone(store::Connection*, long records) override {
        events.push_back("done " + std::to_string(records));
    }
    void runEnding() override { events.push_back("ending"); }
    void runEnds(store::Connection*) override { events.push_back("ends"); }
    void runCancelled(store::Connection*) override { events.push_back("cancelled"); }
    void runFailed() override { events.push_back("failed"); }
};

// The screen's last word, after the listeners'.
struct LastLabel : transfer::StartViewScreen {
    using StartViewScreen::StartViewScreen;
    Strings* events = nullptr;
    void ended(const std::string& label) override {
        StartViewScreen::ended(label);
        events->push_back("screen " + label);
    }
    void failed(const std::string& label) override {
        StartViewScreen::failed(label);
        events->push_back("screen " + label);
    }
};

transfer::ImportOutcome importWith(ImportFixture& f, Recorder& recorder, const TmlFile& file) {
    f.dialogs.answers = {core::msg::vbYes};
    LastLabel screen(f.g());
    screen.events = &recorder.events;
    transfer::ImportListener* const listeners[] = {&recorder};
    return transfer::runImport(f.g(), f.write(file.text(), "lauf.tml"), screen, listeners);
}

TEST(ImportListenerTest, ARunTellsItsBlocksInOrderAndTheKeysBeforeTheirRowsGo) {
    ImportFixture f;
    ASSERT_EQ(f.import(businesses({"1001"}, "Konditorei")), transfer::ImportOutcome::Finished);
    Recorder recorder;
    EXPECT_EQ(importWith(f, recorder, businesses({"1001", "1002"})),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(
        recorder.events,
        (Strings{"starts lauf.tml", "reading", "compacting", "head BETRIEBSBEZOGEN", "begins 1",
                 "keys 1001(1 stored)", "read 2 of 2, replaced 1, records 2", "committing 1",
                 "committed 1", "done 2", "ending", "screen Auswahl von Gewerbedaten!", "ends"}));
    EXPECT_EQ(f.count("betrieb"), 2);
    // Read again unchanged, the businesses keep their rows: no keys, but counted as replaced.
    Recorder again;
    EXPECT_EQ(importWith(f, again, businesses({"1001", "1002"})),
              transfer::ImportOutcome::Finished);
    EXPECT_EQ(again.events[5], "keys");
    EXPECT_EQ(again.events[6], "read 2 of 2, replaced 2, records 2");
    EXPECT_EQ(f.count("betrieb"), 2);
}

TEST(ImportListenerTest, EscBetweenTwoBusinessesCommitsTheBlockAndCancelsTheRun) {
    ImportFixture f;
    int calls = 0;
    f.shell.onEvents = [&] {
        if (++calls == 2) f.g().view.taste = 27;
    };
    Recorder recorder;
    EXPECT_EQ(importWith(f, recorder, businesses({"1001", "1002", "1003"})),
              transfer::ImportOutcome::Cancelled);
    EXPECT_EQ(recorder.events,
              (Strings{"starts lauf.tml", "reading", "compacting", "head BETRIEBSBEZOGEN",
                       "begins 1", "keys", "read 2 of 3, replaced 0, records 1", "committing 1",
                       "committed 1", "ending", "screen Auswahl von Gewerbedaten!", "cancelled"}));
    EXPECT_EQ(f.count("betrieb"), 2);  // the one under way at ESC is kept
}

TEST(ImportListenerTest, ABlockThatCannotBeCommittedFailsTheRunWithoutCommittedOrEnd) {
    ImportFixture f;
    Recorder recorder;
    recorder.failCommit = true;
    EXPECT_EQ(importWith(f, recorder, businesses({"1001", "1002"})),
              transfer::ImportOutcome::Failed);
    EXPECT_EQ(recorder.events,
              (Strings{"starts lauf.tml", "reading", "compacting", "head BETRIEBSBEZOGEN",
                       "begins 1", "keys", "read 2 of 2, replaced 0, records 2", "committing 1",
                       "failed", "screen ACHTUNG UPDATE-FEHLER!"}));
    EXPECT_EQ(f.entries("Upd_1_Start"), 1);
}

}  // namespace
}  // namespace tolma::test
