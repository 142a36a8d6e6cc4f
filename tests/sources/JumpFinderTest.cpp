#include "sources/JumpFinder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

constexpr int64_t kSecond = 90000;
constexpr int64_t kPicture = 3600;  // 25 per second
constexpr int64_t kSound = 2160;    // 24 ms
constexpr int64_t kFarAway = 10000 * kSecond;

/// Pictures and sound by a clock of 90 kHz.
class JumpFinderTest : public testing::Test {
 protected:
  struct Timed {
    int64_t time = 0;
    bool isSound = false;
  };

  void push(int64_t time, bool isSound = false) {
    PacketPtr packet = barePacket();
    packet->pts = packet->dts = time;
    packet->duration = isSound ? kSound : kPicture;
    packet->stream_index = isSound ? sound_.index : pictures_.index;
    finder_.push(std::move(packet), isSound ? sound_ : pictures_);
  }

  /// `count` packets from a time on, one right behind the other.
  static std::vector<Timed> stretch(int64_t begin, int count, bool isSound = false) {
    std::vector<Timed> all;
    for (int i = 0; i < count; ++i)
      all.push_back({begin + i * (isSound ? kSound : kPicture), isSound});
    return all;
  }

  /// Pushes what lies side by side in a file, by its times.
  void pushTogether(std::vector<Timed> pictures, const std::vector<Timed>& sound) {
    pictures.insert(pictures.end(), sound.begin(), sound.end());
    std::ranges::stable_sort(pictures, {}, &Timed::time);
    for (const Timed& each : pictures) push(each.time, each.isSound);
  }

  /// The times of what has come out of a stream, moved.
  std::vector<int64_t> taken(bool isSound = false) {
    std::vector<int64_t> times;
    while (const auto placed = finder_.pop()) {
      offsets_.push_back(placed->offset);
      if (placed->packet->stream_index == (isSound ? sound_.index : pictures_.index))
        times.push_back(placed->packet->dts + placed->offset);
    }
    return times;
  }

  static std::vector<int64_t> steady(int count) {
    std::vector<int64_t> times;
    for (int i = 0; i < count; ++i) times.push_back(i * kPicture);
    return times;
  }

  BareStreams streams_;
  AVStream& pictures_ = streams_.add(AVMEDIA_TYPE_VIDEO);
  AVStream& sound_ = streams_.add(AVMEDIA_TYPE_AUDIO);
  JumpFinder finder_;
  std::vector<int64_t> offsets_;  // of all that came out
};

TEST_F(JumpFinderTest, SteadyTimesPassAtOnce) {
  for (int i = 0; i < 100; ++i) {
    push(i * kPicture);
    EXPECT_THAT(taken(), ElementsAre(i * kPicture));
  }
  EXPECT_FALSE(finder_.hasJumped());
}

TEST_F(JumpFinderTest, TimesGoOnOverAJumpInEitherDirection) {
  for (const int64_t begin : {kFarAway, int64_t{0}}) {
    finder_.reset();
    pushTogether(stretch(0, 50), {});
    pushTogether(stretch(begin, 50), {});
    EXPECT_EQ(taken(), steady(100));
    EXPECT_EQ(offsets_.back(), 50 * kPicture - begin);
    EXPECT_TRUE(finder_.hasJumped());
  }
}

TEST_F(JumpFinderTest, IsSureOfPicturesAloneAfterEightOfThem) {
  pushTogether(stretch(0, 10), {});
  EXPECT_THAT(taken(), SizeIs(10));
  pushTogether(stretch(kFarAway, 7), {});
  EXPECT_FALSE(finder_.pop());
  push(kFarAway + 7 * kPicture);
  EXPECT_THAT(taken(), SizeIs(8));
}

TEST_F(JumpFinderTest, ADamagedStampIsNoJump) {
  pushTogether(stretch(0, 25), {});
  push(kFarAway);
  pushTogether(stretch(26 * kPicture, 24), {});
  EXPECT_THAT(taken(), SizeIs(50));
  EXPECT_THAT(offsets_, Each(0));
  EXPECT_FALSE(finder_.hasJumped());
}

TEST_F(JumpFinderTest, SoundThatPausesWhilePicturesGoOnIsNoJump) {
  auto sound = stretch(0, 80, true);
  const auto later = stretch(20 * kSecond, 80, true);
  sound.insert(sound.end(), later.begin(), later.end());
  pushTogether(stretch(0, 25 * 25), sound);
  finder_.finish();
  EXPECT_THAT(taken(true), SizeIs(160));
  EXPECT_THAT(offsets_, Each(0));
  EXPECT_FALSE(finder_.hasJumped());
}

TEST_F(JumpFinderTest, ACounterOf33BitsGoesOnWithTheGapThatItHas) {
  constexpr int64_t kWrap = int64_t{1} << 33;
  pushTogether(stretch(kWrap - 10 * kPicture, 10), {});
  taken();
  pushTogether(stretch(10 * kPicture, 10), {});  // ten pictures are missing
  EXPECT_EQ(taken().front(), kWrap + 10 * kPicture);
}

// Two seconds of pictures; what is moved are the times from `kFarAway` on.
TEST_F(JumpFinderTest, SoundALittleLongerIsOverlappedAndMuchLongerWaitedFor) {
  for (const auto& [packets, end] : {std::pair{84, 2 * kSecond}, {125, 3 * kSecond}}) {
    finder_.reset();
    pushTogether(stretch(0, 50), stretch(0, packets, true));
    pushTogether(stretch(kFarAway, 50), stretch(kFarAway, 84, true));
    const auto times = taken();
    ASSERT_THAT(times, SizeIs(100));
    EXPECT_EQ(times[50], end) << packets;
  }
}

TEST_F(JumpFinderTest, TheEndBelievesTwoPacketsAndNotOne) {
  for (const int count : {1, 2}) {
    finder_.reset();
    pushTogether(stretch(0, 10), {});
    pushTogether(stretch(kFarAway, count), {});
    finder_.finish();
    EXPECT_THAT(taken(), SizeIs(10 + count));
    EXPECT_EQ(finder_.hasJumped(), count == 2);
  }
}

TEST_F(JumpFinderTest, HandsOutWhatIsUndecidedInItsOrder) {
  pushTogether(stretch(0, 2), {});
  pushTogether(stretch(kFarAway, 2), {});
  std::vector<int64_t> times;
  for (const PacketPtr& packet : finder_.takeAll()) times.push_back(packet->dts);
  EXPECT_THAT(times, ElementsAre(0, kPicture, kFarAway, kFarAway + kPicture));
  EXPECT_FALSE(finder_.pop());
}

}  // namespace
}  // namespace kestrel::test
