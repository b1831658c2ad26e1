#include "cli/interrupt.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <ostream>

namespace tolma::cli {
namespace {

std::atomic<bool> interrupted{false};
extern "C" void onInterrupt(int) {
    interrupted = true;
}
struct sigaction previousAction {};

}  // namespace

InterruptAsEscape::InterruptAsEscape(core::Globals& g, std::ostream& err, bool showProgress)
    : err_(err), showProgress_(showProgress) {
    interrupted = false;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousAction);
    g.doEvents = [&g] {
        if (interrupted.exchange(false)) g.taste = 27;
    };
    auto last =
        std::make_shared<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now());
    g.refreshView = [&g, &err, showProgress, last] {
        if (!showProgress) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - *last < std::chrono::milliseconds(200)) return;
        *last = now;
        err << "\r" << g.startView.Label2 << "\x1b[K" << std::flush;
    };
}

InterruptAsEscape::~InterruptAsEscape() {
    sigaction(SIGINT, &previousAction, nullptr);
    if (showProgress_) err_ << "\r\x1b[K" << std::flush;
}

}  // namespace tolma::cli
