#pragma once

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>

#include "../store/test_db.h"
#include "browse/data_controls.h"
#include "core/globals.h"
#include "core/start.h"
#include "fake_dialogs.h"
#include "scripted_shell.h"

namespace tolma::test {

// A home of its own, started as the program starts, with scripted dialogs and a fixed clock.
struct CoreFixture {
    TempDir dir;
    FakeDialogs dialogs;
    ScriptedShell shell;
    std::unique_ptr<core::Globals> run;

    CoreFixture() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        newRun();
    }
    core::Globals& g() { return *run; }
    // Ends the run (letting go of every store) and prepares the next one.
    void newRun() {
        run.reset();
        run = std::make_unique<core::Globals>();
        browse::attachDataControls(*run);
        run->paths.dataDir = TOLMA_STORE_DIR;
        run->dialogs = &dialogs;
        run->shell = &shell;
        run->clock = [] { return std::time_t(1700000000); };  // 14.11.2023 22:13:20 UTC
    }
    std::filesystem::path home() const { return dir.path() / "home"; }
    void start(const core::StartHooks& hooks = {}) { core::A_Start(*run, home(), hooks); }

    std::string logText() const {
        std::ifstream in(home() / "Log" / "ERROR.LOG", std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
};

}  // namespace tolma::test
