#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::ElementsAreArray;
using testing::Ge;
using testing::SizeIs;

/// The names of an MPEG-4 file's outermost boxes, in order.
std::vector<std::string> boxNames(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::vector<std::string> names;
  for (std::array<char, 8> head{}; stream.read(head.data(), head.size());) {
    uint32_t size = 0;
    for (size_t i = 0; i < 4; ++i) size = size << 8 | static_cast<uint8_t>(head[i]);
    names.emplace_back(&head[4], 4);
    if (size < head.size()) break;
    stream.seekg(size - head.size(), std::ios::cur);
  }
  return names;
}

class ConvertDefaults : public testing::Test {
 protected:
  TempDir folder_;
};

TEST_F(ConvertDefaults, Mp4HoldsH264HighAndStereoAac) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("av25.mp4"), output));
  const auto probed = ffprobeJson(output);
  const auto video = streamOf(probed, "video");
  EXPECT_EQ(video["codec_name"], "h264");
  EXPECT_EQ(video["profile"], "High");
  EXPECT_EQ(video["pix_fmt"], "yuv420p");
  EXPECT_EQ(video["width"], 320);
  EXPECT_EQ(video["height"], 180);
  const auto audio = streamOf(probed, "audio");
  EXPECT_EQ(audio["codec_name"], "aac");
  EXPECT_EQ(audio["profile"], "LC");
  EXPECT_EQ(audio["channels"], 2);
  EXPECT_THAT(probed["streams"], SizeIs(2));
}

TEST_F(ConvertDefaults, Mp4HasItsIndexBeforeItsMedia) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("av25.mp4"), output));
  const auto boxes = boxNames(output);
  const auto index = std::ranges::find(boxes, "moov");
  const auto media = std::ranges::find(boxes, "mdat");
  ASSERT_NE(index, boxes.end());
  ASSERT_NE(media, boxes.end());
  EXPECT_LT(index, media);
}

TEST_F(ConvertDefaults, PicturesLookLikeTheSourcesAtTheSamePlace) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("av25.mp4"), output));
  const auto before = greyPictures(fixture("av25.mp4"), 320, 180);
  const auto after = greyPictures(output, 320, 180);
  ASSERT_EQ(before.size(), 50u);
  ASSERT_EQ(after.size(), 50u);
  for (size_t k = 0; k < before.size(); ++k) {
    SCOPED_TRACE("picture " + std::to_string(k));
    const double here = psnr(after[k], before[k]);
    EXPECT_GT(here, 30);
    const size_t neighbour = k > 0 ? k - 1 : k + 1;
    EXPECT_GT(here, psnr(after[k], before[neighbour]) + 3);
  }
}

TEST_F(ConvertDefaults, EncodesNothingWhereTheInputHasNoSound) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("video-only.mkv"), output));
  EXPECT_THAT(ffprobeJson(output)["streams"], SizeIs(1));
  EXPECT_THAT(pictureTimes(output), SizeIs(50));
}

TEST_F(ConvertDefaults, SoundAloneMakesAFileOfSoundAlone) {
  for (const char* name : {"out.m4a", "out.mp4"}) {
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(fixture("audio-only.m4a"), output));
    const auto probed = ffprobeJson(output);
    EXPECT_THAT(probed["streams"], SizeIs(1));
    EXPECT_EQ(streamOf(probed, "audio")["codec_name"], "aac");
    EXPECT_NEAR(static_cast<double>(sampleCount(output)), 2 * 44100.0, 1024);
  }
}

// The same encoder at the same quality and effort, driven by ffmpeg, needs as many bytes.
TEST_F(ConvertDefaults, PicturesHaveTheUsualQuality) {
  const auto source = folder_ / "source.mkv";
  ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=640x360:rate=25:duration=4", "-c:v", "ffv1",
          source.string()});
  const auto peer = folder_ / "peer.mp4";
  ffmpeg({"-i", source.string(), "-c:v", "libx264", "-preset", "medium", "-crf", "23", "-pix_fmt",
          "yuv420p", peer.string()});
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output));
  const auto size = [](const std::filesystem::path& file) {
    return static_cast<double>(std::filesystem::file_size(file));
  };
  EXPECT_NEAR(size(output) / size(peer), 1, 0.03);
}

TEST_F(ConvertDefaults, TheTargetsNameChoosesContainerAndCodecs) {
  struct Expectation {
    std::string extension, format, video, audio;
  };
  const std::vector<Expectation> expectations{
      {"mp4", "mov,mp4,m4a,3gp,3g2,mj2", "h264", "aac"},
      {"m4v", "mov,mp4,m4a,3gp,3g2,mj2", "h264", "aac"},
      {"mov", "mov,mp4,m4a,3gp,3g2,mj2", "h264", "aac"},
      {"MP4", "mov,mp4,m4a,3gp,3g2,mj2", "h264", "aac"},
      {"mkv", "matroska,webm", "h264", ""},
      {"webm", "matroska,webm", "vp9", "opus"},
      {"avi", "avi", "mpeg4", "mp3"},
      {"ts", "mpegts", "h264", "aac"},
      {"flv", "flv", "h264", "aac"},
      {"wmv", "asf", "", ""},
      {"mpg", "mpeg", "", "mp2"},
      {"m4a", "mov,mp4,m4a,3gp,3g2,mj2", "", "aac"},
      {"m4r", "mov,mp4,m4a,3gp,3g2,mj2", "", "aac"},
      {"mp3", "mp3", "", "mp3"},
      {"wav", "wav", "", "pcm_s16le"},
      {"flac", "flac", "", "flac"},
      {"ogg", "ogg", "", ""},
      {"opus", "ogg", "", "opus"},
  };
  for (const auto& expected : expectations) {
    SCOPED_TRACE(expected.extension);
    const auto output = folder_ / ("out." + expected.extension);
    EXPECT_TRUE(converts(fixture("numbered25.mp4"), output, {"--duration", "1"}));
    if (!std::filesystem::exists(output)) continue;
    const auto probed = ffprobeJson(output);
    EXPECT_EQ(probed["format"]["format_name"], expected.format);
    const auto video = streamOf(probed, "video");
    const auto audio = streamOf(probed, "audio");
    ASSERT_FALSE(audio.is_null());
    if (!expected.video.empty()) {
      EXPECT_EQ(video["codec_name"], expected.video);
    }
    if (!expected.audio.empty()) {
      EXPECT_EQ(audio["codec_name"], expected.audio);
    }
    EXPECT_NEAR(static_cast<double>(samples(output, 1).size()) /
                    std::stod(audio["sample_rate"].get<std::string>()),
                1, 0.1);
    if (!video.is_null()) {
      EXPECT_EQ(shownNumbers(output), countingFrom(0, 25));
    }
  }
}

TEST_F(ConvertDefaults, PathsNeedNoEscaping) {
  const auto source = folder_ / "50% of a:b - it's ümläut?.mp4";
  const auto output = folder_ / "-out file:%d 'x'.mp4";
  std::filesystem::copy_file(fixture("numbered25.mp4"), source);
  ASSERT_TRUE(converts(source, output));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
}

TEST_F(ConvertDefaults, NamesRelativeToTheWorkingFolder) {
  std::filesystem::copy_file(fixture("numbered25.mp4"), folder_ / "a:b.mp4");
  const RunResult result = convert("a:b.mp4", "c:d.mp4", {}, {.workingDirectory = folder_.path()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(shownNumbers(folder_ / "c:d.mp4"), countingFrom(0, 125));
}

}  // namespace
}  // namespace kestrel::test
