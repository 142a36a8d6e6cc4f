#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "tests/e2e/JoinFixture.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const Arguments kEncode{"--reencode", "always"};

/// How long the longest silence lasts between two times, seconds.
double longestSilence(const fs::path& file, double from, double to, int rate = 44100) {
  const auto sound = samples(file, 1);
  size_t run = 0;
  size_t longest = 0;
  const auto begin = static_cast<size_t>(from * rate);
  const auto end = std::min(sound.size(), static_cast<size_t>(to * rate));
  for (size_t i = begin; i < end; ++i) {
    run = std::abs(sound[i]) < 0.002 ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  return static_cast<double>(longest) / rate;
}

class JoinEncodeTest : public JoinTest {};

class JoinEncodedHalvesTest : public JoinTest, public testing::WithParamInterface<std::string> {
 protected:
  JoinEncodedHalvesTest() {
    // Cut by the container alone: pictures and sound part at different times.
    const std::string extension = GetParam();
    const auto parts = (folder_ / ("part%d." + extension)).string();
    ffmpeg({"-i", fixture("av25.mp4").string(), "-map", "0", "-c", "copy", "-f", "segment",
            "-segment_times", "1", "-reset_timestamps", "1", parts});
    first_ = folder_ / ("part0." + extension);
    second_ = folder_ / ("part1." + extension);
    joined_ = folder_ / "joined.mp4";
  }
};

TEST_P(JoinEncodedHalvesTest, PictureFollowsPictureAndSoundFollowsSound) {
  const RunResult result = join({first_, second_}, joined_, kEncode);
  ASSERT_EQ(result.status, 0) << result.err;
  const auto times = pictureTimes(joined_);
  ASSERT_THAT(times, SizeIs(50));
  for (size_t i = 1; i < times.size(); ++i) EXPECT_NEAR(times[i] - times[i - 1], 0.04, 0.0011) << i;
  // A tone without an end; it would be missing for some 60 ms.
  EXPECT_LT(longestSilence(joined_, 0.2, 1.9), 0.012);
  EXPECT_NEAR(static_cast<double>(sampleCount(joined_)) / 44100, 2, 0.07);
}

INSTANTIATE_TEST_SUITE_P(, JoinEncodedHalvesTest, testing::Values("mp4", "mkv", "ts"),
                         [](const auto& tested) { return tested.param; });

TEST_F(JoinEncodeTest, SoundStaysWithItsPicturesOverManySeams) {
  const auto clip = fixture("numbered25.mp4");
  ASSERT_EQ(join({clip, clip, clip, clip}, folder_ / "out.mp4", kEncode).status, 0);
  const auto numbers = shownNumbers(folder_ / "out.mp4");
  ASSERT_THAT(numbers, SizeIs(500));
  for (size_t i = 0; i < 500; ++i) EXPECT_EQ(numbers[i], static_cast<int>(i % 125)) << i;
  const auto ticks = tickTimes(folder_ / "out.mp4");
  ASSERT_THAT(ticks, SizeIs(20));
  for (size_t i = 0; i < 20; ++i) EXPECT_NEAR(ticks[i], static_cast<double>(i), 0.03) << i;
}

TEST_F(JoinEncodeTest, SoundThatBeginsLateLeavesAHoleOfThatLength) {
  // The sound of each begins half a second after the pictures and ends with them.
  const auto clip = fixture("av-late-audio.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({clip, clip}, output, joined(kEncode, {"--audio-codec", "flac"})).status, 0);
  EXPECT_NEAR(longestSilence(output, 1, 3.5), 0.5, 0.03);
  EXPECT_LT(longestSilence(output, 2.55, 3.9), 0.01);
}

TEST_F(JoinEncodeTest, EverySoundTrackIsEncoded) {
  const auto clip = fixture("av-tracks.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({clip, clip}, output, kEncode).status, 0);
  const auto streams = ffprobeJson(output)["streams"];
  ASSERT_EQ(streams.size(), 3);
  EXPECT_EQ(streams[1]["tags"]["language"], "eng");
  EXPECT_EQ(streams[2]["tags"]["language"], "fre");
  for (const int track : {0, 1}) {
    const auto alone = folder_ / "alone.wav";
    ffmpeg({"-i", output.string(), "-map", "0:a:" + std::to_string(track), "-ac", "1",
            alone.string()});
    const auto sound = samples(alone);
    EXPECT_NEAR(static_cast<double>(sound.size()) / 48000, 4, 0.1);
    EXPECT_GT(toneAmplitude(sound, track == 0 ? 440 : 880, 48000), 0.05) << track;
    EXPECT_LT(toneAmplitude(sound, track == 0 ? 880 : 440, 48000), 0.01) << track;
  }
}

TEST_F(JoinEncodeTest, AnInputWithFewerSoundTracksIsSilentInTheOthers) {
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({fixture("av-tracks.mkv"), fixture("av60.mp4")}, output, kEncode).status, 0);
  const auto alone = folder_ / "alone.wav";
  ffmpeg({"-i", output.string(), "-map", "0:a:1", "-ac", "1", alone.string()});
  const auto sound = samples(alone);
  EXPECT_NEAR(static_cast<double>(sound.size()) / 48000, 4, 0.15);
  EXPECT_NEAR(longestSilence(alone, 1, 3.9, 48000), 1.9, 0.15);
}

TEST_F(JoinEncodeTest, WhatIsLeftOutIsToldOf) {
  const auto clip = fixture("av-tracks.mkv");
  RunResult result = join({clip, clip}, folder_ / "out.mkv", kEncode);
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string loss = "kestrel: left out of '" + clip.string() + "': 1 subtitle track\n";
  EXPECT_EQ(result.err, loss + loss);
  result = work(folder_ / "out.mkv", {{clip, 0, 2}});
  EXPECT_THAT(result.err, HasSubstr("': 1 subtitle track"));
}

TEST_F(JoinEncodeTest, ContainersThatDoNotTellGetTheirOwnCodecs) {
  const auto clip = fixture("av25.mp4");
  const auto ogg = folder_ / "out.ogg";
  ASSERT_EQ(join({clip, clip}, ogg, {"--reencode", "always"}).status, 0);
  EXPECT_EQ(streamOf(ogg, "video")["codec_name"], "theora");
  const auto sound = folder_ / "out.caf";
  ASSERT_EQ(join({clip, clip}, sound).status, 0);
  EXPECT_EQ(streamOf(sound, "audio")["codec_name"], "pcm_s16be");
  const auto studio = folder_ / "out.mxf";  // which has sound of 48 kHz only
  const RunResult result = join({clip, clip}, studio, {"--reencode", "always"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(streamOf(studio, "audio")["sample_rate"], "48000");
}

TEST_F(JoinEncodeTest, TracksThatTheFirstInputHasNotAreSaidToBeLeftOut) {
  const auto sound = folder_ / "sound.m4a";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-vn", "-c", "copy", sound.string()});
  const RunResult result = join({sound, fixture("av-tracks.mkv")}, folder_ / "out.mp4");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("av-tracks.mkv': 1 video track, 1 sound track"));
  const RunResult silent =
      join({fixture("av25.mp4"), fixture("numbered60.mp4")}, folder_ / "out.wav");
  ASSERT_EQ(silent.status, 0) << silent.err;
  EXPECT_THAT(silent.err, HasSubstr("av25.mp4': 1 video track\n"));
}

TEST_F(JoinEncodeTest, AnInputThatTheOutputHasNoStreamForIsNamedWithTheReason) {
  const auto silent = fixture("video-only.mp4");
  const auto tone = fixture("tone.mp3");
  for (const auto& [first, second, own, other] :
       {std::tuple{silent, tone, "sound", "pictures"}, {tone, silent, "pictures", "sound"}}) {
    const RunResult result = join({first, second}, folder_ / "out.mkv", {"--force"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err,
                HasSubstr("kestrel: nothing of '" + second.string() +
                          "' is in the output: it has no " + other + ", and '" + first.string() +
                          "', which sets the format, has no " + own + "\n"));
    EXPECT_THAT(result.err, Not(HasSubstr("could be decoded")));
  }
}

TEST_F(JoinEncodeTest, TheFirstInputsTitleBecomesTheFiles) {
  const auto titled = folder_ / "titled.mp4";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-c", "copy", "-metadata", "title=Bars",
          titled.string()});
  const auto output = folder_ / "out.mkv";
  for (const char* when : {"never", "always"}) {
    ASSERT_EQ(join({titled, fixture("av25.mp4")}, output, {"--reencode", when, "--force"}).status,
              0);
    const auto tags = ffprobeJson(output)["format"]["tags"];
    EXPECT_EQ(tags["title"], "Bars") << when;
    EXPECT_FALSE(tags.contains("COMPATIBLE_BRANDS") || tags.contains("compatible_brands"));
  }
}

// VP8's container tells none, and its pictures are of BT.601 whatever their size.
TEST_F(JoinEncodeTest, ColoursThatOnlyPicturesTellAreKept) {
  const auto large = folder_ / "large.webm";
  const auto small = folder_ / "small.webm";
  for (const auto& [file, size] : {std::pair{large, "1280x720"}, {small, "320x180"}})
    ffmpeg({"-f", "lavfi", "-i", std::string("testsrc2=size=") + size + ":rate=5:duration=0.6",
            "-pix_fmt", "yuv420p", "-c:v", "libvpx", "-deadline", "realtime", "-cpu-used", "8",
            file.string()});
  const auto output = folder_ / "out.mp4";
  const RunResult result = join({large, small}, output, {"--video-codec", "h264"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(streamOf(output, "video")["color_space"], "bt470bg");
}

TEST_F(JoinEncodeTest, ChannelsThatTheCodecHasNotAreLostAndThatIsSaid) {
  const auto clip = folder_ / "surround.mkv";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-c:v", "copy", "-ac", "6", "-c:a", "ac3",
          clip.string()});
  const auto output = folder_ / "out.mkv";
  const RunResult result = join({clip, clip}, output, joined(kEncode, {"--audio-codec", "mp3"}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("6 channels become 2"));
  EXPECT_EQ(streamOf(output, "audio")["channels"], 2);
}

TEST_F(JoinEncodeTest, WhatTheContainerRefusesIsEncodedAnew) {
  KESTREL_NEED_MEDIA("real-rv20.rm");
  const auto clip = mediaFile("real-rv20.rm");
  const RunResult never = join({clip}, folder_ / "out.mkv", {"--reencode", "never"});
  EXPECT_EQ(never.status, 1);
  EXPECT_THAT(never.err, HasSubstr("does not yet support muxing rv20"));
  const RunResult result = join({clip}, folder_ / "out.mkv");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("encoding anew: the matroska format cannot hold rv20"));
}

TEST_F(JoinEncodeTest, PicturesAndSoundBecomeSoundAlone) {
  const auto sound = folder_ / "sound.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:duration=1.013", sound.string()});
  const auto clip = folder_ / "clip.mkv";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-i", sound.string(), "-map", "0:v", "-map", "1:a",
          "-c:v", "copy", "-c:a", "pcm_s16le", clip.string()});
  const auto output = folder_ / "out.mp3";
  const RunResult result = join({clip, sound, sound}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(ffprobeJson(output)["streams"].size(), 1);
  EXPECT_LT(longestSilence(output, 0.2, 2.9), 0.01);  // the seams are within a picture
  EXPECT_NEAR(static_cast<double>(sampleCount(output)) / 44100, 3.039, 0.06);
}

// --- Damaged inputs.

class JoinTruncatedTest : public JoinTest, public testing::WithParamInterface<std::string> {};

TEST_P(JoinTruncatedTest, AnInputThatEndsEarlyIsToldOf) {
  const std::string extension = GetParam();
  const auto clip = folder_ / ("whole." + extension);
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-movflags", "+faststart",
          clip.string()});
  const auto cut = folder_ / ("cut." + extension);
  const std::string bytes = readBytes(clip);
  writeBytes(cut, bytes.substr(0, bytes.size() / 2));
  for (const char* when : {"never", "always"}) {
    const RunResult result =
        join({cut, clip}, folder_ / "out.mkv", {"--reencode", when, "--force"});
    EXPECT_EQ(result.status, 3) << when;
    EXPECT_THAT(result.err, HasSubstr("cut." + extension + "' ended early, at ")) << when;
    EXPECT_THAT(result.err, HasSubstr(" of 5.0")) << when;
    EXPECT_THAT(result.err, Not(HasSubstr("whole"))) << when;
    EXPECT_TRUE(fs::exists(folder_ / "out.mkv"));
  }
  const RunResult whole = join({clip, clip}, folder_ / "whole-twice.mkv");
  EXPECT_EQ(whole.status, 0) << whole.err;
}

INSTANTIATE_TEST_SUITE_P(, JoinTruncatedTest, testing::Values("mp4", "mkv"),
                         [](const auto& tested) { return tested.param; });

TEST_F(JoinEncodeTest, AnInputThatIsTakenOverHasNotEndedEarly) {
  const auto clip = fixture("numbered25.mp4");
  const RunResult result = work(folder_ / "out.mp4", {{clip, 0, 1}, {clip, 1, 1}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, Not(HasSubstr("early")));
}

}  // namespace
}  // namespace kestrel::test
