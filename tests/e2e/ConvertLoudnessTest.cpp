#include <gmock/gmock.h>

#include <cmath>
#include <regex>
#include <string>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class ConvertLoudness : public testing::Test {
 protected:
  /// The integrated loudness of a track as ffmpeg measures it, LUFS.
  static double loudness(const std::filesystem::path& file, const std::string& track = "0:a:0") {
    const auto told = run({"ffmpeg", "-nostdin", "-hide_banner", "-i", file.string(), "-map", track,
                           "-af", "ebur128", "-f", "null", "-"});
    const size_t summary = told.err.rfind("Integrated loudness:");
    std::smatch found;
    const std::string rest = told.err.substr(summary);
    if (!std::regex_search(rest, found, std::regex("I: +(-?[0-9.]+) LUFS")))
      throw std::runtime_error("no loudness in: " + told.err);
    return std::stod(found[1]);
  }

  /// Five seconds of what an `aevalsrc` expression sounds.
  std::filesystem::path sound(const std::string& expression, const std::string& layout) {
    const auto file = folder_ / "in.wav";
    ffmpeg({"-f", "lavfi", "-i", "aevalsrc='" + expression + "':d=5:s=48000:c=" + layout, "-c:a",
            "pcm_f32le", file.string()});
    return file;
  }

  TempDir folder_;
};

TEST_F(ConvertLoudness, QuietAndLoudSoundGetTheSameLoudness) {
  const auto output = folder_ / "out.flac";
  for (const auto& [amplitude, words] : {std::pair{"0.01", "turned up"}, {"0.9", "turned down"}}) {
    const auto input = sound(std::string(amplitude) + "*sin(2*PI*440*t)*(0.5+0.5*sin(t))|" +
                                 amplitude + "*sin(2*PI*660*t)",
                             "stereo");
    const RunResult result = convert(input, output, {"--loudness", "-23", "--force"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err,
                testing::AllOf(testing::HasSubstr("kestrel: sound track 0: "),
                               testing::HasSubstr(words), testing::HasSubstr("now -23.0 LUFS\n")));
    EXPECT_NEAR(loudness(output), -23, 0.2);
  }
}

TEST_F(ConvertLoudness, IsThatOfTheResultDownmixedResampledAndEncoded) {
  const auto input = sound(
      "0.1*sin(2*PI*440*t)|0.1*sin(2*PI*550*t)|0.2*sin(2*PI*660*t)|0|0.3*sin(2*PI*880*t)|0", "5.1");
  for (const Arguments& options :
       {Arguments{"--channels", "stereo", "--sample-rate", "44100"}, Arguments{}}) {
    const auto output = folder_ / "out.m4a";
    const RunResult result =
        convert(input, output, joined(options, {"--loudness", "-20", "--force"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NEAR(loudness(output), -20, 0.5);
  }
}

TEST_F(ConvertLoudness, CountsTheSpanAlone) {
  // Three quiet seconds, then two loud ones.
  const auto input = sound("(0.01+0.5*gte(t,3))*sin(2*PI*440*t)", "mono");
  const auto output = folder_ / "out.wav";
  EXPECT_EQ(convert(input, output, {"--loudness", "-18", "--start", "0.5", "--end", "2.5"}).status,
            0);
  EXPECT_EQ(sampleCount(output), 2 * 48000);
  EXPECT_NEAR(loudness(output), -18, 0.2);
}

TEST_F(ConvertLoudness, PeaksAreHeldAndThatIsTold) {
  // A quiet tone with a loud click every second.
  const auto input = sound("0.02*sin(2*PI*440*t)+0.9*lt(mod(t,1),0.0005)*sin(2*PI*2000*t)", "mono");
  const auto output = folder_ / "out.wav";
  const RunResult result = convert(input, output, {"--loudness", "-16"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, testing::HasSubstr("its peaks are held at -1 dB"));
  EXPECT_LE(decibel(peak(samples(output))), -0.9);
}

TEST_F(ConvertLoudness, SilenceStaysAndEachTrackHasItsOwn) {
  const auto input = folder_ / "two.mkv";
  ffmpeg({"-f", "lavfi", "-i", "anullsrc=r=48000:cl=stereo:d=3", "-f", "lavfi", "-i",
          "sine=frequency=440:sample_rate=48000:duration=3", "-map", "0", "-map", "1", "-c:a",
          "flac", input.string()});
  const auto output = folder_ / "out.mkv";
  const RunResult result = convert(input, output, {"--loudness", "-16"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err,
              testing::AllOf(testing::HasSubstr("sound track 0 is silent and stays as it is\n"),
                             testing::HasSubstr("sound track 1: ")));
  EXPECT_EQ(peak(samples(output)), 0);
  EXPECT_NEAR(loudness(output, "0:a:1"), -16, 0.3);
}

TEST_F(ConvertLoudness, WhatCannotBeIsRefused) {
  const auto input = fixture("audio-only.m4a");
  for (const Arguments& wrong :
       {Arguments{"--loudness", "-80"}, Arguments{"--loudness", "-2"},
        Arguments{"--loudness", "loud"}, Arguments{"--loudness", "-16", "--audio-codec", "copy"}})
    EXPECT_TRUE(endsWithSentence(convert(input, folder_ / "out.m4a", wrong), 2, "--loudness"));
  EXPECT_TRUE(endsWithSentence(
      convert(input, folder_ / "out.m4a", {"--loudness", "-16", "--volume", "2"}), 2, "--volume"));
}

}  // namespace
}  // namespace kestrel::test
