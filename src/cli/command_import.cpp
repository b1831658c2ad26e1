#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <ostream>

#include "cli/cli.h"
#include "cli/session.h"
#include "transfer/import_driver.h"

namespace tolma::cli {
namespace {

// Ctrl-C acts as ESC: the import stops between two records.
std::atomic<bool> interrupted{false};
extern "C" void onInterrupt(int) { interrupted = true; }

}  // namespace

int commandImport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    if (args.size() != 1) {
        err << "Aufruf: tolma-cli [--home VERZEICHNIS] import [--yes|--no|--answers JN...] DATEI\n";
        return kExitUsage;
    }
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;

    interrupted = false;
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previous);
    g.doEvents = [&g] {
        if (interrupted.exchange(false)) g.taste = 27;
    };
    const bool showProgress = options.interactive && ::isatty(2);
    auto last = std::chrono::steady_clock::now();
    g.refreshView = [&] {
        if (!showProgress) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - last < std::chrono::milliseconds(200)) return;
        last = now;
        err << "\r" << g.startView.Label2 << "\x1b[K" << std::flush;
    };

    const transfer::ImportOutcome outcome = transfer::Upd_1_Start(g, args[0]);
    sigaction(SIGINT, &previous, nullptr);
    if (showProgress) err << "\r\x1b[K" << std::flush;
    if (outcome == transfer::ImportOutcome::Failed) out << "Import: " << g.startView.Label2 << "\n";
    session.finish(out);
    switch (outcome) {
        case transfer::ImportOutcome::Finished:
            return kExitOk;
        case transfer::ImportOutcome::Cancelled:
            return kExitCancelled;
        case transfer::ImportOutcome::Failed:
            return kExitFailed;
    }
    return kExitFailed;
}

}  // namespace tolma::cli
