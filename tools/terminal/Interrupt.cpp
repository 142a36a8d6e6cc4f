#include "tools/terminal/Interrupt.h"

#include <errno.h>  // where the program's name is
#include <fmt/format.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <string_view>
#include <thread>

#include <kestrel/AtomicFile.h>
#include "tools/terminal/Outcome.h"

namespace {

/// How long the program may take to stop by itself; with what follows it stays below a second.
constexpr timespec kGrace{0, 700'000'000};

std::atomic<bool> isInterrupted{false};
std::atomic<void (*)()> forcedEndAction{nullptr};

sigset_t watchedSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    // A program started by nohup outlives its terminal.
    if (number == SIGHUP && action.sa_handler == SIG_IGN) continue;
    // A shell starts background jobs with SIGINT ignored; whoever sends it all the same means it.
    std::signal(number, SIG_DFL);
    sigaddset(&signals, number);
  }
  return signals;
}

/// Never waits: a reader of standard error that does not read must not keep the program alive.
void sayAtOnce(std::string_view text) {
  pollfd standardError{STDERR_FILENO, POLLOUT, 0};
  if (poll(&standardError, 1, 0) <= 0) return;
  [[maybe_unused]] const auto ignored = write(STDERR_FILENO, text.data(), text.size());
}

[[noreturn]] void endNow() {
  kestrel::AtomicFile::removeAll();
  if (auto* const action = forcedEndAction.load()) action();
  reportInterrupt();
  _exit(kInterrupted);
}

void watch(sigset_t signals) {
  int number = 0;
  sigwait(&signals, &number);
  isInterrupted = true;
  sigtimedwait(&signals, nullptr, &kGrace);
  endNow();
}

}  // namespace

void watchForInterrupt() {
  const sigset_t signals = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(watch, signals).detach();
}

bool interrupted() { return isInterrupted.load(std::memory_order_relaxed); }

void reportInterrupt() {
  static std::atomic<bool> isReported{false};
  if (isReported.exchange(true)) return;
  if (isatty(STDERR_FILENO)) sayAtOnce("\r\033[K");  // where a progress bar may stand
  sayAtOnce(fmt::format("{}: interrupted\n", program_invocation_short_name));
}

void onForcedEnd(void (*action)()) { forcedEndAction = action; }
