#include <gmock/gmock.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/Decoded.h"
#include "tests/support/Ffprobe.h"
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
                         joined(options, {"--audio-codec", "pcm_f32le", "--channels", "stereo",
                                          "--sample-rate", "44100", "--force"})));
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

TEST_F(ConvertTracks, TheUsualOneWhereTheContainerHoldsOne) {
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
    const Tones tones = mixOf({"--mix", tracks});
    EXPECT_NEAR(tones.low, kLevel, 0.003);
    EXPECT_NEAR(tones.high, kLevel, 0.003);
  }
}

TEST_F(ConvertTracks, AllGoAlongWithTheirLanguagesAndText) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("av-tracks.mkv"), output));
  const auto streams = ffprobeJson(output).at("streams");
  ASSERT_EQ(streams.size(), 4U);
  const std::vector<std::pair<std::string, std::string>> expected{
      {"h264", "und"}, {"aac", "eng"}, {"aac", "fre"}, {"mov_text", "eng"}};
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(streams[i]["codec_name"], expected[i].first);
    EXPECT_EQ(streams[i]["tags"]["language"], expected[i].second);
  }
  const auto texts = [](const std::filesystem::path& file) {
    return run({"ffmpeg", "-v", "error", "-i", file.string(), "-map", "0:s", "-f", "srt", "-"}).out;
  };
  EXPECT_EQ(texts(output), texts(fixture("av-tracks.mkv")));
}

TEST_F(ConvertTracks, EachIsItsOwn) {
  const auto output = folder_ / "out.mka";
  ASSERT_TRUE(converts(fixture("av-tracks.mkv"), output, {"--audio-codec", "flac"}));
  for (const auto& [track, frequency] : {std::pair{"0", 440.0}, {"1", 880.0}}) {
    const auto one = folder_ / "one.wav";
    ffmpeg({"-y", "-i", output.string(), "-map", std::string("0:a:") + track, "-ac", "1", "-ar",
            "44100", one.string()});
    const auto sound = samples(one, 1);
    for (const double tone : {440.0, 880.0})
      EXPECT_EQ(toneAmplitude(sound, tone, kRate) > 0.02, tone == frequency) << track;
  }
}

TEST_F(ConvertTracks, NoneAndCopiesAndTwoChoices) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(fixture("av-tracks.mkv"), output,
                       {"--audio-tracks", "none", "--subtitles-keep", "none"}));
  EXPECT_EQ(ffprobeJson(output).at("streams").size(), 1U);
  ASSERT_TRUE(converts(fixture("av-tracks.mkv"), output,
                       {"--video-codec", "copy", "--audio-codec", "copy", "--force"}));
  EXPECT_EQ(ffprobeJson(output).at("streams").size(), 4U);
  const auto both =
      convert(fixture("av-tracks.mkv"), output, {"--audio-tracks", "0", "--mix", "1", "--force"});
  EXPECT_TRUE(endsWithSentence(both, 2, "--mix"));
}

TEST_F(ConvertTracks, OneThatIsNotThereIsWrongUsage) {
  for (const char* tracks : {"2", "0,5", "deu", "0,,1"}) {
    const auto result =
        convert(fixture("av-tracks.mkv"), folder_ / "out.wav", {"--audio-tracks", tracks});
    EXPECT_TRUE(endsWithSentence(result, 2, tracks == std::string("0,5") ? "5" : tracks));
  }
}

TEST_F(ConvertTracks, OneOfAMixThatIsNotThereIsTheMixsFault) {
  const auto mixed = [&](const char* tracks) {
    return convert(fixture("av-tracks.mkv"), folder_ / "out.wav", {"--mix", tracks});
  };
  EXPECT_TRUE(
      endsWithSentence(mixed("0,5"), 2, "--mix: there is no audio track 5: the input has 2"));
  EXPECT_TRUE(endsWithSentence(mixed("deu"), 2, "--mix: there is no audio track in 'deu'"));
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
  int first;  ///< of the rates
};

void PrintTo(const SourceForm& form, std::ostream* stream) { *stream << form.samples; }

class ConvertSampleForm : public testing::TestWithParam<SourceForm> {
 protected:
  TempDir folder_;
};

// Each form has each layout, and each layout has each rate in some of the forms.
TEST_P(ConvertSampleForm, EveryLayoutAndRateKeepsLengthAndPitch) {
  const SourceForm& form = GetParam();
  const std::string tone = "0.1*sin(2*PI*440*t)";
  const std::vector<int> rates{8000, 22050, 48000, 96000, 192000};
  auto next = static_cast<size_t>(form.first);
  for (const auto& [layout, channels] :
       {std::pair{"mono", 1}, {"stereo", 2}, {"5.1", 6}, {"7.1", 8}}) {
    const int rate = rates[next++ % rates.size()];
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
    EXPECT_EQ(streamOf(output, "audio")["channels"], streamOf(source, "audio")["channels"]);
    const auto mono = samples(output, 1);
    EXPECT_NEAR(static_cast<double>(mono.size()), rate, 1024);
    // All channels sound alike, so however they are mixed, one tone alone is heard.
    const double level = rms(mono) * std::sqrt(2);
    EXPECT_GT(level, 0.05);
    EXPECT_NEAR(toneAmplitude(mono, 440, rate) / level, 1, 0.02);
  }
}

INSTANTIATE_TEST_SUITE_P(
    , ConvertSampleForm,
    testing::Values(SourceForm{"s16", "pcm_s16le", "wav", {}, 0},
                    SourceForm{"s32", "pcm_s32le", "wav", {}, 1},
                    SourceForm{"flt", "pcm_f32le", "wav", {}, 2},
                    SourceForm{"dbl", "pcm_f64le", "wav", {}, 3},
                    SourceForm{"s16p", "alac", "m4a", {"-sample_fmt", "s16p"}, 4},
                    SourceForm{"s32p", "alac", "m4a", {"-sample_fmt", "s32p"}, 0},
                    SourceForm{"fltp", "wavpack", "wv", {"-sample_fmt", "fltp"}, 2}),
    [](const auto& tested) { return tested.param.samples; });

// "First line" stands from 0.2 s to 0.9 s, "Second line" from 1.1 s to 1.8 s.
TEST_F(ConvertTracks, TextThatShowsAtTheStartIsThereForTheRestOfItsTime) {
  const Arguments fast{"--encoder-preset", "ultrafast"};
  const Arguments copied{"--video-codec", "copy"};
  const std::pair<const char*, Arguments> made[]{
      {"out.mkv", fast}, {"out.mp4", fast}, {"out.mp4", copied}};
  for (const auto& [name, options] : made) {
    SCOPED_TRACE(testing::Message() << name << ' ' << options.front());
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(fixture("text.mkv"), output,
                         joined(options, {"--force", "--start", "0.5", "--duration", "1.4"})));
    std::string text = ffmpeg({"-i", output.string(), "-map", "0:s", "-f", "srt", "-"});
    std::erase(text, '\r');
    EXPECT_EQ(text,
              "1\n00:00:00,000 --> 00:00:00,400\nFirst line\n\n"
              "2\n00:00:00,600 --> 00:00:01,300\nSecond line\nwith a second row\n\n");
  }
}

}  // namespace
}  // namespace kestrel::test
