#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/e2e/Decoded.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using namespace std::chrono_literals;

namespace fs = std::filesystem;

/// Conversions to a bit rate in two passes, and to a size. `temporary` is the only place that they
/// have for what they keep on the way.
class ConvertRate : public testing::Test {
 protected:
  RunOptions place() const {
    RunOptions options;
    options.environment = {"TMPDIR=" + temporary_.path().string()};
    return options;
  }

  testing::AssertionResult makes(const fs::path& output, const Arguments& options) {
    const RunResult result = convert(fixture("noisy25.mkv"), output, options, place());
    if (result.status != 0 || !withoutLosses(result.err).empty())
      return testing::AssertionFailure() << result.status << ": " << result.err;
    return testing::AssertionSuccess();
  }

  /// Bytes of the packets of a stream of pictures.
  static double pictureBytes(const fs::path& file) {
    double bytes = 0;
    const auto probed = ffprobeJson(file, {"-show_packets", "-select_streams", "v"});
    for (const auto& packet : probed["packets"])
      bytes += std::stod(packet["size"].get<std::string>());
    return bytes;
  }

  TempDir folder_;
  TempDir temporary_;
};

TEST_F(ConvertRate, TwoPassesHitTheirRateAndLeaveNothingBehind) {
  struct Row {
    const char* encoder;
    std::string output;
    Arguments options = {};
  };
  for (const Row& row :
       std::vector<Row>{{"libx264", "mp4", {"--encoder-preset", "veryfast"}},
                        {"libx265", "mp4", {"--encoder-preset", "ultrafast"}},
                        {"libvpx-vp9", "webm", {"--encoder-preset", "8", "--size", "160x90"}},
                        {"libvpx", "webm", {"--encoder-preset", "8"}},
                        {"mpeg4", "avi"},
                        {"mpeg2video", "mpg"},
                        {"wmv2", "wmv"},
                        {"libtheora", "ogv"}}) {
    SCOPED_TRACE(row.encoder);
    const auto output = folder_ / (std::string("out.") + row.output);
    ASSERT_TRUE(makes(output, joined({"--video-codec", row.encoder, "--video-bitrate", "800k",
                                      "--passes", "2", "--audio-codec", "none"},
                                     row.options)));
    // Four seconds.
    EXPECT_NEAR(pictureBytes(output) / 400'000, 1, 0.08);
    EXPECT_EQ(pictureTimes(output).size(), 100U);
    EXPECT_THAT(namesIn(temporary_.path()), testing::IsEmpty());
    EXPECT_THAT(namesIn(folder_.path()), testing::SizeIs(1));
    fs::remove(output);
  }
}

// In its second pass the encoder is told of exactly the pictures that it sees: turned, of another
// rate, from a span. It complains, or has too many, where the first saw others.
TEST_F(ConvertRate, BothPassesSeeTheSamePictures) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(
      makes(output, {"--passes", "2", "--video-bitrate", "500k", "--hflip", "--fps", "30",
                     "--start", "0.5", "--duration", "2", "--encoder-preset", "ultrafast"}));
  EXPECT_EQ(pictureTimes(output).size(), 60U);
  EXPECT_EQ(streamOf(output, "audio")["codec_name"], "aac");
  EXPECT_NEAR(pictureBytes(output) / 125'000, 1, 0.1);
}

TEST_F(ConvertRate, ProgressOfBothPassesIsOneThatNeverGoesBack) {
  const RunResult result =
      convert(fixture("noisy25.mkv"), folder_ / "out.mp4",
              {"--passes", "2", "--video-bitrate", "500k", "--progress", "json"}, place());
  ASSERT_EQ(result.status, 0);
  std::istringstream lines(result.err);
  double before = 0;
  for (std::string line; std::getline(lines, line);) {
    const auto progress = nlohmann::json::parse(line);
    if (progress.contains("done")) continue;
    const double time = progress["time"];
    EXPECT_GE(time, before);
    EXPECT_LE(time, progress["duration"].get<double>());
    before = time;
  }
  EXPECT_GT(before, 1);
}

TEST_F(ConvertRate, AFileIsNeverLargerThanItsLimitNorMuchSmaller) {
  struct Row {
    const char* encoder;
    std::string output;
    const char* limit;
    double bytes;
    Arguments options = {};
  };
  for (const Row& row : std::vector<Row>{
           {"libx264", "mp4", "200k", 200'000, {"--encoder-preset", "ultrafast"}},
           {"libx264", "mkv", "1Mi", 1'048'576, {"--encoder-preset", "ultrafast"}},
           {"libx264", "ts", "500K", 500'000, {"--encoder-preset", "ultrafast"}},
           {"libx265", "mp4", "300k", 300'000, {"--encoder-preset", "ultrafast"}},
           {"libvpx-vp9", "webm", "250k", 250'000, {"--encoder-preset", "8", "--size", "160x90"}},
           {"libsvtav1", "mkv", "0.25M", 250'000, {"--encoder-preset", "12"}},
           {"mpeg4", "avi", "700k", 700'000}}) {
    SCOPED_TRACE(std::string(row.encoder) + " " + row.limit);
    const auto output = folder_ / (std::string("out.") + row.output);
    ASSERT_TRUE(makes(
        output, joined({"--video-codec", row.encoder, "--size-limit", row.limit}, row.options)));
    const auto size = static_cast<double>(fs::file_size(output));
    EXPECT_LE(size, row.bytes);
    EXPECT_GE(size, 0.95 * row.bytes);
    EXPECT_EQ(pictureTimes(output).size(), 100U);
    EXPECT_FALSE(streamOf(output, "audio").is_null());
    EXPECT_THAT(namesIn(temporary_.path()), testing::IsEmpty());
    EXPECT_THAT(namesIn(folder_.path()), testing::SizeIs(1));
    fs::remove(output);
  }
}

TEST_F(ConvertRate, CopiedSoundCountsToo) {
  const auto source = folder_ / "source.mkv";
  ffmpeg({"-i", fixture("noisy25.mkv").string(), "-f", "lavfi", "-i", "anoisesrc=d=4:r=48000",
          "-map", "0:v", "-map", "1:a", "-c:v", "copy", "-c:a", "flac", source.string()});
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(
      converts(source, output,
               {"--audio-codec", "copy", "--size-limit", "900k", "--encoder-preset", "ultrafast"}));
  EXPECT_LE(fs::file_size(output), 900'000U);
  EXPECT_GE(fs::file_size(output), 855'000U);
}

TEST_F(ConvertRate, WhereTheBestQualityNeedsLessItSaysSo) {
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      convert(fixture("av25.mp4"), output, {"--size-limit", "1G", "--encoder-preset", "ultrafast"});
  EXPECT_TRUE(endsWithSentence(result, 0, "need no more for the best quality"));
  EXPECT_EQ(pictureTimes(output).size(), 50U);
}

TEST_F(ConvertRate, WhatCannotBeSoSmallIsRefusedAndTheOldTargetStays) {
  const auto output = folder_ / "out.mp4";
  writeBytes(output, "precious");
  for (const auto& [limit, sentence] :
       {std::pair{"10k", "what is no picture"}, {"75k", "are too few"}}) {
    const RunResult result =
        convert(fixture("noisy25.mkv"), output,
                {"--force", "--size-limit", limit, "--video-codec", "mpeg4"}, place());
    EXPECT_TRUE(endsWithSentence(result, 2, sentence));
    EXPECT_EQ(readBytes(output), "precious");
    EXPECT_THAT(namesIn(folder_.path()), testing::SizeIs(1));
    EXPECT_THAT(namesIn(temporary_.path()), testing::IsEmpty());
  }
}

TEST_F(ConvertRate, WhatMakesNoSenseIsRefused) {
  struct Row {
    Arguments options;
    const char* sentence;
  };
  for (const Row& row : std::vector<Row>{
           {{"--passes", "2"}, "give one of them"},
           {{"--passes", "2", "--crf", "20"}, "give one of them"},
           {{"--passes", "3", "--video-bitrate", "1M"}, "1 to 2"},
           {{"--passes", "2", "--video-bitrate", "1M", "--video-codec", "libsvtav1"}, "one pass"},
           {{"--size-limit", "25", "--video-bitrate", "1M"}, "give one of them"},
           {{"--size-limit", "5M", "--quality", "50"}, "give one of them"},
           {{"--size-limit", "0"}, "25M or 700Mi"},
           {{"--size-limit", "5Q"}, "25M or 700Mi"},
           {{"--size-limit", "5i"}, "25M or 700Mi"},
           {{"--size-limit", "5M", "--video-codec", "ffv1"}, "no bit rate"},
           {{"--size-limit", "5M", "--video-codec", "copy"}, "does nothing"}}) {
    SCOPED_TRACE(testing::PrintToString(row.options));
    EXPECT_TRUE(endsWithSentence(convert(fixture("noisy25.mkv"), folder_ / "out.mkv", row.options),
                                 2, row.sentence));
    EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
  }
}

TEST_F(ConvertRate, AnInterruptLeavesNoLogOfThePasses) {
  for (const char* encoder : {"libx264", "libx265"}) {
    RunOptions options = place();
    options.timeLimit = 120s;
    Process process(convertCommand(fixture("numbered25-long.mp4"), folder_ / "out.mkv",
                                   {"--video-codec", encoder, "--size", "1280x720", "--passes", "2",
                                    "--video-bitrate", "1M"}),
                    options);
    const auto isLogging = [&] {
      for (const auto& entry : fs::recursive_directory_iterator(temporary_.path()))
        if (entry.is_regular_file()) return true;
      return false;
    };
    while (!isLogging()) std::this_thread::sleep_for(10ms);
    process.signal(SIGINT);
    EXPECT_TRUE(endsWithSentence(process.wait(), 130, "interrupted"));
    EXPECT_THAT(namesIn(temporary_.path()), testing::IsEmpty());
    EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
  }
}

}  // namespace
}  // namespace kestrel::test
