// A program that runs for a long time gives what a freshly started one gives. One process runs
// a random sequence of the program's functions on one store; before each step its home is
// copied, and a fresh process (this program again, started with --one-step) runs the same step
// on the copy. Whatever one function leaves behind in the long-running process (the ESC key, the
// import's lists, cached statements and query shapes, the record of import runs, the search
// index) shows as a difference between the two: in what the step showed, logged and wrote, in
// the rows of the store, the import runs, the settings, and the search hits.
//
// TOLMA_LONG_LIVED_SEED replays a sequence, TOLMA_LONG_LIVED_STEPS sets its length, and
// TOLMA_LONG_LIVED_VERBOSE=1 names each step as it comes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

#include "../store/test_db.h"
#include "model/default_stores.h"
#include "small_files.h"
#include "steps.h"
#include "store/connection.h"
#include "store/database.h"
#include "transfer/journal.h"

extern char** environ;

namespace tolma::test {
namespace {

constexpr const char* kStepMark = "== schritt";
constexpr const char* kStateMark = "== zustand";
constexpr const char* kRebuiltMark = "== neu aufgebaut";

// The log entries of a business element that the generated files break on purpose (a section
// without its end); any other entry says the program failed with its own store.
const std::set<std::string> kRecordFaults = {"Upd_2_Read", "Upd_3_Betr", "Upd_4_Andere"};

long fromEnvironment(const char* name, long fallback) {
    const char* v = std::getenv(name);
    return v && *v ? std::atol(v) : fallback;
}

std::string withSlash(const std::filesystem::path& dir) {
    std::string s = std::filesystem::absolute(dir).lexically_normal().string();
    if (s.back() != '/') s += '/';
    return s;
}

// The home as a fresh program would find it: every file but SQLite's shared-memory index, which
// belongs to the connections of the running process and is rebuilt from the log file.
void copyHome(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::remove_all(to);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(from)) {
        const auto target = to / std::filesystem::relative(entry.path(), from);
        if (entry.is_directory()) {
            std::filesystem::create_directories(target);
        } else if (!entry.path().string().ends_with("-shm")) {
            std::filesystem::create_directories(target.parent_path());
            std::filesystem::copy_file(entry.path(), target);
        }
    }
}

std::vector<std::string> readLines(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    std::ifstream in(file, std::ios::binary);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The lines of `all` between the mark and the next mark.
std::vector<std::string> section(const std::vector<std::string>& all, const std::string& mark) {
    std::vector<std::string> out;
    auto it = std::find(all.begin(), all.end(), mark);
    if (it == all.end()) return out;
    for (++it; it != all.end() && it->rfind("== ", 0) != 0; ++it) out.push_back(*it);
    return out;
}

// What only one side has, a few lines of each.
std::string difference(const std::vector<std::string>& ours, const std::vector<std::string>& fresh,
                       const char* oursName, const char* freshName) {
    const std::multiset<std::string> a(ours.begin(), ours.end()), b(fresh.begin(), fresh.end());
    std::vector<std::string> onlyA, onlyB;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(onlyA));
    std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(onlyB));
    std::string text;
    if (onlyA.empty() && onlyB.empty()) text += "  (same lines, in another order)\n";
    for (const auto& [name, lines] : {std::pair{oursName, &onlyA}, std::pair{freshName, &onlyB}}) {
        for (size_t i = 0; i < lines->size() && i < 12; ++i)
            text += std::string("  only ") + name + ": " + (*lines)[i].substr(0, 400) + "\n";
        if (lines->size() > 12)
            text += "  ... " + std::to_string(lines->size() - 12) + " more only " + name + "\n";
    }
    return text;
}

// The fresh program: this executable with --one-step, on the copy of the home.
int runFresh(const std::filesystem::path& stepFile, const std::filesystem::path& home,
             const std::filesystem::path& original, const std::filesystem::path& out, pid_t& pid) {
    std::vector<std::string> args = {"/proc/self/exe", "--one-step",      stepFile.string(),
                                     home.string(),    original.string(), out.string()};
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    args[0] = self;
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const int rc = posix_spawn(&pid, self.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc;
}

int waitFor(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The next step, drawn from what the long-running program holds now.
Step draw(std::mt19937& random, Program& program, const std::filesystem::path& files, int number,
          std::time_t clock) {
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    auto chance = [&](int percent) { return pick(100) < percent; };
    Step s;
    s.clock = clock;
    const int r = pick(100);
    using K = Step::Kind;
    s.kind = r < 30   ? K::Import
             : r < 42 ? K::Check
             : r < 56 ? K::TakeBack
             : r < 61 ? K::SwitchKind
             : r < 67 ? K::Compact
             : r < 70 ? K::Empty
             : r < 78 ? K::Search
             : r < 88 ? K::Export
                      : K::Filter;
    const int yes = 6, no = 7;
    switch (s.kind) {
        case K::Import:
        case K::Check: {
            const bool byNotification = chance(25);
            // Now and then a file large against the store: the import then leaves out the
            // lists' indexes and keeps the search index by its way for many new businesses.
            const int businesses = chance(8) ? 90 + pick(40) : 1 + pick(12);
            s.file = (files / ("datei_" + std::to_string(number) + ".tml")).string();
            std::ofstream(s.file, std::ios::binary)
                << smallTransferFile(random, byNotification, businesses);
            if (chance(s.kind == K::Import ? 25 : 15)) s.escAt = 1 + pick(businesses + 1);
            // The consent, then the change of the data kind when the file's kind differs.
            if (s.kind == K::Import) s.answers = {chance(92) ? yes : no, chance(50) ? yes : no};
            break;
        }
        case K::TakeBack: {
            s.answers = {chance(90) ? yes : no};
            long last = 0;
            if (program.g.stores.db_daten.isSet())
                for (const auto& run :
                     transfer::importRuns(*program.g.stores.db_daten.connection()))
                    last = run.lauf;
            if (chance(30) && last > 0) s.lauf = 1 + pick(static_cast<int>(last));
            break;
        }
        case K::SwitchKind:
        case K::Empty:
            s.answers = {chance(90) ? yes : no};
            break;
        case K::Search: {
            const char* queries[] = {"Schröder", "Schroeder", "Fisch", "Lübeck", "Jörn Möller"};
            s.query = queries[pick(5)];
            break;
        }
        case K::Export:
            s.byKey = chance(50);
            if (chance(25)) s.escAt = 1 + pick(8);
            break;
        case K::Filter:
            s.on = chance(60);
            for (int p = 0; p < 4; ++p)
                if (chance(50)) s.picks.push_back(p);
            break;
        case K::Compact:
            break;
    }
    return s;
}

TEST(LongLivedTest, EachStepGivesWhatAFreshProgramGivesOnTheSameStore) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    const auto seed = static_cast<unsigned>(fromEnvironment("TOLMA_LONG_LIVED_SEED", 20261126));
    const long steps = fromEnvironment("TOLMA_LONG_LIVED_STEPS", 200);
    const bool verbose = fromEnvironment("TOLMA_LONG_LIVED_VERBOSE", 0) != 0;
    std::cout << "seed " << seed << " (TOLMA_LONG_LIVED_SEED=" << seed << " replays it), " << steps
              << " steps" << std::endl;
    const auto started = std::chrono::steady_clock::now();

    TempDir dir;
    const auto files = dir.path() / "dateien", home = dir.path() / "lang",
               fresh = dir.path() / "frisch";
    std::filesystem::create_directories(files);
    Program program(home);
    ASSERT_TRUE(program.g.stores.db_daten.isSet()) << program.g.log.lastLoggedError;
    std::mt19937 random(seed);
    int differing = 0, staleIndex = 0, failed = 0;
    long hits = 0;
    std::time_t clock = 1700000000;

    for (int i = 1; i <= steps; ++i) {
        clock += 61;
        const Step step = draw(random, program, files, i, clock);
        if (verbose) std::cout << "step " << i << ": " << step.describe() << std::endl;
        const auto stepFile = dir.path() / "schritt.txt", out = dir.path() / "frisch.txt";
        std::ofstream(stepFile, std::ios::binary) << step.text() << "\n"
                                                  << KeptInMemory::of(program.g).text() << "\n";
        std::filesystem::remove(out);
        copyHome(home, fresh);
        pid_t pid = 0;
        ASSERT_EQ(runFresh(stepFile, fresh, home, out, pid), 0);

        const auto ours = program.run(step);
        const auto ourState = program.state();
        const int code = waitFor(pid);
        const auto theirs = readLines(out);
        const std::string where = "step " + std::to_string(i) + " of seed " + std::to_string(seed) +
                                  " (" + step.describe() + ")";
        if (code != 0 || theirs.empty()) {
            ++differing;
            ADD_FAILURE() << where << ": the fresh program ended with " << code;
            continue;
        }
        // A failure of the program with its own store (the fresh program meets it alike).
        const std::string entry = "Protokoll: Fehler in Sub/Function: ";
        std::string failures;
        for (const auto& line : ours)
            if (line.rfind(entry, 0) == 0 && !kRecordFaults.count(line.substr(entry.size())))
                failures += line.substr(entry.size()) + " ";
        if (!failures.empty()) {
            ++failed;
            std::string log;
            for (const auto& line : ours)
                if (line.rfind("Protokoll: ", 0) == 0) log += "  " + line + "\n";
            ADD_FAILURE() << where << ": the program failed with its store (" << failures << ")\n"
                          << log;
        }
        const auto theirStep = section(theirs, kStepMark), theirState = section(theirs, kStateMark);
        if (ours != theirStep || ourState != theirState) {
            ++differing;
            ADD_FAILURE() << where << ": the long-running program differs from a fresh one\n"
                          << (ours != theirStep
                                  ? "what the step did:\n" +
                                        difference(ours, theirStep, "long-running", "fresh")
                                  : "")
                          << (ourState != theirState
                                  ? "what it left:\n" +
                                        difference(ourState, theirState, "long-running", "fresh")
                                  : "");
        }
        // The index as the step left it against one built anew from the store.
        std::vector<std::string> theirHits;
        for (const auto& line : theirState)
            if (line.rfind("suche ", 0) == 0) theirHits.push_back(line);
        const auto rebuilt = section(theirs, kRebuiltMark);
        hits += static_cast<long>(rebuilt.size());
        if (theirHits != rebuilt) {
            ++staleIndex;
            ADD_FAILURE() << where << ": the search index does not follow the store\n"
                          << difference(theirHits, rebuilt, "index kept", "index rebuilt");
        }
    }
    // The fixed queries meet the stores the steps leave, or the comparison of hits says nothing.
    EXPECT_GT(hits, steps);
    const auto seconds = std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now() - started)
                             .count() /
                         1000.0;
    std::cout << steps << " steps in " << seconds << " s; " << differing
              << " differing from a fresh program, " << staleIndex << " with a stale search index, "
              << failed << " failing with the store" << std::endl;
}

// The fresh program: one step on a copy of the home, and what it did and left, into a file.
int runOneStep(char** argv) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    std::ifstream in(argv[2], std::ios::binary);
    std::string line, kept;
    std::getline(in, line);
    std::getline(in, kept);
    const Step step = Step::parse(line);
    const KeptInMemory keptInMemory = KeptInMemory::parse(kept);
    const std::filesystem::path home = argv[3];
    // The settings name the stores by their whole path: the copy's, not the original's.
    {
        auto db = store::Database::OpenDatabase(home / "DB" / model::kSettingsStoreFile, true);
        db.connection()->execute(
            "UPDATE Optionen SET db_betriebsbezogen = replace(db_betriebsbezogen, ?1, ?2), "
            "db_meldungsbezogen = replace(db_meldungsbezogen, ?1, ?2)",
            {store::Variant(withSlash(argv[4])), store::Variant(withSlash(home))});
    }
    Program program(home, &keptInMemory);
    std::ofstream out(argv[5], std::ios::binary);
    out << kStepMark << "\n";
    for (const auto& l : program.run(step)) out << l << "\n";
    out << kStateMark << "\n";
    for (const auto& l : program.state()) out << l << "\n";
    out << kRebuiltMark << "\n";
    for (const auto& l : program.hitsOfARebuiltIndex()) out << l << "\n";
    return out ? 0 : 1;
}

}  // namespace
}  // namespace tolma::test

int main(int argc, char** argv) {
    if (argc == 6 && std::string(argv[1]) == "--one-step") return tolma::test::runOneStep(argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
