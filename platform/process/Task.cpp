#include <kestrel/Task.h>

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>
#include <thread>

namespace kestrel {

namespace {

/// How the new process begins: with every signal as usual and none blocked, whatever this one has
/// set for itself, and with the standard files only.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
};

}  // namespace

struct Task::State {
  mutable std::mutex lock;
  std::string path;
  std::vector<std::string> arguments;
  pid_t process = 0;
  bool hasEnded = false;
  int status = 0;

  /// Takes note of the end of the process, if it has ended; under the lock, so that no signal is
  /// sent to a number that is free again.
  void reap() {
    int wait = 0;
    if (process <= 0 || hasEnded) return;
    const pid_t found = waitpid(process, &wait, WNOHANG);
    if (found == 0) return;
    hasEnded = true;
    if (found < 0)
      status = kUnknownStatus;
    else
      status = WIFSIGNALED(wait) ? 128 + WTERMSIG(wait) : WEXITSTATUS(wait);
  }

  void wait() {
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR)
      continue;
    const std::lock_guard guard(lock);
    reap();
  }
};

Task::Task() : state_(std::make_shared<State>()) {}

Task::~Task() {
  // Someone has to take note of the end.
  if (isRunning()) std::thread([state = state_] { state->wait(); }).detach();
}

std::string Task::launchPath() const {
  const std::lock_guard guard(state_->lock);
  return state_->path;
}

void Task::setLaunchPath(const std::string& path) {
  const std::lock_guard guard(state_->lock);
  state_->path = path;
}

std::vector<std::string> Task::arguments() const {
  const std::lock_guard guard(state_->lock);
  return state_->arguments;
}

void Task::setArguments(std::vector<std::string> arguments) {
  const std::lock_guard guard(state_->lock);
  state_->arguments = std::move(arguments);
}

void Task::launch() {
  const std::lock_guard guard(state_->lock);
  if (state_->process != 0) throw TaskError("the task has been launched before");
  std::vector<char*> words{state_->path.data()};
  for (std::string& argument : state_->arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  const SpawnSettings settings;
  pid_t process = 0;
  const int problem = posix_spawn(&process, state_->path.c_str(), &settings.actions,
                                  &settings.attributes, words.data(), environ);
  if (problem != 0)
    throw TaskError(
        fmt::format("cannot run '{}': {}", state_->path, std::generic_category().message(problem)));
  state_->process = process;
}

int64_t Task::processIdentifier() const {
  const std::lock_guard guard(state_->lock);
  return state_->process;
}

bool Task::isRunning() const {
  const std::lock_guard guard(state_->lock);
  state_->reap();
  return state_->process > 0 && !state_->hasEnded;
}

void Task::waitUntilExit() {
  if (isRunning()) state_->wait();
}

void Task::terminate() {
  const std::lock_guard guard(state_->lock);
  state_->reap();
  if (state_->process > 0 && !state_->hasEnded) kill(state_->process, SIGTERM);
}

int Task::terminationStatus() const {
  const std::lock_guard guard(state_->lock);
  return state_->status;
}

}  // namespace kestrel
