#include "platform/process/ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace kestrel {

namespace {

constexpr int kSignalled = 128;

struct Pipe {
  Pipe() {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) ends = {-1, -1};
  }
  ~Pipe() {
    close(0);
    close(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void close(size_t end) {
    if (ends[end] >= 0) ::close(ends[end]);
    ends[end] = -1;
  }

  std::array<int, 2> ends{-1, -1};
};

/// Takes what there is; closes at the end.
void drain(Pipe& pipe, std::string& text) {
  std::array<char, 4096> block{};
  const ssize_t count = read(pipe.ends[0], block.data(), block.size());
  if (count > 0) text.append(block.data(), static_cast<size_t>(count));
  if (count == 0 || (count < 0 && errno != EINTR)) pipe.close(0);
}

}  // namespace

ProgramOutput runProgram(const std::vector<std::string>& command) {
  ProgramOutput output;
  Pipe out;
  Pipe err;
  std::vector<char*> arguments;
  for (const std::string& argument : command)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.ends[1], STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t child = 0;
  const int failed =
      posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (failed != 0) return {ProgramOutput::kNotThere, "", std::strerror(failed)};
  out.close(1);
  err.close(1);
  while (out.ends[0] >= 0 || err.ends[0] >= 0) {
    std::array<pollfd, 2> files{pollfd{out.ends[0], POLLIN, 0}, pollfd{err.ends[0], POLLIN, 0}};
    if (poll(files.data(), files.size(), -1) < 0 && errno != EINTR) break;
    if (files[0].revents != 0) drain(out, output.out);
    if (files[1].revents != 0) drain(err, output.err);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  output.status = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
  return output;
}

}  // namespace kestrel
