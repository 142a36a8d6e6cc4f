#include <gtest/gtest.h>

#include <fstream>

#include "tests/e2e/Kestrel.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Recordings that lie one behind the other in one file, as a receiver that goes on writing leaves
/// them. Together they are numbered25.mkv.
struct Recordings {
  std::string first;
  std::string second;
};

void PrintTo(const Recordings& recordings, std::ostream* out) {
  *out << recordings.first << " + " << recordings.second;
}

std::filesystem::path joinedIn(const TempDir& dir, const Recordings& recordings) {
  auto path = dir / "joined";
  path += std::filesystem::path(recordings.first).extension();
  std::ofstream out(path, std::ios::binary);
  for (const auto& name : {recordings.first, recordings.second})
    out << std::ifstream(fixture(name), std::ios::binary).rdbuf();
  return path;
}

/// The file's own times are those of its pictures: the first tick may lie within the encoder's
/// delay.
const SyncExpectation kWhole{25, 0, ticksEvery(1, 0, 5)};

class ConvertClockTest : public testing::TestWithParam<Recordings> {
 protected:
  const TempDir dir_;
  const std::filesystem::path input_ = joinedIn(dir_, GetParam());
};

TEST_P(ConvertClockTest, EncodesAllInOrderAndInSync) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mp4"));
  EXPECT_EQ(shownNumbers(dir_ / "a.mp4"), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(dir_ / "a.mp4", kWhole));
}

TEST_P(ConvertClockTest, CopiesAllInOrderAndInSync) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mkv", {"--video-codec", "copy", "--audio-codec", "copy"}));
  EXPECT_EQ(shownNumbers(dir_ / "a.mkv"), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(dir_ / "a.mkv", kWhole));
}

/// The sound begins within the encoder's delay before the pictures, and with it the input's time.
TEST_P(ConvertClockTest, StartsBehindTheJump) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mp4", {"--start", "2.53"}));
  EXPECT_EQ(shownNumbers(dir_ / "a.mp4"), countingFrom(63, 62));
  EXPECT_TRUE(keepsSync(dir_ / "a.mp4", {25, 2.52, ticksEvery(1, 3, 2)}));
}

TEST_P(ConvertClockTest, StartsBeforeTheJump) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mp4", {"--start", "1.53", "--end", "4.53"}));
  EXPECT_EQ(shownNumbers(dir_ / "a.mp4"), countingFrom(38, 75));
  EXPECT_TRUE(keepsSync(dir_ / "a.mp4", {25, 1.52, ticksEvery(1, 2, 3)}));
}

TEST_P(ConvertClockTest, ReadsAllFromAPipe) {
  RunOptions options;
  options.input = input_;
  const RunResult result = run({"sh", "-c", "cat | \"$0\" convert /dev/stdin \"$1\"",
                                kestrelBinary(), (dir_ / "a.mp4").string()},
                               options);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(shownNumbers(dir_ / "a.mp4"), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(dir_ / "a.mp4", kWhole));
}

TEST_P(ConvertClockTest, InfoTellsTheWholeLength) {
  const RunResult result = run({kestrelBinary(), "info", "--json", input_.string()});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto info = nlohmann::json::parse(result.out);
  EXPECT_NEAR(info.at("duration").get<double>(), 5, 0.08) << result.out;
}

INSTANTIATE_TEST_SUITE_P(
    Jumps, ConvertClockTest,
    testing::Values(Recordings{"clock-first.ts", "clock-second.ts"},          // the same times
                    Recordings{"clock-first.ts", "clock-second-50.ts"},       // forth
                    Recordings{"clock-first.ts", "clock-second-1000.ts"},     // forth
                    Recordings{"clock-first-100.ts", "clock-second-50.ts"},   // back
                    Recordings{"clock-first-100.ts", "clock-second.ts"},      // back
                    Recordings{"clock-first.ts", "clock-second-wrap.ts"},     // forth, and round
                    Recordings{"clock-first-wrap.ts", "clock-second-50.ts"},  // round, and forth
                    Recordings{"clock-first.vob", "clock-second-50.vob"}));

}  // namespace
}  // namespace kestrel::test
