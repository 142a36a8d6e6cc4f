#include "convert/join/JoinSound.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "tests/convert/CountedSamples.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace kestrel::test {
namespace {

using testing::IsEmpty;

constexpr int32_t kRate = 1000;
constexpr int64_t kOverhang = 100;  // a tenth of a second

/// A part of one channel that hands out a list, seven samples at a time.
class ListedPart : public JoinSound::Part {
 public:
  explicit ListedPart(Samples samples) : samples_(std::move(samples)) {}

  int32_t read(double* data, int32_t frames) override {
    const auto left = static_cast<int32_t>(samples_.size()) - read_;
    const int32_t count = std::min({frames, left, 7});
    std::copy_n(samples_.begin() + read_, count, data);
    read_ += count;
    return count;
  }

  InputEnd inputEnd() const override { return {read_, {}, 0}; }

 private:
  const Samples samples_;
  int32_t read_ = 0;
};

std::unique_ptr<JoinSound::Part> part(const Samples& samples) {
  return std::make_unique<ListedPart>(samples);
}

JoinSound joinSound(int32_t rate = kRate) {
  return JoinSound({AV_SAMPLE_FMT_DBL, AV_CH_LAYOUT_MONO, rate});
}

/// All that a sound hands out before a time.
Samples taken(JoinSound& sound, int64_t end) {
  Samples all;
  for (auto block = sound.take(end); !block.empty(); block = sound.take(end)) all = all + block;
  return all;
}

Samples rest(JoinSound& sound, int64_t end) {
  Samples all;
  for (auto block = sound.rest(end); !block.empty(); block = sound.rest(end)) all = all + block;
  return all;
}

/// How the sound of two parts meets at 200, where the pictures of the first one end.
struct Meeting {
  const char* name;
  int first;          // samples of the first part: 1, 2, …
  int64_t begin;      // of the second one
  Samples untilFour;  // what is heard up to 400, the second part being 1001, 1002, …
};

void PrintTo(const Meeting& meeting, std::ostream* out) { *out << meeting.name; }

class JoinSoundMeets : public testing::TestWithParam<Meeting> {};

TEST_P(JoinSoundMeets, AsItLies) {
  const Meeting& meeting = GetParam();
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, meeting.first)), 0, 0);
  Samples heard = taken(sound, 200);
  sound.meet(part(counting(1001, 1000)), 200, meeting.begin);
  heard = heard + taken(sound, 400);
  EXPECT_EQ(heard, meeting.untilFour);
}

INSTANTIATE_TEST_SUITE_P(
    , JoinSoundMeets,
    testing::Values(
        Meeting{"Exactly", 200, 0, counting(1, 200) + counting(1001, 200)},
        Meeting{"WhatGoesOnIsCutWhereTheNextBegins", 300, 0,
                counting(1, 200) + counting(1001, 200)},
        Meeting{"WhatGoesOnFillsALateStart", 300, 50, counting(1, 250) + counting(1001, 150)},
        Meeting{"WhatNeitherHasIsSilent", 250, 90,
                counting(1, 250) + silence(40) + counting(1001, 110)},
        Meeting{"OnlyATenthOfASecondGoesOn", 900, 150,
                counting(1, 300) + silence(50) + counting(1001, 50)},
        Meeting{"WhatIsAheadFillsWhatIsMissing", 150, -50, counting(1, 150) + counting(1001, 250)},
        Meeting{"WhatIsAheadOfOtherSoundIsLeftOut", 150, -80,
                counting(1, 150) + counting(1031, 250)},
        Meeting{"ALittleAheadLeavesSilence", 150, -30,
                counting(1, 150) + silence(20) + counting(1001, 230)},
        Meeting{"RoundedTimesAreTheSame", 198, 3, counting(1, 198) + counting(1001, 202)}),
    [](const auto& tested) { return tested.param.name; });

TEST(JoinSound, APartWithoutTheTrackIsSilent) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 230)), 0, 0);
  const auto heard = taken(sound, 200);
  sound.meet(nullptr, 200, 0);
  EXPECT_EQ(heard + taken(sound, 400), counting(1, 230) + silence(170));
}

TEST(JoinSound, SoundFollowsSoundWhateverThePicturesDo) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 260)), 0, 0);
  const auto heard = taken(sound, 200);
  sound.follow(part(counting(1001, 1000)));
  EXPECT_EQ(heard + taken(sound, 400), counting(1, 260) + counting(1001, 140));
}

TEST(JoinSound, APartThatBeginsLaterComesAfterSilence) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 300)), 0, 0);
  const auto heard = taken(sound, 200);
  sound.begin(part(counting(1001, 1000)), 500, 20);
  EXPECT_EQ(heard + taken(sound, 600), counting(1, 200) + silence(320) + counting(1001, 80));
  sound.begin(part(counting(2001, 1000)), 600, -10);
  EXPECT_EQ(taken(sound, 650), counting(2011, 50));
}

TEST(JoinSound, WhatMayStillComeIsNotYetSilence) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 150)), 0, 0);
  EXPECT_EQ(taken(sound, 200), counting(1, 150));
  EXPECT_EQ(taken(sound, 400), silence(400 - 150 - kOverhang));
  sound.end();
  EXPECT_EQ(taken(sound, 400), silence(kOverhang));
}

TEST(JoinSound, TheRestIsWhatGoesOnAndSilenceUpToTheEnd) {
  for (const auto& [samples, expected] : {std::pair{230, counting(1, 230) + silence(20)},
                                          {290, counting(1, 290)},
                                          {900, counting(1, 300)},
                                          {100, counting(1, 100) + silence(150)}}) {
    JoinSound sound = joinSound();
    sound.begin(part(counting(1, samples)), 0, 0);
    const auto heard = taken(sound, 200);
    EXPECT_EQ(heard + rest(sound, 250), expected) << samples;
    EXPECT_THAT(sound.rest(250), IsEmpty());
  }
}

TEST(JoinSound, SoundThatWasToComeAfterTheEndIsNotHeard) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 1000)), 0, 5000);
  EXPECT_EQ(taken(sound, 2000), silence(2000));
  EXPECT_EQ(rest(sound, 2050), silence(100));
}

TEST(JoinSound, TellsHowFarItGoesOn) {
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 230)), 0, 0);
  EXPECT_EQ(taken(sound, 200), counting(1, 200));
  EXPECT_EQ(sound.ahead(20), 20);
  EXPECT_EQ(sound.ahead(100), 30);
  EXPECT_EQ(sound.inputEnd().reached, 230);
  sound.end();
  EXPECT_EQ(sound.inputEnd().reached, 0);
}

// Seven hours in blocks of a second.
TEST(JoinSound, ALongGapIsHandedOutInBlocks) {
  constexpr int64_t kSeam = int64_t{7} * 3600 * kRate;
  JoinSound sound = joinSound();
  sound.begin(part(counting(1, 100)), kSeam, 0);
  int64_t silent = 0;
  while (silent < kSeam) {
    const auto block = sound.take(kSeam);
    ASSERT_EQ(block.size(), size_t{kRate}) << silent;
    ASSERT_EQ(std::ranges::count(block, 0), kRate) << silent;
    silent += kRate;
  }
  EXPECT_EQ(silent, kSeam);
  EXPECT_EQ(sound.take(kSeam + 50), counting(1, 50));
}

// There are more frames in a week than 32 bits can count.
TEST(JoinSound, AGapOfAWeekBeginsLikeAnyOther) {
  constexpr int32_t kUsual = 48000;
  constexpr int64_t kWeek = int64_t{7} * 24 * 3600 * kUsual;
  JoinSound sound = joinSound(kUsual);
  sound.begin(part(counting(1, 100)), kWeek, 0);
  EXPECT_EQ(sound.ahead(10), 10);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(sound.take(kWeek).size(), size_t{kUsual});
  JoinSound nothing = joinSound(kUsual);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(nothing.rest(kWeek).size(), size_t{kUsual});
}

}  // namespace
}  // namespace kestrel::test
