#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using namespace std::chrono_literals;

/// A conversion that takes minutes, interrupted once it writes. It is killed where it goes on.
class ConvertInterrupt : public testing::TestWithParam<Arguments> {
 protected:
  RunResult interrupted(int signal, const Arguments& options) {
    Process process(
        joined(convertCommand(fixture("numbered25-long.mp4"), output_, GetParam()), options),
        {.timeLimit = 120s});
    while (!isWriting()) std::this_thread::sleep_for(10ms);
    std::this_thread::sleep_for(300ms);
    process.signal(signal);
    return process.wait();
  }

  bool isWriting() {
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
      if (entry.path() != output_ && entry.file_size() > 0) return true;
    return false;
  }

  TempDir folder_;
  const std::filesystem::path output_ = folder_ / "out.mkv";
};

TEST_P(ConvertInterrupt, StopsSoonAndLeavesNoFile) {
  for (const int signal : {SIGINT, SIGTERM}) {
    EXPECT_TRUE(endsWithSentence(interrupted(signal, {}), 130, "interrupted"));
    EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
  }
}

TEST_P(ConvertInterrupt, LeavesTheOldTargetAsItWas) {
  writeBytes(output_, "precious");
  EXPECT_EQ(interrupted(SIGINT, {"--force"}).status, 130);
  EXPECT_EQ(readBytes(output_), "precious");
  EXPECT_EQ(namesIn(folder_.path()), std::set<std::string>{"out.mkv"});
}

INSTANTIATE_TEST_SUITE_P(
    , ConvertInterrupt,
    testing::Values(Arguments{"--size", "1280x720", "--encoder-preset", "ultrafast"},
                    Arguments{"--video-codec", "vp9", "--size", "320x180", "--video-option",
                              "deadline=realtime", "--video-option", "cpu-used=6"}));

}  // namespace
}  // namespace kestrel::test
