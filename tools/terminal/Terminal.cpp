#include "tools/terminal/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "tools/terminal/Interrupt.h"

namespace {

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[0m\x1b[?25h";

/// What has to be put back. Kept outside of the object: a signal may end the program at any time.
struct Changes {
  std::mutex lock;      // of the input's settings
  bool isOver = false;  // they have been put back for good
  termios input{};
  std::atomic<bool> hasInput{false};
  std::atomic<int> output{-1};
};

Changes& changes() {
  static auto& kept = *new Changes;
  return kept;
}

void writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno != EINTR) return;
    if (count > 0) text.remove_prefix(static_cast<size_t>(count));
  }
}

bool isInForeground() { return tcgetpgrp(STDIN_FILENO) == getpgrp(); }

/// Whether a terminal is another program's now; not so where it is none that programs share.
bool isInBackground(int terminal) {
  const pid_t front = tcgetpgrp(terminal);
  return front >= 0 && front != getpgrp();
}

/// Has keys come at once and unseen; false where they do already, and where that is not to be.
bool takeInput() {
  auto& kept = changes();
  const std::lock_guard guard(kept.lock);
  termios now{};
  if (kept.isOver || !isInForeground() || tcgetattr(STDIN_FILENO, &now) != 0) return false;
  // A shell that was in front in the meantime has put its own settings back.
  if (kept.hasInput && (now.c_lflag & ICANON) == 0) return false;
  kept.input = now;
  kept.hasInput = true;
  now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  now.c_cc[VMIN] = 0;
  now.c_cc[VTIME] = 0;
  now.c_cc[VSUSP] = _POSIX_VDISABLE;  // it comes as a key: the terminal is put back first
  return tcsetattr(STDIN_FILENO, TCSANOW, &now) == 0;
}

void putBack(bool isOver) {
  auto& kept = changes();
  {
    const std::lock_guard guard(kept.lock);
    kept.isOver = kept.isOver || isOver;
    if (kept.hasInput.exchange(false) && isInForeground())
      tcsetattr(STDIN_FILENO, TCSANOW, &kept.input);
  }
  const int output = kept.output.exchange(-1);
  if (output < 0) return;
  pollfd terminal{output, POLLOUT, 0};
  if (poll(&terminal, 1, 0) > 0) writeAll(output, kShowCursor);
}

// Somebody else's wish to have the program stopped: it is put off until the terminal is put back.
std::atomic<bool> isStopWanted{false};
extern "C" void wantStop(int) { isStopWanted = true; }

/// Sets what SIGTSTP does, unless it is ignored.
void onStop(void (*action)(int)) {
  if (std::signal(SIGTSTP, action) == SIG_IGN) std::signal(SIGTSTP, SIG_IGN);
}

}  // namespace

bool isDumbTerminal() {
  const char* const name = std::getenv("TERM");
  return name && std::string_view(name) == "dumb";
}

Terminal::Terminal(bool readsKeys) : wantsKeys_(readsKeys && isatty(STDIN_FILENO) != 0) {
  if (isDumbTerminal()) {
    output_ = -1;
  } else if (isatty(STDOUT_FILENO)) {
    output_ = STDOUT_FILENO;
  } else if (isatty(STDERR_FILENO)) {
    output_ = STDERR_FILENO;
  }
  onForcedEnd([] { putBack(true); });
  onStop(wantStop);
  enter();
}

Terminal::~Terminal() {
  onStop(SIG_DFL);
  putBack(false);
}

bool Terminal::isStandardOutput() const { return output_ == STDOUT_FILENO; }

/// Takes the terminal unless it is taken; whoever else may be in front has put it back before.
void Terminal::enter() {
  auto& kept = changes();
  const bool isBehind = isInBackground(output_ >= 0 ? output_ : STDIN_FILENO);
  if (isBehind) {
    kept.hasInput = false;
    kept.output = -1;
  }
  const bool hasTaken = !isBehind && wantsKeys_ && takeInput();
  if (isEntered_ == !isBehind && !hasTaken) return;
  isEntered_ = !isBehind;
  shown_.clear();
  shownLines_ = 0;
  if (output_ < 0 || isBehind) return;
  kept.output = output_;
  writeAll(output_, kHideCursor);
}

TerminalSize Terminal::size() const {
  winsize size{};
  if (output_ < 0 || ioctl(output_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {};
  return {size.ws_col, std::max<int>(size.ws_row, 1)};
}

void Terminal::show(const std::string& text) {
  if (!isShown() || text == shown_) return;
  std::string bytes = "\r";
  if (shownLines_ > 0) bytes += "\x1b[" + std::to_string(shownLines_) + "A";
  shownLines_ = 0;
  for (const char c : text) {
    if (c == '\n') {
      bytes += "\x1b[K\r\n";
      ++shownLines_;
    } else {
      bytes += c;
    }
  }
  bytes += "\x1b[J";
  writeAll(output_, bytes);
  shown_ = text;
}

void Terminal::leave() {
  if (output_ >= 0 && !shown_.empty()) writeAll(output_, "\r\n");
  shown_.clear();
  shownLines_ = 0;
}

std::string Terminal::read(int milliseconds) {
  if (isStopWanted.exchange(false)) suspend();
  enter();
  if (!wantsKeys_ || !changes().hasInput) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return {};
  }
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, milliseconds) <= 0) return {};
  char bytes[256];
  const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (count > 0) return {bytes, static_cast<size_t>(count)};
  wantsKeys_ = count < 0 && (errno == EINTR || errno == EAGAIN);
  return {};
}

void Terminal::suspend() {
  leave();
  putBack(false);
  isEntered_ = false;
  onStop(SIG_DFL);
  raise(SIGTSTP);
  onStop(wantStop);
  enter();
}
