#include "convert/join/JoinSounds.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "convert/join/JoinFormat.h"
#include "tests/convert/CountedSamples.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace kestrel::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int64_t kMono = 4;    // front centre
constexpr int64_t kStereo = 3;  // front left and right

/// Joins whose output counts in milliseconds. Samples are told in steps of 16 bits.
class JoinSoundsTest : public testing::Test {
 protected:
  /// A file of tracks, each by its formula and the rest of `aevalsrc`'s options.
  std::string file(const std::string& name, const std::vector<std::string>& tracks) const {
    std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
    const auto add = [&](std::initializer_list<std::string> words) {
      command.insert(command.end(), words);
    };
    for (const std::string& track : tracks) add({"-f", "lavfi", "-i", "aevalsrc=" + track});
    for (size_t i = 0; i < tracks.size(); ++i) add({"-map", std::to_string(i)});
    const auto path = (folder_ / name).string();
    add({"-c:a", "pcm_s16le", path});
    const RunResult made = runPeer(command);
    if (made.status != 0) throw std::runtime_error(made.err);
    return path;
  }

  /// Half a second: 4000 frames of 1, 2, 3 … in one channel, and 8000 of them in two, of which the
  /// second one is negative.
  std::string first() const {
    return file("first.nut", {"(n+1)/32768:s=8000:d=0.5:c=mono",
                              "(n+1)/32768|-(n+1)/32768:s=16000:d=0.5:c=stereo"});
  }

  /// A quarter of a second: 2000 frames of 10001, 10002 …
  std::string oneTrack() const { return file("one.nut", {"(n+10001)/32768:s=8000:d=0.25:c=mono"}); }

  /// Half a second with the rates of the first and the layouts changed: 8192 and 24576 in two
  /// channels, 4096 in one; and half as long a second.
  std::string otherLayouts() const {
    return file("layouts.nut", {"0.25|0.75:s=8000:d=0.5:c=stereo", "0.125:s=16000:d=0.25:c=mono"});
  }

  JoinSounds& join(const std::vector<std::string>& files, bool followsPictures,
                   const JoinEncoding& format = {}, const std::string& output = "out.mkv") {
    JoinSettings settings;
    for (const std::string& file : files) settings.inputs.push_back({.path = file});
    settings.output = output;
    settings.format = format;
    plan_ = planJoin(settings, {});
    const JoinFormat how = formatOfJoin(settings, plan_.parts.front(), plan_.keepsCodecs);
    return sounds_.emplace(plan_.parts, how.plan, Rational{1, 1000}, followsPictures);
  }

  /// All of a track before a time, and all that is left.
  Samples before(size_t track, int64_t end) {
    return all([&] { return sounds_->read(track, end); });
  }
  Samples rest(size_t track, int64_t end) {
    return all([&] { return sounds_->rest(track, end); });
  }

  /// One channel of two.
  static Samples channel(const Samples& samples, size_t number) {
    Samples own;
    for (size_t i = number; i < samples.size(); i += 2) own.push_back(samples[i]);
    return own;
  }

  const JoinPart& part(size_t number) const { return plan_.parts[number]; }

 private:
  template <typename Read>
  static Samples all(Read read) {
    Samples whole;
    for (Samples block = read(); !block.empty(); block = read()) whole = whole + block;
    for (double& sample : whole) sample *= 32768;
    return whole;
  }

  TempDir folder_;
  JoinPlan plan_;
  std::optional<JoinSounds> sounds_;
};

TEST_F(JoinSoundsTest, TracksAreAsTheFirstInputHasThem) {
  const auto tracks = join({first(), oneTrack()}, false).tracks();
  ASSERT_THAT(tracks, SizeIs(2));
  EXPECT_EQ(tracks[0].format.audio_codec, AV_CODEC_ID_PCM_S16LE);
  EXPECT_EQ(tracks[0].format.sample_rate, 8000);
  EXPECT_EQ(tracks[0].format.channel_layout, kMono);
  EXPECT_EQ(tracks[0].bits, 16);
  EXPECT_EQ(tracks[1].format.sample_rate, 16000);
  EXPECT_EQ(tracks[1].format.channel_layout, kStereo);
}

TEST_F(JoinSoundsTest, TheEncoderIsTheOneThatConversionsUse) {
  JoinEncoding format;
  for (const auto& [name, encoder] :
       {std::pair{"opus", "libopus"}, {"ac3", "ac3"}, {"ac3_fixed", "ac3_fixed"}}) {
    format.audioCodec = name;
    for (const auto& track : join({first()}, false, format).tracks())
      EXPECT_EQ(track.encoder, encoder);
  }
}

TEST_F(JoinSoundsTest, WhatIsLostIsToldOnce) {
  JoinEncoding format;
  format.audioCodec = "pcm_u8";
  format.channelLayout = kMono;
  EXPECT_THAT(join({first()}, false, format).changes(),
              ElementsAre("16 bits become 8", "2 channels become 1"));
  EXPECT_THAT(join({first()}, false).changes(), IsEmpty());
}

TEST_F(JoinSoundsTest, TracksFollowTheirOwnSampleBySample) {
  JoinSounds& sounds = join({first(), first()}, false);
  sounds.beginInput(0, 0, 0, false);
  EXPECT_EQ(before(0, 100), counting(1, 800));
  const Samples both = before(1, 100);
  EXPECT_EQ(channel(both, 0), counting(1, 1600));
  EXPECT_EQ(channel(both, 1).back(), -1600);
  EXPECT_EQ(before(0, 500), counting(801, 3200));
  EXPECT_EQ(channel(before(1, 500), 0), counting(1601, 6400));
  EXPECT_FALSE(sounds.goesOn(0));
  sounds.beginInput(1, 500, 0, true);
  EXPECT_TRUE(sounds.goesOn(400000));
  EXPECT_FALSE(sounds.goesOn(600000));
  EXPECT_EQ(before(0, 900), counting(1, 3200));
  EXPECT_EQ(rest(0, 900), counting(3201, 800));
}

TEST_F(JoinSoundsTest, ATrackThatAnInputLacksIsSilentAsLongAsTheOthersPlay) {
  JoinSounds& sounds = join({first(), oneTrack(), first()}, false);
  sounds.beginInput(0, 0, 0, false);
  before(0, 500);
  before(1, 500);
  sounds.beginInput(1, 500, 0, true);
  EXPECT_TRUE(sounds.goesOn(250000));
  EXPECT_FALSE(sounds.goesOn(251000));
  EXPECT_EQ(before(0, 750), counting(10001, 2000));
  EXPECT_EQ(before(1, 750), silence(2 * 4000));
  EXPECT_FALSE(sounds.goesOn(0));
  sounds.beginInput(2, 750, 0, true);
  EXPECT_EQ(before(0, 800), counting(1, 400));
  EXPECT_EQ(channel(before(1, 800), 0), counting(1, 800));
  EXPECT_EQ(part(1).read, (IndexSet{0}));
  EXPECT_EQ(part(2).read, (IndexSet{0, 1}));
}

// Stereo becomes mono as the mean of both, and mono both channels of stereo.
TEST_F(JoinSoundsTest, OtherLayoutsBecomeTheFirstOnes) {
  JoinSounds& sounds = join({first(), otherLayouts()}, false);
  sounds.beginInput(0, 0, 0, false);
  before(0, 500);
  before(1, 500);
  sounds.beginInput(1, 500, 0, true);
  const Samples mono = before(0, 1000);
  EXPECT_THAT(mono, SizeIs(4000));
  EXPECT_THAT(mono, Each(testing::DoubleNear(16384, 0.01)));
  Samples stereo = before(1, 1000);
  stereo = stereo + rest(1, 1000);
  ASSERT_THAT(stereo, SizeIs(2 * 8000));
  EXPECT_THAT(Samples(stereo.begin(), stereo.begin() + 2 * 4000), Each(4096));
  EXPECT_THAT(Samples(stereo.begin() + 2 * 4000, stereo.end()), Each(0));
}

// 1000 frames at 4000 Hz are 2000 at 8000, and constant but for where they begin and end.
TEST_F(JoinSoundsTest, OtherRatesBecomeTheFirstOne) {
  const auto slow = file("slow.nut", {"0.5:s=4000:d=0.25:c=mono", "0.5:s=48000:d=0.25:c=stereo"});
  JoinSounds& sounds = join({first(), slow, first()}, false);
  sounds.beginInput(0, 0, 0, false);
  before(0, 500);
  sounds.beginInput(1, 500, 0, true);
  const Samples played = before(0, 750);
  ASSERT_THAT(played, SizeIs(2000));
  EXPECT_THAT(Samples(played.begin() + 100, played.end() - 100),
              Each(testing::DoubleNear(16384, 16)));
  EXPECT_EQ(part(0).end.reached, 500000);
  sounds.beginInput(2, 750, 0, true);
  EXPECT_EQ(part(1).end.reached, 250000);
  EXPECT_EQ(before(0, 800), counting(1, 400));
}

// The first input's pictures end at 400 ms, and those of the second begin 100 ms after its sound.
TEST_F(JoinSoundsTest, SoundLiesUnderThePicturesThatItBelongsTo) {
  JoinSounds& sounds = join({first(), oneTrack()}, true);
  sounds.beginInput(0, 0, 0, false);
  EXPECT_EQ(before(0, 400), counting(1, 3200));
  EXPECT_EQ(channel(before(1, 400), 0), counting(1, 6400));
  sounds.beginInput(1, 400, 100000, true);
  Samples mono = before(0, 600);
  mono = mono + rest(0, 600);
  EXPECT_EQ(mono, counting(10801, 1200) + silence(400));
  // Nothing takes the place of what goes on of the first.
  Samples stereo = before(1, 600);
  stereo = stereo + rest(1, 600);
  EXPECT_EQ(channel(stereo, 0), counting(6401, 1600) + silence(1600));
}

TEST_F(JoinSoundsTest, AGapIsSilentUpToWhereTheNextInputBegins) {
  JoinSounds& sounds = join({first(), oneTrack()}, true);
  sounds.beginInput(0, 0, 0, false);
  before(0, 450);
  sounds.endInput();
  EXPECT_EQ(before(0, 700), silence(2000));
  sounds.beginInput(1, 700, 0, false);
  EXPECT_EQ(before(0, 800), counting(10001, 800));
}

}  // namespace
}  // namespace kestrel::test
