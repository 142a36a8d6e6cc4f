#include "Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "Interrupt.h"

namespace {

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[0m\x1b[?25h";

/// What has to be put back. Kept outside of the object: a signal may end the program at any time.
struct Changes {
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

/// Only calls that are safe wherever the program is.
void putBack() {
  auto& kept = changes();
  if (kept.hasInput.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &kept.input);
  const int output = kept.output.exchange(-1);
  if (output < 0) return;
  pollfd terminal{output, POLLOUT, 0};
  if (poll(&terminal, 1, 0) > 0) writeAll(output, kShowCursor);
}

bool isInForeground() { return tcgetpgrp(STDIN_FILENO) == getpgrp(); }

}  // namespace

Terminal::Terminal(bool readsKeys) : readsKeys_(readsKeys && isatty(STDIN_FILENO) != 0) {
  if (isatty(STDOUT_FILENO)) {
    output_ = STDOUT_FILENO;
  } else if (isatty(STDERR_FILENO)) {
    output_ = STDERR_FILENO;
  }
  onForcedEnd(putBack);
  enter();
}

Terminal::~Terminal() { restore(); }

bool Terminal::isStandardOutput() const { return output_ == STDOUT_FILENO; }

void Terminal::enter() {
  auto& kept = changes();
  if (readsKeys_ && isInForeground() && tcgetattr(STDIN_FILENO, &kept.input) == 0) {
    kept.hasInput = true;
    termios raw = kept.input;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    raw.c_cc[VSUSP] = _POSIX_VDISABLE;  // it comes as a key: the terminal is put back first
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  } else {
    readsKeys_ = false;
  }
  if (output_ < 0) return;
  kept.output = output_;
  writeAll(output_, kHideCursor);
}

void Terminal::restore() { putBack(); }

TerminalSize Terminal::size() const {
  winsize size{};
  if (output_ < 0 || ioctl(output_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {};
  return {size.ws_col, std::max<int>(size.ws_row, 1)};
}

void Terminal::show(const std::string& text) {
  if (output_ < 0 || text == shown_) return;
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
  if (!readsKeys_) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return {};
  }
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (poll(&input, 1, milliseconds) <= 0) return {};
  char bytes[256];
  const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (count > 0) return {bytes, static_cast<size_t>(count)};
  readsKeys_ = count < 0 && (errno == EINTR || errno == EAGAIN);
  return {};
}

void Terminal::suspend() {
  leave();
  restore();
  raise(SIGTSTP);
  enter();
}
