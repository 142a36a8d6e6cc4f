#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>
#include <numeric>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int kRate = 44100;

class ConvertLevel : public testing::Test {
 protected:
  /// A file of the two seconds that an `aevalsrc` expression sounds.
  std::filesystem::path sound(const std::string& name, const std::string& expression,
                              const std::string& settings, const Arguments& codec) {
    const auto file = folder_ / name;
    ffmpeg(
        joined(joined({"-f", "lavfi", "-i", "aevalsrc=" + expression + ":d=2:" + settings}, codec),
               {file.string()}));
    return file;
  }

  /// One channel of a file's sound, without its first and last tenth of a second.
  std::vector<float> channel(const std::filesystem::path& file, size_t index) {
    const auto all = samples(file);
    const size_t count = streamOf(file, "audio")["channels"];
    std::vector<float> one;
    for (size_t i = index; i < all.size(); i += count) one.push_back(all[i]);
    const size_t margin = one.size() / 20;
    return {one.begin() + static_cast<std::ptrdiff_t>(margin),
            one.end() - static_cast<std::ptrdiff_t>(margin)};
  }

  TempDir folder_;
};

TEST_F(ConvertLevel, StereoPassesBitExactAsFloat) {
  const auto source = fixture("pcm-stereo-44100-f32.wav");
  const auto before = samples(source);
  ASSERT_EQ(before.size(), 2u * 2 * kRate);
  for (const char* name : {"out.wav", "out.mkv", "out.mov"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, {"--audio-codec", "pcm_f32le"}));
    EXPECT_EQ(samples(output), before);
  }
}

TEST_F(ConvertLevel, StereoPassesBitExactAs16Bits) {
  const auto source = fixture("pcm-stereo-44100-s16.wav");
  for (const auto& [name, codec] : {std::pair{"out.wav", "pcm_s16le"}, {"out.flac", "flac"}}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, {"--audio-codec", codec}));
    EXPECT_EQ(samples(output), samples(source));
  }
}

TEST_F(ConvertLevel, ValuesBeyondFullScalePassAsFloat) {
  const auto source =
      sound("loud.wav", "'1.7*sin(2*PI*440*t)|-1.2'", "s=44100", {"-c:a", "pcm_f32le"});
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(source, output, {"--audio-codec", "pcm_f32le"}));
  EXPECT_EQ(samples(output), samples(source));
}

TEST_F(ConvertLevel, MonoReachesBothSidesAtItsLevel) {
  const auto source = fixture("pcm-mono-44100-s16.wav");
  const auto stereo = folder_ / "stereo.wav";
  ASSERT_TRUE(converts(source, stereo, {"--channels", "stereo", "--audio-codec", "pcm_f32le"}));
  ASSERT_EQ(streamOf(stereo, "audio")["channels"], 2);
  const double before = rms(channel(source, 0));
  EXPECT_NEAR(decibel(rms(channel(stereo, 0)) / before), 0, 0.1);
  EXPECT_NEAR(decibel(rms(channel(stereo, 1)) / before), 0, 0.1);
}

TEST_F(ConvertLevel, MonoKeepsItsLevelByDefault) {
  const auto source = fixture("pcm-mono-44100-s16.wav");
  const auto output = folder_ / "out.m4a";
  ASSERT_TRUE(converts(source, output));
  EXPECT_NEAR(decibel(rms(channel(output, 0)) / rms(channel(source, 0))), 0, 0.1);
}

TEST_F(ConvertLevel, FullScaleSurroundFoldsDownWithoutClipping) {
  const std::string tone = "sin(2*PI*440*t)";
  for (const auto& [layout, channels] : {std::pair{"5.1", 6}, {"5.1(side)", 6}, {"7.1", 8}}) {
    SCOPED_TRACE(layout);
    std::string expression = "'" + tone;
    for (int i = 1; i < channels; ++i) expression += "|" + tone;
    const auto source = sound("full.wav", expression + "'", "s=44100:c=" + std::string(layout),
                              {"-c:a", "pcm_f32le"});
    const auto output = folder_ / "out.wav";
    ASSERT_TRUE(converts(source, output,
                         {"--channels", "stereo", "--audio-codec", "pcm_f32le", "--force"}));
    ASSERT_EQ(streamOf(output, "audio")["channels"], 2);
    for (const size_t side : {0, 1}) {
      const auto folded = channel(output, side);
      EXPECT_NEAR(decibel(peak(folded)), -1, 0.05);
      // A sine's peak is √2 times its root mean square; a clipped one's is less.
      EXPECT_NEAR(peak(folded) / rms(folded), std::sqrt(2), 0.02);
    }
  }
}

TEST_F(ConvertLevel, EverySurroundChannelIsHeardOnItsSide) {
  // Front left, front right, centre, low frequencies, back left, back right: a tone each.
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(
      converts(fixture("pcm-5.1-48000-s16.wav"), output,
               {"--channels", "stereo", "--sample-rate", "44100", "--audio-codec", "pcm_f32le"}));
  const auto left = channel(output, 0);
  const auto right = channel(output, 1);
  const auto hears = [&](const std::vector<float>& side, int number) {
    return toneAmplitude(side, 440 * number, kRate) > 0.02;
  };
  EXPECT_TRUE(hears(left, 1));
  EXPECT_FALSE(hears(right, 1));
  EXPECT_FALSE(hears(left, 2));
  EXPECT_TRUE(hears(right, 2));
  EXPECT_TRUE(hears(left, 3));
  EXPECT_TRUE(hears(right, 3));
  EXPECT_TRUE(hears(left, 5));
  EXPECT_FALSE(hears(right, 5));
  EXPECT_FALSE(hears(left, 6));
  EXPECT_TRUE(hears(right, 6));
}

TEST_F(ConvertLevel, VolumeIsAFactor) {
  const auto source = fixture("pcm-stereo-44100-f32.wav");
  for (const auto& [volume, change] :
       {std::pair{"0.5", -6.0206}, {"1", 0.0}, {"2", 6.0206}, {"0.1", -20.0}}) {
    SCOPED_TRACE(volume);
    const auto output = folder_ / "out.wav";
    ASSERT_TRUE(
        converts(source, output, {"--volume", volume, "--audio-codec", "pcm_f32le", "--force"}));
    EXPECT_NEAR(decibel(rms(channel(output, 0)) / rms(channel(source, 0))), change, 0.001);
  }
}

TEST_F(ConvertLevel, VolumeZeroIsSilence) {
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(fixture("pcm-stereo-44100-f32.wav"), output, {"--volume", "0"}));
  EXPECT_EQ(peak(samples(output)), 0);
  EXPECT_EQ(sampleCount(output), 2 * kRate);
}

// Recommendation ITU-R BS.775: the centre and the surround channels 3 dB lower, at the full level
// of the front ones.
TEST_F(ConvertLevel, QuietSurroundFoldsDownAtItsFullLevel) {
  const auto source = sound("quiet.wav",
                            "'0.1*sin(2*PI*440*t)|0.1*sin(2*PI*880*t)|0.1*sin(2*PI*1320*t)|0|"
                            "0.1*sin(2*PI*1760*t)|0.1*sin(2*PI*2200*t)'",
                            "s=44100:c=5.1", {"-c:a", "pcm_f32le"});
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(source, output, {"--channels", "stereo", "--audio-codec", "pcm_f32le"}));
  const auto left = channel(output, 0);
  EXPECT_NEAR(toneAmplitude(left, 440, kRate), 0.1, 0.001);
  EXPECT_NEAR(toneAmplitude(left, 1320, kRate), 0.0707, 0.001);
  EXPECT_NEAR(toneAmplitude(left, 1760, kRate), 0.0707, 0.001);
  EXPECT_NEAR(toneAmplitude(left, 880, kRate), 0, 0.001);
}

// In the same way, surround speakers at the sides and behind, without those of low frequencies.
TEST_F(ConvertLevel, SevenChannelsFoldDownAtTheirFullLevel) {
  std::string expression = "'0.05*sin(2*PI*440*t)";
  for (int i = 1; i < 8; ++i) expression += fmt::format("|0.05*sin(2*PI*{}*t)", 440 * (i + 1));
  const auto source = sound("quiet.wav", expression + "'", "s=44100:c=7.1", {"-c:a", "pcm_f32le"});
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(source, output, {"--channels", "stereo", "--audio-codec", "pcm_f32le"}));
  constexpr double kLower = 0.7071;
  // Front, centre, low frequencies, behind and at the sides.
  const std::vector<double> left{1, 0, kLower, 0, kLower, 0, kLower, 0};
  const std::vector<double> right{0, 1, kLower, 0, 0, kLower, 0, kLower};
  for (int i = 0; i < 8; ++i) {
    EXPECT_NEAR(toneAmplitude(channel(output, 0), 440 * (i + 1), kRate), 0.05 * left[i], 0.0005);
    EXPECT_NEAR(toneAmplitude(channel(output, 1), 440 * (i + 1), kRate), 0.05 * right[i], 0.0005);
  }
}

// The same Recommendation's one channel: the sides 3 dB lower, the centre as it is, surround 6 dB.
TEST_F(ConvertLevel, EveryLayoutFoldsDownToMonoAtItsFullLevel) {
  for (const auto& [layout, channels] :
       {std::pair{"stereo", 2}, {"3.0", 3}, {"5.1", 6}, {"7.1", 8}}) {
    SCOPED_TRACE(layout);
    std::string expression = "'";
    for (int i = 0; i < channels; ++i)
      expression += fmt::format("{}0.05*sin(2*PI*{}*t)", i > 0 ? "|" : "", 440 * (i + 1));
    const auto source = sound("tones.wav", expression + "'", "s=44100:c=" + std::string(layout),
                              {"-c:a", "pcm_f32le"});
    const auto output = folder_ / "out.wav";
    ASSERT_TRUE(
        converts(source, output, {"--channels", "mono", "--audio-codec", "pcm_f32le", "--force"}));
    ASSERT_EQ(streamOf(output, "audio")["channels"], 1);
    const auto mono = channel(output, 0);
    const auto expected = [](int index) {
      constexpr int kLowFrequencies = 3;
      if (index < 2) return 0.7071;
      return index == 2 ? 1 : index == kLowFrequencies ? 0 : 0.5;
    };
    for (int i = 0; i < channels; ++i)
      EXPECT_NEAR(toneAmplitude(mono, 440 * (i + 1), kRate), 0.05 * expected(i), 0.0005) << i;
  }
}

TEST_F(ConvertLevel, FullScaleStereoFoldsDownToMonoWithoutClipping) {
  const auto source = sound("full.wav", "'sin(2*PI*440*t)|sin(2*PI*440*t)'", "s=44100:c=stereo",
                            {"-c:a", "pcm_f32le"});
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(source, output, {"--channels", "mono", "--audio-codec", "pcm_f32le"}));
  const auto mono = channel(output, 0);
  EXPECT_NEAR(decibel(peak(mono)), -1, 0.05);
  EXPECT_NEAR(peak(mono) / rms(mono), std::sqrt(2), 0.02);
}

TEST_F(ConvertLevel, MoreVolumeThanFullScaleIsTurnedDownWhereItWouldClip) {
  const auto output = folder_ / "out.wav";
  ASSERT_TRUE(converts(fixture("pcm-stereo-44100-f32.wav"), output,
                       {"--volume", "8", "--audio-codec", "pcm_f32le"}));
  const auto before = channel(fixture("pcm-stereo-44100-f32.wav"), 0);
  const auto after = channel(output, 0);
  ASSERT_EQ(after.size(), before.size());
  EXPECT_NEAR(decibel(peak(after)), -1, 0.1);
  for (size_t i = 0; i < before.size(); ++i) {
    ASSERT_LE(std::abs(after[i]), std::abs(8 * before[i]) + 1e-6);
    ASSERT_GE(after[i] * before[i], 0);
  }
}

}  // namespace
}  // namespace kestrel::test
