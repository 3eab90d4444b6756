#include "tools/Interruption.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

#include "tools/ExitCode.h"

namespace vidloom {
namespace {

std::atomic<bool> onlyCounting{false};
std::atomic<int> signalCount{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free, "used in a signal handler");

void onSignal(int) {
  if (!onlyCounting) _exit(static_cast<int>(ExitCode::cancelled));
  ++signalCount;
}

}  // namespace

void Interruption::install() {
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction before {};
  sigaction(SIGHUP, nullptr, &before);
  if (before.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);  // nohup stays in force
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
}

void Interruption::onlyCount() { onlyCounting = true; }

int Interruption::count() { return signalCount; }

}  // namespace vidloom
