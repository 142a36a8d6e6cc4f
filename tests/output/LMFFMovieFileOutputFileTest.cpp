#include <kestrel/LMFFMovieFileOutput.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pictures.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::ffprobeJson;
using test::fixture;
using test::meanLumas;
using test::number;
using test::packetItem;
using test::smallFormat;
using test::streamOf;
using test::TempDir;
using test::writePictures;
using test::writeTone;
using testing::HasSubstr;

size_t openFiles() {
  const std::filesystem::directory_iterator list("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(list), end(list)));
}

/// Sets how large a file may become, and what a broken pipe or a file too large do: nothing.
class Limits {
 public:
  Limits() {
    getrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
  }
  ~Limits() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);
  }
  Limits(const Limits&) = delete;
  Limits& operator=(const Limits&) = delete;

  void setFileSize(rlim_t bytes) const {
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }

 private:
  rlimit before_{};
};

TEST(LMFFMovieFileOutputFile, TagsOfFileAndStreamsAreWritten) {
  const TempDir dir;
  for (const char* name : {"a.mkv", "a.mp4"}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_AAC));
    output.setMetadata({{"title", "Früh am Morgen"}, {"artist", "Ω"}});
    output.setVideoMetadata({{"language", "fre"}});
    output.setAudioMetadata({{"language", "ger"}});
    test::start(output, dir / name, true, true);
    writePictures(output, 2);
    writeTone(output, 3528);
    output.finishAudio();
    output.stopOutput();
    const nlohmann::json tags = ffprobeJson(dir / name)["format"]["tags"];
    const std::string isMp4 = name;
    EXPECT_EQ(tags["title"], "Früh am Morgen") << name;
    EXPECT_EQ(tags[isMp4 == "a.mp4" ? "artist" : "ARTIST"], "Ω") << name;
    EXPECT_EQ(streamOf(dir / name, "v")["tags"]["language"], "fre") << name;
    EXPECT_EQ(streamOf(dir / name, "a")["tags"]["language"], "ger") << name;
  }
}

TEST(LMFFMovieFileOutputFile, ChaptersThatAreKnownLateAreWritten) {
  const TempDir dir;
  for (const char* name : {"a.mkv", "a.mp4"}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
    test::start(output, dir / name, true, false);
    writePictures(output, 50);
    output.setChapters({{0, 800000, {{"title", "First"}}}, {800000, 2000000, {}}});
    output.stopOutput();
    const nlohmann::json chapters = ffprobeJson(dir / name)["chapters"];
    ASSERT_EQ(chapters.size(), 2u) << name;
    EXPECT_EQ(chapters[0]["tags"]["title"], "First") << name;
    EXPECT_NEAR(number(chapters[1]["start_time"]), 0.8, 0.001) << name;
  }
}

TEST(LMFFMovieFileOutputFile, ChaptersAreWritten) {
  const TempDir dir;
  for (const char* name : {"a.mkv", "a.mp4"}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
    output.setChapters({{0, 800000, {{"title", "First"}}}, {800000, 2000000, {{"title", "Then"}}}});
    test::start(output, dir / name, true, false);
    writePictures(output, 50);
    output.stopOutput();
    const nlohmann::json chapters = ffprobeJson(dir / name)["chapters"];
    ASSERT_EQ(chapters.size(), 2u) << name;
    EXPECT_EQ(chapters[0]["tags"]["title"], "First") << name;
    EXPECT_EQ(chapters[1]["tags"]["title"], "Then") << name;
    EXPECT_NEAR(number(chapters[1]["start_time"]), 0.8, 0.001) << name;
    EXPECT_NEAR(number(chapters[1]["end_time"]), 2, 0.001) << name;
  }
}

TEST(LMFFMovieFileOutputFile, IndexMayBePutFirst) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setMuxerOptions({{"movflags", "+faststart"}});
  test::start(output, dir / "a.mp4", true, false);
  writePictures(output, 30);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  std::ifstream file(dir / "a.mp4", std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
  EXPECT_EQ(meanLumas(dir / "a.mp4").size(), 30u);
}

TEST(LMFFMovieFileOutputFile, StoppedOutputStaysOpenInNameOnly) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_MP2));
  test::start(output, dir / "a.mkv", true, true);
  writePictures(output, 3);
  output.stopOutput();
  EXPECT_TRUE(output.isMovieOpen());
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_FALSE(output.isAudioOpen());
  const auto size = std::filesystem::file_size(dir / "a.mkv");
  output.writeVideoFrame(test::greyPicture(160, 120, 60).get());
  writeTone(output, 5000);
  output.finishAudio();
  output.openVideo();
  EXPECT_FALSE(output.isVideoOpen());
  EXPECT_FALSE(output.startOutput());
  output.stopOutput();
  EXPECT_EQ(std::filesystem::file_size(dir / "a.mkv"), size);
}

TEST(LMFFMovieFileOutputFile, StoppingWhatWasNeverStartedIsSafe) {
  const TempDir dir;
  {
    LMFFMovieFileOutput nothing;
    nothing.stopOutput();
    nothing.stopOutput();
    EXPECT_FALSE(nothing.isMovieOpen());
  }
  LMFFMovieFileOutput opened;
  opened.setPath((dir / "a.mkv").string());
  opened.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_MP2));
  opened.openVideo();
  opened.openAudio();
  opened.stopOutput();
  EXPECT_FALSE(opened.isVideoOpen());
  EXPECT_FALSE(std::filesystem::exists(dir / "a.mkv"));

  LMFFMovieFileOutput refused;
  refused.setPath((dir / "b.mp4").string());
  refused.setMovieFormat(smallFormat(AV_CODEC_ID_VP8));
  refused.openVideo();
  EXPECT_FALSE(refused.startOutput());
  writePictures(refused, 2);
  refused.stopOutput();
  EXPECT_FALSE(refused.isVideoOpen());
}

TEST(LMFFMovieFileOutputFile, ReleaseClosesTheFile) {
  const TempDir dir;
  const size_t before = openFiles();
  {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_H264, AV_CODEC_ID_AAC));
    test::start(output, dir / "a.mkv", true, true);
    writePictures(output, 5);
    writeTone(output, 5000);
    EXPECT_EQ(openFiles(), before + 1);
  }
  EXPECT_EQ(openFiles(), before);
  EXPECT_TRUE(std::filesystem::exists(dir / "a.mkv"));
}

TEST(LMFFMovieFileOutputFile, FileIsClosedWhenTheHeaderIsRefused) {
  const TempDir dir;
  const size_t before = openFiles();
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mp4").string());
  output.setMovieFormat(smallFormat(AV_CODEC_ID_VP8));
  output.openVideo();
  EXPECT_FALSE(output.startOutput());
  output.stopOutput();
  EXPECT_EQ(openFiles(), before);
}

TEST(LMFFMovieFileOutputFile, ExistingFileIsOverwritten) {
  const TempDir dir;
  std::ofstream(dir / "a.mkv") << std::string(1000000, 'x');
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  test::start(output, dir / "a.mkv", true, false);
  writePictures(output, 2);
  output.stopOutput();
  EXPECT_LT(std::filesystem::file_size(dir / "a.mkv"), 100000u);
  EXPECT_EQ(meanLumas(dir / "a.mkv").size(), 2u);
}

TEST(LMFFMovieFileOutputFile, FullDeviceIsReported) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  for (const char* format : {"matroska", "mp4", "mpegts", "avi"}) {
    LMFFMovieFileOutput output;
    output.setFormatName(format);
    output.setPath("/dev/full");
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
    output.openVideo();
    if (output.startOutput()) writePictures(output, 30);
    output.stopOutput();
    EXPECT_EQ(output.lastError().code, AVERROR(ENOSPC)) << format;
    EXPECT_EQ(output.lastError().message, "No space left on device") << format;
  }
}

TEST(LMFFMovieFileOutputFile, FailureInTheMiddleIsReportedAndSurvived) {
  const TempDir dir;
  const Limits limits;
  for (const char* name : {"a.mkv", "a.mp4", "a.avi"}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MJPEG, AV_CODEC_ID_PCM_S16LE));
    if (std::string(name) == "a.mp4") {
      output.setMovieFormat(smallFormat(AV_CODEC_ID_MJPEG, AV_CODEC_ID_AAC));
    }
    test::start(output, dir / name, true, true);
    limits.setFileSize(20000);
    for (int i = 0; i < 100; i++) {
      writePictures(output, 1);
      writeTone(output, 1764, 1764 * i);
    }
    output.finishAudio();
    output.stopOutput();
    limits.setFileSize(RLIM_INFINITY);
    EXPECT_EQ(output.lastError().code, AVERROR(EFBIG)) << name;
    EXPECT_EQ(output.lastError().message, "File too large") << name;
  }
}

TEST(LMFFMovieFileOutputFile, ReaderThatGoesAwayIsReported) {
  const TempDir dir;
  const Limits limits;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  std::jthread reader([&] {
    const int descriptor = open((dir / "pipe").c_str(), O_RDONLY);
    char byte = 0;
    [[maybe_unused]] const ssize_t count = read(descriptor, &byte, 1);
    close(descriptor);
  });
  LMFFMovieFileOutput output;
  output.setFormatName("matroska");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_FFV1));
  test::start(output, dir / "pipe", true, false);
  for (int i = 0; i < 1000 && !output.lastError(); i++) writePictures(output, 1);
  output.stopOutput();
  EXPECT_EQ(output.lastError().code, AVERROR(EPIPE));
  EXPECT_EQ(output.lastError().message, "Broken pipe");
}

TEST(LMFFMovieFileOutputFile, ContainerThatMustSeekRefusesAPipe) {
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  const int reader = open((dir / "pipe").c_str(), O_RDONLY | O_NONBLOCK);
  LMFFMovieFileOutput output;
  output.setPath((dir / "pipe").string());
  output.setFormatName("mp4");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.openVideo();
  EXPECT_FALSE(output.startOutput());
  EXPECT_THAT(output.lastError().message, HasSubstr("seekable"));
  output.stopOutput();
  close(reader);
}

TEST(LMFFMovieFileOutputFile, InterruptEndsTheRewriting) {
  const TempDir dir;
  bool isInterrupted = false;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setMuxerOptions({{"movflags", "+faststart"}});
  output.setInterrupt([&] { return isInterrupted; });
  test::start(output, dir / "a.mp4", true, false);
  writePictures(output, 30);
  EXPECT_FALSE(output.lastError());
  isInterrupted = true;
  output.stopOutput();
  EXPECT_EQ(output.lastError().code, AVERROR_EXIT);
}

TEST(LMFFMovieFileOutputFile, InterruptEndsTheWriting) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setInterrupt([] { return true; });
  test::start(output, dir / "a.mkv", true, false);
  writePictures(output, 30);
  output.stopOutput();
  EXPECT_EQ(output.lastError().code, AVERROR_EXIT);
  EXPECT_EQ(std::filesystem::file_size(dir / "a.mkv"), 0u);
}

TEST(LMFFMovieFileOutputFile, OutputsDoNotDisturbEachOther) {
  const TempDir dir;
  const auto write = [&](const char* name, int codec, int luma) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(codec, AV_CODEC_ID_AAC));
    test::start(output, dir / name, true, true);
    for (int i = 0; i < 40; i++) {
      output.writeVideoFrame(test::greyPicture(160, 120, luma).get());
      writeTone(output, 1764, 1764 * i);
    }
    output.finishAudio();
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << output.lastError().message;
  };
  {
    const std::jthread first(write, "a.mp4", AV_CODEC_ID_H264, 60);
    const std::jthread second(write, "b.mkv", AV_CODEC_ID_MPEG4, 180);
  }
  for (const auto& [name, luma] : {std::pair{"a.mp4", 60.0}, {"b.mkv", 180.0}}) {
    const std::vector<double> lumas = meanLumas(dir / name);
    ASSERT_EQ(lumas.size(), 40u) << name;
    for (const double each : lumas) EXPECT_NEAR(each, luma, 3) << name;
  }
}

// 40 s of sound, and no picture: a queue that waited for the first one would hold them all.
TEST(LMFFMovieFileOutputFile, QueueDoesNotWaitWithoutEndForAStream) {
  const TempDir dir;
  for (const AVCodecID codec : {AV_CODEC_ID_VP8, AV_CODEC_ID_MPEG4}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(codec, AV_CODEC_ID_PCM_S16LE));
    test::start(output, dir / "a.mkv", true, true);
    for (int i = 0; i < 40; i++) writeTone(output, 44100, 44100 * i);
    // Two bytes a sample; up to 10 s and the clusters' own buffer may wait.
    EXPECT_GT(std::filesystem::file_size(dir / "a.mkv"), 24u * 2 * 44100)
        << avcodec_get_name(codec);
    output.stopOutput();
  }
}

TEST(LMFFMovieFileOutputFile, SettingsAreRead) {
  LMFFMovieFileOutput output;
  output.setPath("/tmp/ä.mkv");
  output.setFormatName("matroska");
  output.setVideoOptions({{"a", "1"}});
  output.setAudioOptions({{"b", "2"}});
  output.setMuxerOptions({{"c", "3"}});
  output.setMetadata({{"d", "4"}});
  output.setVideoMetadata({{"e", "5"}});
  output.setAudioMetadata({{"f", "6"}});
  output.setChapters({{1, 2, {{"g", "7"}}}});
  output.setOutputColor({1, 1, 1, 1});
  output.setInterrupt([] { return true; });
  using Entries = LMFFMovieFileOutput::Entries;
  EXPECT_EQ(output.path(), "/tmp/ä.mkv");
  EXPECT_EQ(output.formatName(), "matroska");
  EXPECT_EQ(output.videoOptions(), (Entries{{"a", "1"}}));
  EXPECT_EQ(output.audioOptions(), (Entries{{"b", "2"}}));
  EXPECT_EQ(output.muxerOptions(), (Entries{{"c", "3"}}));
  EXPECT_EQ(output.metadata(), (Entries{{"d", "4"}}));
  EXPECT_EQ(output.videoMetadata(), (Entries{{"e", "5"}}));
  EXPECT_EQ(output.audioMetadata(), (Entries{{"f", "6"}}));
  ASSERT_EQ(output.chapters().size(), 1u);
  EXPECT_EQ(output.chapters()[0].end_us, 2);
  EXPECT_EQ(output.outputColor(), (LMFFVideoColor{1, 1, 1, 1}));
  EXPECT_TRUE(output.interrupt()());
}

}  // namespace
}  // namespace kestrel
