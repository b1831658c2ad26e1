#pragma once

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "../core/fake_dialogs.h"
#include "../core/scripted_shell.h"
#include "core/globals.h"

namespace tolma::test {

// One use of the program, as a clerk makes it from the menu.
struct Step {
    enum class Kind { Check, Import, TakeBack, SwitchKind, Compact, Empty, Search, Export, Filter };
    Kind kind = Kind::Search;
    std::string file;          // Check, Import: the transfer file
    int escAt = 0;             // ESC is pressed at this call of DoEvents; 0 never
    std::vector<int> answers;  // the clerk's answers to the questions, in order; then No
    long lauf = 0;             // TakeBack: the run named; 0 the newest one
    bool on = false;           // Filter
    std::vector<int> picks;    // Filter: positions chosen in the list of municipalities
    bool byKey = false;        // Export: one file per key
    std::string query;         // Search
    std::time_t clock = 0;     // the time the program reads during the step

    std::string text() const;  // one line, read back by parse()
    static Step parse(const std::string& text);
    std::string describe() const;  // for the reader of a failure
};

// The values that the program keeps in memory on purpose for the whole of its run, rather than
// reading them from its stores: whether the error log got an entry in this run (the import then
// offers the log, and the log's head is written once), and the data kind and store name, which
// the import's change of the data kind writes into the settings only, leaving the values in
// memory as they were until the settings are read again, and the menu's check marks, of which
// a failed import leaves its own set until the program ends. A fresh program is given them, so
// that these by-design differences do not hide others.
struct KeptInMemory {
    bool errorsLogged = false;
    std::string datenart, kurzname;
    core::MenuMarks marks;
    std::string text() const;
    static KeptInMemory parse(const std::string& text);
    static KeptInMemory of(const core::Globals& g);
};

// The program as one process runs it: its globals with scripted dialogs, a clock and an ESC key
// that the steps set, started on a home.
class Program {
  public:
    explicit Program(const std::filesystem::path& home, const KeptInMemory* kept = nullptr);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Runs the step; what it showed, answered, logged and wrote, one item a line.
    std::vector<std::string> run(const Step& step);
    // What the next step finds: the store's rows, the import runs, the settings, the search
    // hits of fixed queries, and the globals that routines read.
    std::vector<std::string> state();
    // The same hits after the search index was built anew from the store.
    std::vector<std::string> hitsOfARebuiltIndex();

    FakeDialogs dialogs;  // outlives the globals that point to it
    ScriptedShell shell;
    core::Globals g;

  private:
    std::string normalized(std::string text) const;
    std::vector<std::string> hits();

    std::time_t now_ = 1700000000;
    int escAt_ = 0, events_ = 0;
};

}  // namespace tolma::test
