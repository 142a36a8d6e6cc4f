#include <gtest/gtest.h>
#include <kestrel/Log.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kestrel {
namespace {

class LogTest : public testing::Test {
 protected:
  void TearDown() override { setLogSink({}); }

  /// What `action` writes to standard error.
  template <typename Action>
  static std::string standardErrorOf(Action action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }
};

TEST_F(LogTest, LinesGoToStandardErrorByDefault) {
  const std::string text = standardErrorOf([] {
    log("error pkt time");
    log("second");
  });
  EXPECT_EQ(text, "error pkt time\nsecond\n");
}

TEST_F(LogTest, SinkReceivesTheLineWithoutALineEnd) {
  std::vector<std::string> lines;
  setLogSink([&lines](std::string_view line) { lines.emplace_back(line); });
  const std::string text = standardErrorOf([] { log("one"); });
  log("");
  EXPECT_EQ(lines, (std::vector<std::string>{"one", ""}));
  EXPECT_EQ(text, "");
}

TEST_F(LogTest, EmptySinkRestoresStandardError) {
  setLogSink([](std::string_view) { FAIL(); });
  setLogSink({});
  EXPECT_EQ(standardErrorOf([] { log("back"); }), "back\n");
}

TEST_F(LogTest, ReplacedSinkIsLetGoOf) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watch = held;
  setLogSink([held = std::move(held)](std::string_view) {});
  EXPECT_FALSE(watch.expired());
  setLogSink({});
  EXPECT_TRUE(watch.expired());
}

TEST_F(LogTest, SinkThatThrowsLosesNoLine) {
  setLogSink([](std::string_view) { throw std::runtime_error("full"); });
  EXPECT_EQ(standardErrorOf([] { log("kept"); }), "kept\n");
  EXPECT_EQ(standardErrorOf([] { log("kept too"); }), "kept too\n");
}

TEST_F(LogTest, SinkThatLogsDoesNotCallItself) {
  int calls = 0;
  setLogSink([&calls](std::string_view) {
    ++calls;
    log("from within");
  });
  EXPECT_EQ(standardErrorOf([] { log("outer"); }), "from within\n");
  EXPECT_EQ(calls, 1);
}

TEST_F(LogTest, SinkMayReplaceItself) {
  int first = 0;
  int second = 0;
  setLogSink([&first, &second](std::string_view) {
    ++first;
    setLogSink([&second](std::string_view) { ++second; });
  });
  log("one");
  log("two");
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 1);
}

TEST_F(LogTest, OneThreadAtATimeCallsTheSink) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  int lines = 0;  // unguarded on purpose: the thread sanitizer would object
  setLogSink([&](std::string_view) {
    if (inside.fetch_add(1) > 0) ++overlaps;
    ++lines;
    --inside;
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < kLines; ++line) log("line");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(lines, kThreads * kLines);
}

TEST_F(LogTest, ReplacingTheSinkWhileOthersLogLosesNoLine) {
  constexpr int kLines = 2000;
  std::atomic<int> lines = 0;
  const auto count = [&lines](std::string_view) { ++lines; };
  setLogSink(count);
  std::thread logger([] {
    for (int line = 0; line < kLines; ++line) log("line");
  });
  for (int i = 0; i < 200; ++i) setLogSink(count);
  logger.join();
  EXPECT_EQ(lines, kLines);
}

}  // namespace
}  // namespace kestrel
