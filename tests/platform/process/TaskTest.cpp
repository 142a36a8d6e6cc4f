#include <gmock/gmock.h>
#include <kestrel/Bundle.h>
#include <kestrel/Task.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

std::string textOf(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

class TaskTest : public testing::Test {
 protected:
  /// Has the shell run a script, with `words` after it.
  void launch(const std::string& script, const std::vector<std::string>& words = {}) {
    std::vector<std::string> arguments{"-c", script, "sh"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    task_.setLaunchPath("/bin/sh");
    task_.setArguments(arguments);
    task_.launch();
  }

  TempDir folder_;
  Task task_;
};

TEST_F(TaskTest, RunsAProgramAndAnswersItsStatus) {
  EXPECT_FALSE(task_.isRunning());
  EXPECT_EQ(task_.processIdentifier(), 0);
  launch("exit 7");
  EXPECT_GT(task_.processIdentifier(), 0);
  task_.waitUntilExit();
  EXPECT_FALSE(task_.isRunning());
  EXPECT_EQ(task_.terminationStatus(), 7);
}

TEST_F(TaskTest, AStatusThatTheHostHasDiscardedIsUnknown) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  launch("exit 0");
  task_.waitUntilExit();
  EXPECT_FALSE(task_.isRunning());
  EXPECT_EQ(task_.terminationStatus(), Task::kUnknownStatus);
  std::signal(SIGCHLD, before);
}

TEST_F(TaskTest, ArgumentsArriveAsTheyAre) {
  const fs::path file = folder_ / "words";
  const std::vector<std::string> words{file.string(), "a b", "", "$HOME", "*", "'\"\\", "Grüße"};
  launch(R"(f=$1; shift; for w; do printf '%s\n' "$w"; done > "$f")", words);
  task_.waitUntilExit();
  EXPECT_EQ(textOf(file), "a b\n\n$HOME\n*\n'\"\\\nGrüße\n");
}

TEST_F(TaskTest, AProgramThatIsNotThereCannotBeLaunched) {
  task_.setLaunchPath((folder_ / "absent").string());
  EXPECT_THROW(task_.launch(), TaskError);
  EXPECT_FALSE(task_.isRunning());
  task_.waitUntilExit();  // there is nothing to wait for
  task_.terminate();
}

TEST_F(TaskTest, AFileThatIsNoProgramCannotBeLaunched) {
  std::ofstream(folder_ / "text") << "text";
  task_.setLaunchPath((folder_ / "text").string());
  EXPECT_THROW(task_.launch(), TaskError);
}

TEST_F(TaskTest, IsLaunchedOnce) {
  launch("exit 0");
  EXPECT_THROW(task_.launch(), TaskError);
  task_.waitUntilExit();
}

TEST_F(TaskTest, EndsByTerminateFromAnotherThread) {
  launch("exec sleep 1000");
  EXPECT_TRUE(task_.isRunning());
  std::thread other([this] { task_.terminate(); });
  task_.waitUntilExit();
  other.join();
  EXPECT_EQ(task_.terminationStatus(), 128 + SIGTERM);
  task_.terminate();  // nothing runs any more
}

TEST_F(TaskTest, EndsByTerminateThoughThisThreadBlocksTheSignal) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  launch("exec sleep 1000");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  task_.terminate();
  task_.waitUntilExit();
  EXPECT_EQ(task_.terminationStatus(), 128 + SIGTERM);
}

TEST_F(TaskTest, SeveralThreadsMayWait) {
  launch("sleep 0.1; exit 3");
  std::thread first([this] { task_.waitUntilExit(); });
  std::thread second([this] { task_.waitUntilExit(); });
  first.join();
  second.join();
  EXPECT_EQ(task_.terminationStatus(), 3);
}

TEST_F(TaskTest, OpenFilesStayHere) {
  const int file = open("/dev/null", O_RDONLY);  // without the flag that closes it
  const int high = dup2(file, 99);
  launch("test ! -e /proc/$$/fd/99");
  task_.waitUntilExit();
  EXPECT_EQ(task_.terminationStatus(), 0);
  close(file);
  close(high);
}

TEST_F(TaskTest, AReleasedTaskRunsOn) {
  const fs::path file = folder_ / "done";
  const fs::path gate = folder_ / "gate";
  {
    Task task;
    task.setLaunchPath("/bin/sh");
    task.setArguments({"-c", "while [ ! -e \"$2\" ]; do sleep 0.01; done; touch \"$1\"", "sh",
                       file.string(), gate.string()});
    task.launch();
  }
  std::ofstream(gate) << "open";
  while (!fs::exists(file)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

TEST(BundleTest, KnowsTheRunningProgram) {
  const Bundle bundle = Bundle::mainBundle();
  EXPECT_TRUE(fs::equivalent(bundle.executablePath(), "/proc/self/exe"));
  EXPECT_EQ(bundle.bundleIdentifier(), "test_platform");
  EXPECT_EQ(bundle.siblingPath("Helper"),
            fs::path(bundle.executablePath()).parent_path().string() + "/Helper");
}

TEST(BundleTest, TheTemporaryDirectoryIsThere) {
  EXPECT_TRUE(fs::is_directory(temporaryDirectory()));
  EXPECT_FALSE(temporaryDirectory().ends_with('/'));
}

}  // namespace
}  // namespace kestrel::test
