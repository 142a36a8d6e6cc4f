#include "support/copy/CopyClock.h"

#include <gtest/gtest.h>

#include <utility>

namespace kestrel {
namespace {

constexpr AVRational kTicks{1, 90000};
constexpr AVRational kMilliseconds{1, 1000};
constexpr int64_t kNone = AV_NOPTS_VALUE;

PacketPtr packetAt(int64_t pts, int64_t dts, int64_t duration = 0, int flags = 0) {
  PacketPtr packet = makePacket();
  packet->pts = pts;
  packet->dts = dts;
  packet->duration = duration;
  packet->flags = flags;
  packet->pos = 4711;
  return packet;
}

using Times = std::pair<int64_t, int64_t>;
Times timesOf(const PacketPtr& packet) { return {packet->pts, packet->dts}; }

// 90 ticks are a millisecond; all is moved by 10 ms.
TEST(TimeShift, MovesAndCountsInOtherTicks) {
  const TimeShift shift(kTicks, kMilliseconds, 10000);
  const PacketPtr packet = packetAt(900, kNone, 180);
  shift.apply(*packet);
  EXPECT_EQ(timesOf(packet), Times(20, kNone));
  EXPECT_EQ(packet->duration, 2);
  EXPECT_EQ(packet->pos, -1);
}

TEST(TimeShift, TimesBeyondAllAreTheLast) {
  EXPECT_EQ(TimeShift(kTicks, kTicks, 1000000).time(INT64_MAX - 5), INT64_MAX);
}

// Sound that has come to 25 ms: what would begin at 20 ms, 900 ticks before it is moved, begins
// there, which is at 15 ms or 1,350 ticks.
TEST(FollowOn, SoundBeginsWhereTheOneBeforeEnded) {
  const TimeShift shift(kTicks, kMilliseconds, 10000);
  const PacketPtr early = packetAt(900, 900);
  followOn(*early, shift, 25);
  EXPECT_EQ(timesOf(early), Times(1350, 1350));
  const PacketPtr later = packetAt(1440, 1440);
  followOn(*later, shift, 25);
  EXPECT_EQ(timesOf(later), Times(1440, 1440));
  const PacketPtr untimed = packetAt(kNone, kNone);
  followOn(*untimed, shift, 25);
  EXPECT_EQ(timesOf(untimed), Times(kNone, kNone));
}

TEST(CutBefore, LeavesWhatShowsLater) {
  const PacketPtr packet = packetAt(100, 100, 50);
  EXPECT_TRUE(cutBefore(*packet, 120));
  EXPECT_EQ(timesOf(packet), Times(120, 120));
  EXPECT_EQ(packet->duration, 30);
  EXPECT_TRUE(cutBefore(*packet, 90));
  EXPECT_EQ(packet->pts, 120);
  EXPECT_FALSE(cutBefore(*packet, 150));
}

/// What became of a packet: its times, and whether it is written.
std::pair<Times, bool> stamped(CopyClock& clock, const PacketPtr& packet, int64_t offset = 0) {
  const bool isKept = clock.stamp(*packet, TimeShift(kMilliseconds, kMilliseconds, offset));
  return {timesOf(packet), isKept};
}

TEST(CopyClock, PicturesBeginAtZeroAndRise) {
  CopyClock clock(AVMEDIA_TYPE_VIDEO);
  EXPECT_EQ(stamped(clock, packetAt(7, 5)), std::pair(Times(0, 0), true));
  EXPECT_EQ(stamped(clock, packetAt(80, 40)), std::pair(Times(80, 40), true));
  EXPECT_EQ(stamped(clock, packetAt(60, 40)), std::pair(Times(60, 41), true));
  EXPECT_EQ(stamped(clock, packetAt(50, kNone)), std::pair(Times(50, 42), true));
  EXPECT_EQ(stamped(clock, packetAt(-50, -90)), std::pair(Times(43, 43), true));
  EXPECT_EQ(clock.time(), 43);
}

TEST(CopyClock, SoundThatLiesBeforeWhatWasWrittenIsLeftOut) {
  CopyClock clock(AVMEDIA_TYPE_AUDIO);
  EXPECT_EQ(stamped(clock, packetAt(30, 30)), std::pair(Times(30, 30), true));
  EXPECT_FALSE(stamped(clock, packetAt(20, 20)).second);
  EXPECT_EQ(clock.time(), 30);
}

TEST(CopyClock, SoundMayBeginBeforeZero) {
  CopyClock clock(AVMEDIA_TYPE_AUDIO, false, -21);
  EXPECT_EQ(clock.time(), -21);
  EXPECT_EQ(stamped(clock, packetAt(-20, -20)), std::pair(Times(-20, -20), true));
  EXPECT_EQ(stamped(clock, packetAt(0, 0)), std::pair(Times(0, 0), true));
}

TEST(CopyClock, HiddenPicturesTakeNoTime) {
  for (const bool hidesFirst : {true, false}) {
    CopyClock clock(AVMEDIA_TYPE_VIDEO, hidesFirst);
    EXPECT_EQ(stamped(clock, packetAt(-80, -120, 0, AV_PKT_FLAG_DISCARD)),
              std::pair(Times(-80, -120), true));
    const auto shown = stamped(clock, packetAt(0, -40));
    EXPECT_EQ(shown, std::pair(Times(hidesFirst ? 0 : 1, hidesFirst ? -40 : 1), true));
  }
}

TEST(CopyClock, SubtitlesMayLieAnywhereAndAreCutAtZero) {
  CopyClock clock(AVMEDIA_TYPE_SUBTITLE);
  EXPECT_EQ(stamped(clock, packetAt(500, kNone, 10)), std::pair(Times(500, 500), true));
  EXPECT_EQ(stamped(clock, packetAt(kNone, 100, 10)), std::pair(Times(100, 100), true));
  const PacketPtr early = packetAt(200, 200, 500);
  EXPECT_EQ(stamped(clock, early, -400000), std::pair(Times(0, 0), true));
  EXPECT_EQ(early->duration, 300);
  EXPECT_FALSE(stamped(clock, packetAt(200, 200, 100), -400000).second);
  EXPECT_FALSE(stamped(clock, packetAt(kNone, kNone, 100)).second);
  EXPECT_EQ(clock.time(), 0);
}

// In AVI a tick is a picture's time: all pictures but the first would come one late.
TEST(CopyClock, ThePictureBehindTheFirstMayKeepItsTime) {
  for (const bool keeps : {false, true}) {
    CopyClock clock(AVMEDIA_TYPE_VIDEO, false, 0, keeps);
    const TimeShift none(kMilliseconds, kMilliseconds, 0);
    for (const int64_t time : {0, 1, 2, 7}) {
      const PacketPtr packet = packetAt(time, time);
      EXPECT_TRUE(clock.stamp(*packet, none));
      const bool isLate = !keeps && (time == 1 || time == 2);
      EXPECT_EQ(timesOf(packet), Times(time + isLate, time + isLate));
    }
  }
}

}  // namespace
}  // namespace kestrel
