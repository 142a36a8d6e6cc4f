#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <system_error>

#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

TEST(Process, StatusAndBothOutputsComeBack) {
  const auto result = run({"sh", "-c", "echo out; echo err >&2; exit 3"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.out, "out\n");
  EXPECT_EQ(result.err, "err\n");
}

TEST(Process, ArgumentsPassAsTheyAre) {
  EXPECT_EQ(run({"printf", "%s|", "a b", "$HOME", "*"}).out, "a b|$HOME|*|");
}

TEST(Process, MoreOutputThanAPipeHoldsDoesNotBlock) {
  const auto result = run({"sh", "-c", "head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2"});
  EXPECT_EQ(result.out.size(), 300000u);
  EXPECT_EQ(result.err.size(), 300000u);
}

TEST(Process, OptionsSetFolderEnvironmentAndInput) {
  const TempDir folder;
  std::ofstream(folder / "input") << "in";
  const auto result =
      run({"sh", "-c", "pwd; echo $KESTREL_A; cat"}, {.workingDirectory = folder.path(),
                                                      .environment = {"KESTREL_A=1"},
                                                      .input = folder / "input"});
  EXPECT_EQ(result.out, folder.path().string() + "\n1\nin");
}

TEST(Process, SignalShowsInTheStatus) {
  Process process({"sleep", "100"});
  process.signal(SIGINT);
  EXPECT_EQ(process.wait().status, 128 + SIGINT);
}

TEST(Process, IsKilledAtItsTimeLimit) {
  EXPECT_EQ(run({"sleep", "100"}, {.timeLimit = std::chrono::seconds(0)}).status, 128 + SIGKILL);
}

TEST(Process, MissingProgramThrows) {
  EXPECT_THROW(run({"kestrel-no-such-program"}), std::system_error);
}

TEST(TempDir, GoesAwayWithAllItHolds) {
  std::filesystem::path path;
  {
    const TempDir folder;
    path = folder.path();
    std::filesystem::create_directory(folder / "sub");
    std::ofstream(folder / "sub/file") << "x";
    EXPECT_TRUE(std::filesystem::exists(folder / "sub/file"));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace kestrel::test
