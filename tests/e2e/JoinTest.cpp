#include <gmock/gmock.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/VideoJoiner.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/e2e/FileBytes.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class JoinTest : public testing::Test {
 protected:
  static RunResult join(const std::vector<fs::path>& inputs, const fs::path& output,
                        const Arguments& options = {}) {
    Arguments arguments{kestrelBinary(), "join"};
    for (const fs::path& input : inputs) arguments.push_back(input.string());
    return run(joined(joined(arguments, {"-o", output.string()}), options));
  }

  /// The worker, with an archive of what it is to do.
  RunResult work(const fs::path& output,
                 const std::vector<std::tuple<fs::path, double, double>>& items) {
    const auto joiner = std::make_shared<VideoJoiner>();
    joiner->setPath(output.string());
    for (const auto& [path, position, rate] : items) joiner->join(path.string(), position, rate);
    const auto archive = folder_ / "archive";
    KeyedArchiver::archiveRootObject(joiner, archive.string());
    return run({worker(), "joiner", archive.string()});
  }

  static std::string worker() {
    return (fs::path(kestrelBinary()).parent_path() / "QTMovieHelperTask").string();
  }

  /// Copies a clip into a container, and cuts it there at the key picture at 2 s.
  void cut(const std::string& clip, const std::string& extension, const Arguments& codecs) {
    const auto whole = folder_ / "whole.mkv";
    ffmpeg(joined({"-i", fixture(clip).string()}, joined(codecs, {whole.string()})));
    ffmpeg({"-i", whole.string(), "-map", "0", "-c", "copy", "-f", "segment", "-segment_times", "2",
            "-reset_timestamps", "1", (folder_ / "part%d.mkv").string()});
    for (const std::string name : {"whole", "part0", "part1", "part2"}) {
      const auto file = folder_ / (name + ".mkv");
      if (extension != "mkv" && fs::exists(file))
        ffmpeg({"-i", file.string(), "-map", "0", "-c", "copy",
                (folder_ / (name + "." + extension)).string()});
    }
    whole_ = folder_ / ("whole." + extension);
    first_ = folder_ / ("part0." + extension);
    second_ = folder_ / ("part1." + extension);
    joined_ = folder_ / ("joined." + extension);
  }

  TempDir folder_;
  fs::path whole_, first_, second_, joined_;
};

struct Halves {
  std::string extension;
  Arguments codecs;
};

const Arguments kCopy{"-c", "copy"};
const Arguments kBFrames{"-c:v", "mpeg4", "-bf",  "2",   "-g",  "25",
                         "-q:v", "3",     "-c:a", "mp3", "-ac", "2"};

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

TEST_F(JoinTest, BFramesOutOfAviAreNotCopiedWithoutTheirTimes) {
  const auto clip = fixture("mpeg4-bframes.avi");
  const RunResult result = join({clip, clip}, folder_ / "out.mp4");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("encoding anew: input 1 does not tell when"));
}

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

// --- The worker.

TEST_F(JoinTest, TheWorkerCopiesWhatFits) {
  cut("numbered25.mp4", "mp4", kCopy);
  // The host's positions are sums of rounded lengths.
  const RunResult result = work(joined_, {{first_, 0, 1}, {second_, 2.013, 1}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, StartsWith("QTMovieHelperTask: copying packets"));
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
  EXPECT_EQ(soundHash(joined_), soundHash(whole_));
}

TEST_F(JoinTest, TheWorkerHonoursGaps) {
  cut("numbered25.mp4", "mp4", kCopy);
  ASSERT_EQ(work(joined_, {{first_, 0, 1}, {second_, 5, 1}}).status, 0);
  const auto times = pictureTimes(joined_);
  ASSERT_EQ(times.size(), 125);
  EXPECT_NEAR(times[50] - times[0], 5, 0.1);  // the first sound lies 23 ms before the pictures
}

TEST_F(JoinTest, TheWorkerHonoursGapsWhenItEncodes) {
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      work(output, {{fixture("numbered25.mp4"), 0, 1}, {fixture("numbered60.mp4"), 6, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("encoding anew"));
  const auto shown = shownPictures(output);
  ASSERT_EQ(shown.size(), 275);
  EXPECT_EQ(shown[124].number, 124);
  EXPECT_EQ(shown[137].number, 0);  // black
  EXPECT_LE(shown[150].number, 1);
  EXPECT_NEAR(shown[200].number, 121, 2);  // 2 s into the second, which counts 60 a second
  const auto ticks = tickTimes(output);
  ASSERT_GE(ticks.size(), 8);
  EXPECT_NEAR(ticks.back(), 10, 0.05);
}

TEST_F(JoinTest, TheWorkerAppliesRates) {
  const auto output = folder_ / "out.mp4";
  const RunResult result = work(output, {{fixture("numbered25.mp4"), 0, 2}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("2 times its speed"));
  const auto numbers = shownNumbers(output);
  EXPECT_NEAR(static_cast<double>(numbers.size()), 62, 2);
  for (size_t i = 1; i < 60; ++i) EXPECT_NEAR(numbers[i], 2.0 * static_cast<double>(i), 1.01) << i;
  EXPECT_NEAR(static_cast<double>(sampleCount(output)) / 44100, 2.5, 0.1);
}

TEST_F(JoinTest, TheWorkerLetsTheLaterInputTakeOver) {
  const auto clip = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  const RunResult result = work(output, {{clip, 0, 1}, {clip, 3, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("before the end"));
  const auto numbers = shownNumbers(output);
  ASSERT_EQ(numbers.size(), 200);
  EXPECT_EQ(numbers[74], 74);
  EXPECT_EQ(numbers[75], 0);
}

TEST_F(JoinTest, TheWorkersStatusTellsItsFailures) {
  EXPECT_EQ(run({worker()}).status, 2);
  EXPECT_EQ(run({worker(), "other", "x"}).status, 2);
  EXPECT_EQ(run({worker(), "joiner", (folder_ / "absent").string()}).status, 1);
  const auto output = folder_ / "out.mp4";
  EXPECT_EQ(work(output, {}).status, 1);
  const RunResult result = work(output, {{folder_ / "absent.mp4", 0, 1}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("absent.mp4"));
  EXPECT_FALSE(fs::exists(output));
}

}  // namespace
}  // namespace kestrel::test
