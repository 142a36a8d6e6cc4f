#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include <fstream>
#include <map>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

struct Time {
  int64_t position = 0;
  int64_t decoded = 0;  // ticks
  bool operator==(const Time&) const = default;
};

using Times = std::map<int, std::vector<Time>>;  // by stream

Times timesOf(LMMediaSource& source) {
  Times times;
  const PacketPtr packet = makePacket();
  while (source.readPacket(packet.get())) {
    times[packet->stream_index].push_back({packet->pos, packet->dts});
    av_packet_unref(packet.get());
  }
  return times;
}

/// A file of two fixtures, one behind the other.
std::filesystem::path joinedFile(const TempDir& dir, const char* first, const char* second) {
  const auto path = dir / "joined.ts";
  std::ofstream out(path, std::ios::binary);
  for (const char* name : {first, second})
    out << std::ifstream(fixture(name), std::ios::binary).rdbuf();
  return path;
}

class LMMediaSourceClockTest : public testing::TestWithParam<const char*> {
 protected:
  std::shared_ptr<LMMediaSource> openSource() const {
    auto source = LMMediaSource::mediaWithPath(path_.string());
    source->open();
    return source;
  }

  const TempDir dir_;
  const std::filesystem::path path_ = joinedFile(dir_, "clock-first.ts", GetParam());
};

TEST_P(LMMediaSourceClockTest, TimesRiseOverAJump) {
  const auto source = openSource();
  ASSERT_TRUE(source->isOpen());
  for (const auto& [stream, times] : timesOf(*source)) {
    const AVStream& own = *source->formatContext()->streams[stream];
    const int64_t most = av_rescale_q(100, {1, 1000}, own.time_base);
    for (size_t i = 1; i < times.size(); ++i) {
      const int64_t step = times[i].decoded - times[i - 1].decoded;
      EXPECT_GT(step, -most) << stream << ' ' << i;
      EXPECT_LT(step, most) << stream << ' ' << i;
    }
  }
}

TEST_P(LMMediaSourceClockTest, PicturesGoOnWithoutAGap) {
  const auto source = openSource();
  const auto times = timesOf(*source).at(0);
  ASSERT_EQ(times.size(), 125u);
  for (size_t i = 1; i < times.size(); ++i)
    EXPECT_NEAR(static_cast<double>(times[i].decoded - times[i - 1].decoded), 3600, 1) << i;
}

TEST_P(LMMediaSourceClockTest, TellsTheWholeLength) {
  EXPECT_NEAR(static_cast<double>(openSource()->formatContext()->duration), 5e6, 6e4);
}

TEST_P(LMMediaSourceClockTest, ReadersOfOneStreamMoveTimesAlike) {
  const auto source = openSource();
  Times apart;
  for (int stream = 0; stream < 2; ++stream) {
    const auto reader = source->anotherReader();
    reader->open();
    ASSERT_TRUE(reader->isOpen());
    reader->formatContext()->streams[1 - stream]->discard = AVDISCARD_ALL;
    apart[stream] = timesOf(*reader).at(stream);
  }
  EXPECT_EQ(apart, timesOf(*source));
}

TEST_P(LMMediaSourceClockTest, SeeksToTheKeyPictureBeforeATime) {
  const auto source = openSource();
  const auto all = timesOf(*source).at(0);
  const int64_t start = source->start_time();
  for (const int64_t seconds : {0, 1, 2, 3, 4, 2, 0}) {
    ASSERT_TRUE(source->seekBackward(start + seconds * 1000000 + 500000));
    const PacketPtr packet = makePacket();
    do {
      av_packet_unref(packet.get());
      ASSERT_TRUE(source->readPacket(packet.get()));
    } while (packet->stream_index != 0);
    EXPECT_TRUE(packet->flags & AV_PKT_FLAG_KEY);
    // Key pictures lie a second apart.
    EXPECT_EQ(packet->dts, all[static_cast<size_t>(seconds * 25)].decoded) << seconds;
  }
}

INSTANTIATE_TEST_SUITE_P(Jumps, LMMediaSourceClockTest,
                         testing::Values("clock-second.ts", "clock-second-50.ts",
                                         "clock-second-1000.ts", "clock-second-wrap.ts"));

TEST(LMMediaSourceClock, SoundThatPausesIsNoJump) {
  const auto path = fixture("sound-pauses.ts");
  const auto source = LMMediaSource::mediaWithPath(path.string());
  source->open();
  ASSERT_TRUE(source->isOpen());
  const Times times = timesOf(*source);
  // The pause is there, and what comes after it lies beside its pictures.
  int64_t longest = 0;
  const auto& sound = times.at(1);
  for (size_t i = 1; i < sound.size(); ++i)
    longest = std::max(longest, sound[i].decoded - sound[i - 1].decoded);
  EXPECT_NEAR(static_cast<double>(longest), 13 * 90000, 4500);
  EXPECT_NEAR(static_cast<double>(sound.back().decoded - times.at(0).back().decoded), 0, 45000);
}

}  // namespace
}  // namespace kestrel::test
