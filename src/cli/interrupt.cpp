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
    : g_(g),
      err_(err),
      showProgress_(showProgress),
      lastShown_(std::chrono::steady_clock::now()),
      previousShell_(g.shell) {
    interrupted = false;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousAction);
    g.shell = this;
}

void InterruptAsEscape::doEvents() {
    if (interrupted.exchange(false)) g_.view.taste = 27;
}

void InterruptAsEscape::refreshView() {
    if (!showProgress_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - lastShown_ < std::chrono::milliseconds(200)) return;
    lastShown_ = now;
    err_ << "\r" << g_.forms.startView.Label2 << "\x1b[K" << std::flush;
}

InterruptAsEscape::~InterruptAsEscape() {
    g_.shell = previousShell_;
    sigaction(SIGINT, &previousAction, nullptr);
    if (showProgress_) err_ << "\r\x1b[K" << std::flush;
}

}  // namespace tolma::cli
