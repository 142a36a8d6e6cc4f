#include <gmock/gmock.h>

#include <cmath>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int kRate = 44100;

/// How the tracks of `av-tracks.mkv` sound in the mix: 440 Hz and 880 Hz, made from mono sines of
/// amplitude 1/8, each side of the stereo 3 dB below that.
class ConvertTracks : public testing::Test {
 protected:
  struct Tones {
    double low, high;
  };

  Tones mixOf(const Arguments& options) {
    const auto output = folder_ / "mix.wav";
    EXPECT_TRUE(converts(fixture("av-tracks.mkv"), output,
                         joined(options, {"--audio-codec", "pcm_f32le", "--force"})));
    const auto left = leftOf(output);
    return {toneAmplitude(left, 440, kRate), toneAmplitude(left, 880, kRate)};
  }

  /// One second from the middle of the left channel.
  static std::vector<float> leftOf(const std::filesystem::path& file) {
    const auto all = samples(file);
    std::vector<float> left;
    for (size_t i = kRate / 2; i < 3 * kRate / 2; ++i) left.push_back(all.at(2 * i));
    return left;
  }

  static constexpr double kLevel = 0.125 * 0.70710678;

  TempDir folder_;
};

TEST_F(ConvertTracks, TheFirstByDefault) {
  const Tones tones = mixOf({});
  EXPECT_NEAR(tones.low, kLevel, 0.003);
  EXPECT_NEAR(tones.high, 0, 0.003);
}

TEST_F(ConvertTracks, ByNumber) {
  const Tones tones = mixOf({"--audio-tracks", "1"});
  EXPECT_NEAR(tones.low, 0, 0.003);
  EXPECT_NEAR(tones.high, kLevel, 0.003);
}

TEST_F(ConvertTracks, ByLanguage) {
  const Tones tones = mixOf({"--audio-tracks", "fre"});
  EXPECT_NEAR(tones.low, 0, 0.003);
  EXPECT_NEAR(tones.high, kLevel, 0.003);
}

TEST_F(ConvertTracks, ByAnotherCodeOfTheLanguage) {
  for (const char* code : {"fra", "fr"}) {
    SCOPED_TRACE(code);
    const Tones tones = mixOf({"--audio-tracks", code});
    EXPECT_NEAR(tones.low, 0, 0.003);
    EXPECT_NEAR(tones.high, kLevel, 0.003);
  }
}

TEST_F(ConvertTracks, SeveralAreMixedAtFullLevel) {
  for (const char* tracks : {"0,1", "all"}) {
    SCOPED_TRACE(tracks);
    const Tones tones = mixOf({"--audio-tracks", tracks});
    EXPECT_NEAR(tones.low, kLevel, 0.003);
    EXPECT_NEAR(tones.high, kLevel, 0.003);
  }
}

TEST_F(ConvertTracks, OneThatIsNotThereIsWrongUsage) {
  for (const char* tracks : {"2", "0,5", "deu", "0,,1"}) {
    const auto result =
        convert(fixture("av-tracks.mkv"), folder_ / "out.wav", {"--audio-tracks", tracks});
    EXPECT_TRUE(endsWithSentence(result, 2, tracks == std::string("0,5") ? "5" : tracks));
  }
}

TEST_F(ConvertTracks, OfAnInputWithoutSoundNoneIsThereButAllAre) {
  const auto silent = fixture("video-only.mp4");
  const Arguments copy{"--video-codec", "copy"};
  EXPECT_TRUE(endsWithSentence(convert(silent, folder_ / "out.mp4", {"--audio-tracks", "3"}), 2,
                               "--audio-tracks: there is no audio track 3: the input has 0"));
  EXPECT_TRUE(endsWithSentence(convert(silent, folder_ / "out.mp4", {"--audio-tracks", "fre"}), 2,
                               "--audio-tracks: there is no audio track in 'fre'"));
  EXPECT_TRUE(converts(silent, folder_ / "out.mp4", joined(copy, {"--audio-tracks", "all"})));
}

/// A codec, which decides the form of the samples that its decoder gives.
struct SourceForm {
  std::string samples, codec, extension;
  Arguments options;
};

void PrintTo(const SourceForm& form, std::ostream* stream) { *stream << form.samples; }

class ConvertSampleForm : public testing::TestWithParam<SourceForm> {
 protected:
  TempDir folder_;
};

TEST_P(ConvertSampleForm, EveryLayoutAndRateKeepsLengthAndPitch) {
  const SourceForm& form = GetParam();
  const std::string tone = "0.1*sin(2*PI*440*t)";
  for (const auto& [layout, channels] :
       {std::pair{"mono", 1}, {"stereo", 2}, {"5.1", 6}, {"7.1", 8}}) {
    for (const int rate : {8000, 22050, 48000, 96000, 192000}) {
      SCOPED_TRACE(std::string(layout) + " at " + std::to_string(rate));
      const auto source = folder_ / ("source." + form.extension);
      std::string expression = "'" + tone;
      for (int i = 1; i < channels; ++i) expression += "|" + tone;
      ffmpeg(joined({"-f", "lavfi", "-i",
                     "aevalsrc=" + expression + "':d=1:s=" + std::to_string(rate) + ":c=" + layout,
                     "-c:a", form.codec},
                    joined(form.options, {source.string()})));
      const auto output = folder_ / "out.wav";
      ASSERT_TRUE(converts(source, output, {"--audio-codec", "pcm_f32le", "--force"}));
      const auto mono = samples(output, 1);
      EXPECT_NEAR(static_cast<double>(mono.size()), kRate, 1024);
      // All channels sound alike, so however they are mixed, one tone alone is heard.
      const double level = rms(mono) * std::sqrt(2);
      EXPECT_GT(level, 0.05);
      EXPECT_NEAR(toneAmplitude(mono, 440, kRate) / level, 1, 0.02);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, ConvertSampleForm,
                         testing::Values(SourceForm{"s16", "pcm_s16le", "wav", {}},
                                         SourceForm{"s32", "pcm_s32le", "wav", {}},
                                         SourceForm{"flt", "pcm_f32le", "wav", {}},
                                         SourceForm{"dbl", "pcm_f64le", "wav", {}},
                                         SourceForm{"s16p", "alac", "m4a", {"-sample_fmt", "s16p"}},
                                         SourceForm{"s32p", "alac", "m4a", {"-sample_fmt", "s32p"}},
                                         SourceForm{
                                             "fltp", "wavpack", "wv", {"-sample_fmt", "fltp"}}),
                         [](const auto& tested) { return tested.param.samples; });

}  // namespace
}  // namespace kestrel::test
