#include "tests/e2e/TerminalRun.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <stdexcept>

namespace kestrel::test {

namespace {

constexpr std::chrono::seconds kTimeLimit{120};

}  // namespace

TerminalRun::TerminalRun(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
  winsize size{};
  size.ws_row = 24;
  size.ws_col = 100;
  if (openpty(&terminal_, &other_, nullptr, nullptr, &size) != 0)
    throw std::runtime_error("no terminal");
  fcntl(terminal_, F_SETFD, FD_CLOEXEC);
  tcgetattr(other_, &first_);
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> variables;
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    const bool isReplaced =
        text.starts_with("TERM=") || std::ranges::any_of(environment, [&](const std::string& own) {
          return text.starts_with(own.substr(0, own.find('=') + 1));
        });
    if (!isReplaced) variables.push_back(*entry);
  }
  std::string capable = "TERM=xterm";  // whatever the tests themselves are run on
  if (std::ranges::none_of(environment, [](const auto& own) { return own.starts_with("TERM="); }))
    variables.push_back(capable.data());
  for (const auto& entry : environment) variables.push_back(const_cast<char*>(entry.c_str()));
  variables.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("no process");
  if (pid_ == 0) {
    login_tty(other_);
    execve(argv[0], argv.data(), variables.data());
    _exit(127);
  }
}

TerminalRun::~TerminalRun() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(terminal_);
  close(other_);
}

void TerminalRun::type(const std::string& bytes) const {
  if (write(terminal_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("cannot type");
}

void TerminalRun::signal(int number) const {
  if (pid_ > 0) kill(pid_, number);
}

void TerminalRun::signalForeground(int number) const {
  if (const pid_t group = tcgetpgrp(terminal_); group > 0) kill(-group, number);
}

/// Reads what is there, waiting for a moment; false when there is nothing.
bool TerminalRun::readSome() {
  pollfd file{terminal_, POLLIN, 0};
  if (poll(&file, 1, 20) <= 0) return false;
  char bytes[65536];
  const ssize_t count = read(terminal_, bytes, sizeof bytes);
  if (count <= 0) return false;
  output_.append(bytes, static_cast<size_t>(count));
  return true;
}

std::string TerminalRun::waitFor(const std::string& pattern) {
  const std::regex expression(pattern);
  const auto deadline = std::chrono::steady_clock::now() + kTimeLimit;
  for (;;) {
    // A screen at a time: expressions over long texts are slow.
    const size_t begin = std::max(seen_, output_.size() > 100000 ? output_.size() - 100000 : 0);
    const std::string text = output_.substr(begin);
    std::smatch match;
    if (std::regex_search(text, match, expression)) {
      seen_ = begin + static_cast<size_t>(match.position(0) + match.length(0));
      return match.size() > 1 ? match[1].str() : match[0].str();
    }
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("never shown: " + pattern + "; shown: " + output_);
    readSome();
  }
}

void TerminalRun::waitUntil(const std::function<bool(const std::string& output)>& isReached) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeLimit;
  while (!isReached(output_)) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("never reached; shown: " + output_);
    readSome();
  }
}

int TerminalRun::wait() {
  const auto deadline = std::chrono::steady_clock::now() + kTimeLimit;
  int status = 0;
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("never ended");
    readSome();  // a full terminal would keep the program from ending
  }
  pid_ = -1;
  while (readSome()) {
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

termios TerminalRun::settings() const {
  termios now{};
  tcgetattr(other_, &now);
  return now;
}

bool isSame(const termios& a, const termios& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_lflag == b.c_lflag &&
         std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

}  // namespace kestrel::test
