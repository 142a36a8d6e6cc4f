#include <gmock/gmock.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/e2e/JoinFixture.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct Halves {
  std::string extension;
  Arguments codecs;
};

class JoinHalvesTest : public JoinTest, public testing::WithParamInterface<Halves> {};

TEST_P(JoinHalvesTest, TwoHalvesAreTheWhole) {
  const auto& [extension, codecs] = GetParam();
  cut("numbered25.mp4", extension, codecs);
  const RunResult result = join({first_, second_}, joined_, {"--reencode", "never"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("copying packets"));
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
  EXPECT_EQ(packetHashes(joined_, "a"), packetHashes(whole_, "a"));
  EXPECT_TRUE(pictureBytes(joined_, "format=yuv420p") == pictureBytes(whole_, "format=yuv420p"));
  EXPECT_EQ(shownNumbers(joined_), countingFrom(0, 125));
  EXPECT_EQ(soundHash(joined_), soundHash(whole_));  // so there is no click either
}

TEST_P(JoinHalvesTest, TimesGoOnOverTheSeam) {
  const auto& [extension, codecs] = GetParam();
  cut("numbered25.mp4", extension, codecs);
  ASSERT_EQ(join({first_, second_}, joined_).status, 0);
  const auto times = pictureTimes(joined_);
  ASSERT_EQ(times.size(), 125);
  for (size_t i = 3; i + 1 < times.size(); ++i)
    EXPECT_NEAR(times[i + 1] - times[i], 0.04, 0.0021) << "after picture " << i;
}

INSTANTIATE_TEST_SUITE_P(, JoinHalvesTest,
                         testing::Values(Halves{"mp4", kCopy}, Halves{"mkv", kCopy},
                                         Halves{"ts", kCopy}, Halves{"mov", kCopy},
                                         Halves{"avi", kBFrames}, Halves{"mkv", kBFrames}),
                         [](const auto& tested) {
                           return tested.param.extension +
                                  (tested.param.codecs == kCopy ? "_copied" : "_bframes");
                         });

TEST_F(JoinTest, InputsWithOtherStartTimesFollowEachOther) {
  cut("numbered25.mp4", "ts", kCopy);
  const auto late = folder_ / "late.ts";
  ffmpeg({"-i", second_.string(), "-c", "copy", "-output_ts_offset", "77", late.string()});
  ASSERT_EQ(join({first_, late}, joined_, {"--reencode", "never"}).status, 0);
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
  EXPECT_EQ(soundHash(joined_), soundHash(whole_));
  const auto times = pictureTimes(joined_);
  EXPECT_NEAR(times.back() - times.front(), 124 / 25.0, 0.001);
}

class JoinLateTest : public JoinTest, public testing::WithParamInterface<std::string> {};

// These containers state when they end, not how long they last.
TEST_P(JoinLateTest, AnInputWhoseTimesStartLateHasNotEndedEarly) {
  cut("numbered25.mp4", GetParam(), kCopy);
  const auto late = folder_ / ("late." + GetParam());
  ffmpeg({"-i", second_.string(), "-c", "copy", "-output_ts_offset", "4", late.string()});
  const RunResult copied = join({first_, late}, joined_, {"--reencode", "never"});
  EXPECT_EQ(copied.status, 0) << copied.err;
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
  const RunResult encoded = join({first_, late}, joined_, {"--reencode", "always", "--force"});
  EXPECT_EQ(encoded.status, 0) << encoded.err;
  EXPECT_NEAR(static_cast<double>(shownNumbers(joined_).size()), 125, 1);
  const RunResult converted = run({kestrelBinary(), "convert", late.string(),
                                   (folder_ / "out.mp4").string(), "--video-codec", "copy"});
  EXPECT_EQ(converted.status, 0) << converted.err;
  const RunResult drawn =
      run({kestrelBinary(), "wave", late.string(), (folder_ / "out.json").string()});
  EXPECT_EQ(drawn.status, 0) << drawn.err;
  const RunResult composed =
      run({kestrelBinary(), "compose", "-o", (folder_ / "one.mkv").string(), late.string() + ":0"});
  EXPECT_EQ(composed.status, 0) << composed.err;
}

INSTANTIATE_TEST_SUITE_P(, JoinLateTest, testing::Values("mp4", "mov", "mkv"),
                         [](const auto& tested) { return tested.param; });

// This one states how long it lasts.
TEST_F(JoinTest, AnInputWhoseTimesStartLateMayHaveEndedEarly) {
  const auto clip = folder_ / "late.flv";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c", "copy", "-output_ts_offset", "100",
          clip.string()});
  EXPECT_EQ(join({clip}, folder_ / "out.mkv").status, 0);
  const std::string bytes = readBytes(clip);
  writeBytes(clip, bytes.substr(0, bytes.size() / 2));
  const RunResult result = join({clip}, folder_ / "out.mkv", {"--force"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("ended early"));
}

TEST_F(JoinTest, ThreeTimesTheSameFileStaysInSync) {
  const auto clip = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_EQ(join({clip, clip, clip}, output, {"--reencode", "never"}).status, 0);
  EXPECT_EQ(shownNumbers(output).size(), 375);
  const auto times = pictureTimes(output);
  const auto ticks = tickTimes(output);
  EXPECT_NEAR(times.at(250), 10, 0.001);
  ASSERT_FALSE(ticks.empty());
  EXPECT_NEAR(ticks.back(), 14, 0.05);  // the sound of the third, where its pictures have it
}

TEST_F(JoinTest, WhatDoesNotFitIsEncodedAnewAndSaid) {
  const auto other = fixture("numbered30000-1001.mp4");
  const auto output = folder_ / "out.mp4";
  const RunResult result = join({fixture("av25.mp4"), other}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("does not fit: size 128x32 instead of 320x180"));
  EXPECT_THAT(result.out, HasSubstr("encoding anew"));
  EXPECT_THAT(result.out, HasSubstr("rate 48000 Hz instead of 44100 Hz"));
  const auto video = streamOf(output, "video");
  EXPECT_EQ(video["width"], 320);
  EXPECT_EQ(video["codec_name"], "h264");
  EXPECT_EQ(video["r_frame_rate"], "25/1");
  EXPECT_EQ(streamOf(output, "audio")["sample_rate"], "44100");
  EXPECT_NEAR(static_cast<double>(pictureTimes(output).size()), 50 + 125, 1);
  EXPECT_NEAR(static_cast<double>(sampleCount(output)) / 44100, 7, 0.1);
}

TEST_F(JoinTest, NeverMeansNever) {
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      join({fixture("av25.mp4"), fixture("numbered25.mp4")}, output, {"--reencode", "never"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("do not fit together"));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

TEST_F(JoinTest, AlwaysEncodesIntoTheFormatAskedFor) {
  const auto clip = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mkv";
  const RunResult result =
      join({clip, clip}, output, {"--video-codec", "mpeg4", "--size", "256x64"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(streamOf(output, "video")["codec_name"], "mpeg4");
  EXPECT_EQ(streamOf(output, "video")["width"], 256);
  const auto numbers = shownNumbers(output);
  ASSERT_EQ(numbers.size(), 250);
  EXPECT_EQ(numbers.front(), 0);
  EXPECT_EQ(numbers[124], 124);
  EXPECT_EQ(numbers[125], 0);
}

TEST_F(JoinTest, CodecsThatTheContainerHasNoPlaceForAreEncodedAnew) {
  const auto output = folder_ / "out.webm";
  const RunResult result = join({fixture("av25.mp4"), fixture("av25.mp4")}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("cannot hold h264"));
  EXPECT_EQ(streamOf(output, "video")["codec_name"], "vp9");
}

// Then the sound sets the pace.
TEST_F(JoinTest, PicturesThatNeverComeDoNotMoveTheSound) {
  const auto clip = folder_ / "clip.mkv";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-c", "copy", "-bsf:v", "noise=drop=1",
          "-output_ts_offset", "3", clip.string()});
  const auto output = folder_ / "out.mkv";
  ASSERT_EQ(join({clip, clip}, output, {"--reencode", "never"}).status, 0);
  const auto packets = ffprobeJson(output, {"-show_packets", "-select_streams", "a"})["packets"];
  ASSERT_EQ(packets.size(), 2 * packetHashes(clip, "a").size());
  const auto timeOf = [](const nlohmann::json& packet) {
    return std::stod(packet["pts_time"].get<std::string>());
  };
  EXPECT_NEAR(timeOf(packets.back()) - timeOf(packets.front()),
              static_cast<double>(packets.size() - 1) * 1024 / 44100, 0.003);
}

// A file that was cut without encoding hides what lies between the key picture and the cut.
TEST_F(JoinTest, PicturesThatTheFirstInputHidesAreNotShown) {
  const auto late = folder_ / "late.mp4";
  ffmpeg({"-ss", "1", "-i", fixture("numbered25.mp4").string(), "-c", "copy", late.string()});
  const size_t own = shownNumbers(late).size();
  ASSERT_LT(own, packetHashes(late, "v").size());
  const auto clip = fixture("numbered25.mp4");
  for (const std::string name : {"out.mkv", "out.mp4"}) {
    SCOPED_TRACE(name);
    const RunResult result = join({late, clip}, folder_ / name, {"--reencode", "never"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(shownNumbers(folder_ / name).size(), own + 125);
  }
}

TEST_F(JoinTest, ManyInputsMayBeOpenAtOnce) {
  const auto sound = folder_ / "sound.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=d=0.1:r=8000", sound.string()});
  Arguments arguments{"sh", "-c", "ulimit -Sn 40 && exec \"$@\"", "sh", kestrelBinary(), "join"};
  for (int i = 0; i < 60; ++i) arguments.push_back(sound.string());
  const auto output = folder_ / "out.wav";
  const RunResult result = run(joined(arguments, {"-o", output.string()}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(sampleCount(output), 60 * 800);
}

TEST_F(JoinTest, APipeIsCopiedOrRefused) {
  const auto clip = fixture("av25.ts");
  const auto output = folder_ / "out.mkv";
  const Arguments command{kestrelBinary(), "join", "/dev/stdin",
                          clip.string(),   "-o",   output.string()};
  const auto piped = [&](const Arguments& options) {
    return run(
        joined(joined({"sh", "-c", "cat \"$0\" | \"$@\"", clip.string()}, command), options));
  };
  const RunResult encoded = piped({"--reencode", "always"});
  EXPECT_EQ(encoded.status, 1);
  EXPECT_THAT(encoded.err, HasSubstr("can be read only once"));
  EXPECT_FALSE(fs::exists(output));
  const RunResult copied = piped({});
  ASSERT_EQ(copied.status, 0) << copied.err;
  EXPECT_EQ(packetHashes(output, "v").size(), 2 * packetHashes(clip, "v").size());
}

// One packet may be all of a file.
TEST_F(JoinTest, AFileOfOneLongPacketHasNotEndedEarly) {
  const auto sound = folder_ / "sound.wav";
  ffmpeg({"-f", "lavfi", "-i", "sine=d=2:r=8000", "-c:a", "g726", "-b:a", "16k", sound.string()});
  const RunResult result = join({sound, sound}, folder_ / "out.wav", {"--reencode", "never"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(sampleCount(folder_ / "out.wav"), 32000);
  const RunResult composed =
      run({kestrelBinary(), "compose", "-o", (folder_ / "o.wav").string(), sound.string()});
  EXPECT_EQ(composed.status, 0) << composed.err;
}

// Nothing in a WAV file says where packets of AAC begin.
TEST_F(JoinTest, WavTakesNoPacketsThatNeedAContainersHelp) {
  const auto sound = folder_ / "sound.m4a";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-vn", "-c", "copy", sound.string()});
  const auto output = folder_ / "out.wav";
  const RunResult result = join({sound, sound}, output);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(streamOf(output, "audio")["codec_name"], "pcm_s16le");
  EXPECT_NEAR(static_cast<double>(sampleCount(output)),
              2.0 * static_cast<double>(sampleCount(sound)), 2048);
  const RunResult composed =
      run({kestrelBinary(), "compose", "-o", (folder_ / "o.wav").string(), sound.string()});
  EXPECT_EQ(composed.status, 1);
  EXPECT_THAT(composed.err, HasSubstr("cannot hold aac"));
}

TEST_F(JoinTest, APictureWithoutATimeAtTheBeginningDoesNotPreventCopying) {
  KESTREL_NEED_MEDIA("mpeg2-mp3.ts");
  const auto clip = mediaFile("mpeg2-mp3.ts");
  const auto output = folder_ / "out.mp4";
  const RunResult result = join({clip, clip}, output, {"--reencode", "never"});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto pictures = [](const fs::path& file) {
    return std::stoi(
        run({"ffprobe", "-v", "quiet", "-count_packets", "-select_streams", "v", "-show_entries",
             "stream=nb_read_packets", "-of", "csv=p=0", file.string()})
            .out);
  };
  EXPECT_GT(pictures(clip), 100);
  EXPECT_EQ(pictures(output), 2 * pictures(clip));
}

TEST_F(JoinTest, TheOutputBeginsAtItsStart) {
  const auto clip = fixture("av25.ts");  // whose times begin at 10 s
  ASSERT_EQ(join({clip, clip}, folder_ / "out.mkv", {"--reencode", "never"}).status, 0);
  EXPECT_NEAR(pictureTimes(folder_ / "out.mkv").front(), 0, 0.05);
  EXPECT_NEAR(pictureTimes(folder_ / "out.mkv").back(), 3.96, 0.05);
}

/// Files whose packets do not all tell when they are shown: an AVI, and pictures without a
/// container.
class JoinUntimed : public JoinTest, public testing::WithParamInterface<const char*> {
 protected:
  fs::path clip() const {
    const auto avi = fixture("mpeg4-bframes.avi");
    if (std::string(GetParam()) == "avi") return avi;
    const auto file = folder_ / "clip.m2v";
    ffmpeg({"-i", avi.string(), "-an", "-c:v", "mpeg2video", "-q:v", "3", "-bf", "2", "-g", "12",
            "-frames:v", "50", file.string()});
    return file;
  }
};

TEST_P(JoinUntimed, PicturesAreCopiedInTheOrderInWhichTheyAreShown) {
  const auto one = clip();
  const std::string once = pictureBytes(one, "format=yuv420p");
  for (const char* name : {"out.mp4", "out.mkv"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    const RunResult result = join({one, one, one}, output, {"--reencode", "never"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(pictureBytes(output, "format=yuv420p") == once + once + once);
    const auto times = pictureTimes(output);
    ASSERT_THAT(times, SizeIs(150));
    for (size_t i = 1; i < times.size(); ++i)
      EXPECT_NEAR(times[i] - times[i - 1], 0.04, 0.0011) << i;
  }
}

// A picture that is shown behind the last packet does not wait for the next input.
TEST_P(JoinUntimed, AGapLiesBehindTheLastPicture) {
  const auto output = folder_ / "out.mkv";
  const auto one = clip();
  const RunResult result = work(output, {{one, 0, 1}, {one, 5, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto times = pictureTimes(output);
  ASSERT_THAT(times, SizeIs(100));
  EXPECT_NEAR(times[49] - times[0], 49 * 0.04, 0.0011);
  EXPECT_NEAR(times[50] - times[0], 5, 0.0011);
  EXPECT_NEAR(times[99] - times[50], 49 * 0.04, 0.0011);
}

INSTANTIATE_TEST_SUITE_P(Of, JoinUntimed, testing::Values("avi", "m2v"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(JoinTest, WrongUsageIsOneSentence) {
  const auto clip = fixture("av25.mp4");
  EXPECT_TRUE(endsWithSentence(join({}, folder_ / "out.mp4"), 2, "inputs"));
  EXPECT_TRUE(endsWithSentence(join({folder_ / "absent.mp4"}, folder_ / "out.mp4"), 1, "absent"));
  EXPECT_TRUE(
      endsWithSentence(join({clip}, folder_ / "out.mp4", {"--reencode", "maybe"}), 2, "maybe"));
  EXPECT_TRUE(endsWithSentence(
      join({clip}, folder_ / "out.mp4", {"--reencode", "never", "--size", "64x64"}), 2, "never"));
  EXPECT_TRUE(
      endsWithSentence(join({clip}, folder_ / "out.mp4", {"--video-codec", "copy"}), 2, "copy"));
  writeBytes(folder_ / "there.mp4", "precious");
  EXPECT_TRUE(endsWithSentence(join({clip}, folder_ / "there.mp4"), 1, "--force"));
  const auto own = folder_ / "own.mp4";
  fs::copy_file(clip, own);
  EXPECT_TRUE(endsWithSentence(join({clip, own}, own, {"--force"}), 1, "input itself"));
}

TEST_F(JoinTest, AnInterruptLeavesNothing) {
  const auto output = folder_ / "out.mkv";
  const auto clip = fixture("numbered25-long.mp4").string();
  Process process({kestrelBinary(), "join", clip, clip, "-o", output.string(), "--reencode",
                   "always", "--size", "1280x320"});
  while (namesIn(folder_.path()).empty())
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  process.signal(SIGINT);
  EXPECT_EQ(process.wait().status, 130);
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
}

TEST_F(JoinTest, ProgressIsLinesOfJson) {
  const auto clip = fixture("numbered25.mp4");
  const RunResult result = join({clip, clip}, folder_ / "out.mp4", {"--progress", "json"});
  const size_t last = result.err.rfind('{');
  ASSERT_NE(last, std::string::npos);
  const auto line = nlohmann::json::parse(result.err.substr(last));
  EXPECT_EQ(line["done"], true);
  EXPECT_NEAR(line["duration"].get<double>(), 10, 0.1);
}

}  // namespace
}  // namespace kestrel::test
