#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/output/MovieOutput.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::ffprobeJson;
using test::fixture;
using test::PacketReader;
using test::packetSums;
using test::smallFormat;
using test::TempDir;

/// Copies all streams of a file into another, as one host would that knows none of them.
void copyAll(const std::filesystem::path& from, const std::filesystem::path& to) {
  PacketReader reader(from);
  LMFFMovieFileOutput output;
  output.setPath(to.string());
  std::vector<AVStream*> copies;
  for (AVStream* stream : reader.streams()) copies.push_back(output.copyOutputStream(stream));
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  while (const auto packet = reader.next())
    output.writeRawPacket(packet, copies[static_cast<size_t>(packet->getPacket()->stream_index)]);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
}

TEST(LMFFMovieFileOutputStreams, EachCopiedStreamKeepsAllItsPackets) {
  const TempDir dir;
  const auto source = fixture("av-tracks.mkv");
  copyAll(source, dir / "a.mkv");
  for (const char* kind : {"v", "a:0", "a:1", "s"})
    EXPECT_EQ(packetSums(dir / "a.mkv", kind), packetSums(source, kind)) << kind;
}

TEST(LMFFMovieFileOutputStreams, CopiedSubtitlesKeepTheirTimes) {
  const TempDir dir;
  const auto source = fixture("av-tracks.mkv");
  copyAll(source, dir / "a.mkv");
  const std::vector<std::string> times{"-show_entries", "packet=pts_time,duration_time",
                                       "-select_streams", "s"};
  EXPECT_EQ(ffprobeJson(dir / "a.mkv", times), ffprobeJson(source, times));
}

class CopiedCover : public testing::TestWithParam<const char*> {};

TEST_P(CopiedCover, IsACoverInTheCopy) {
  const TempDir dir;
  const auto source = fixture("cover.m4a");
  copyAll(source, dir / GetParam());
  const auto streams = ffprobeJson(dir / GetParam())["streams"];
  ASSERT_EQ(streams.size(), 2U);
  EXPECT_EQ(streams[1]["disposition"]["attached_pic"], 1);
  EXPECT_EQ(streams[1]["codec_name"], "mjpeg");
  EXPECT_EQ(packetSums(dir / GetParam(), "v"), packetSums(source, "v"));
}

INSTANTIATE_TEST_SUITE_P(Containers, CopiedCover, testing::Values("a.m4a", "a.mp4", "a.mkv"));

TEST(LMFFMovieFileOutputStreams, TagsAndFlagsAreThoseOfTheStreamNamed) {
  const TempDir dir;
  PacketReader source(fixture("av-tracks.mkv"));
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mkv").string());
  AVStream* const first = output.copyOutputStream(source.streams()[1]);
  AVStream* const second = output.copyOutputStream(source.streams()[2]);
  output.setStreamTags(first, {{"language", "fre"}, {"title", "Kommentar"}});
  output.setStreamDisposition(second, AV_DISPOSITION_DEFAULT | AV_DISPOSITION_FORCED);
  output.setStreamTags(nullptr, {{"language", "eng"}});
  output.setStreamDisposition(nullptr, 0);
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  while (const auto packet = source.next())
    if (packet->getPacket()->stream_index == 2) output.writeRawPacket(packet, second);
  output.stopOutput();
  const auto streams = ffprobeJson(dir / "a.mkv")["streams"];
  EXPECT_EQ(streams[0]["tags"]["language"], "fre");
  EXPECT_EQ(streams[0]["tags"]["title"], "Kommentar");
  EXPECT_EQ(streams[0]["disposition"]["default"], 0);
  EXPECT_EQ(streams[1]["disposition"]["default"], 1);
  EXPECT_EQ(streams[1]["disposition"]["forced"], 1);
}

TEST(LMFFMovieFileOutputStreams, TheEncoderNamedIsTheOneUsed) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setVideoEncoderName("libxvid");
  output.setAudioEncoderName("libmp3lame");
  test::start(output, dir / "a.mkv", true, true);
  EXPECT_STREQ(output.codecContext(output.videoStream())->codec->name, "libxvid");
  EXPECT_STREQ(output.codecContext(output.audioStream())->codec->name, "libmp3lame");
}

TEST(LMFFMovieFileOutputStreams, AnEncoderOfTheWrongKindIsRefused) {
  for (const char* name : {"libmp3lame", "none-of-all"}) {
    const TempDir dir;
    LMFFMovieFileOutput output;
    output.setPath((dir / "a.mkv").string());
    output.setVideoEncoderName(name);
    output.openVideo();
    EXPECT_FALSE(output.isVideoOpen());
    EXPECT_EQ(output.lastError().message,
              std::string("there is no encoder '") + name + "' for this stream");
  }
}

TEST(LMFFMovieFileOutputStreams, PicturesAreEncodedInTheFormatAskedFor) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_H264));
  output.setVideoPixelFormat(AV_PIX_FMT_YUV422P10);
  test::start(output, dir / "a.mkv", true, false);
  test::writePictures(output, 3);
  output.stopOutput();
  EXPECT_EQ(test::streamOf(dir / "a.mkv", "v")["pix_fmt"], "yuv422p10le");
}

}  // namespace
}  // namespace kestrel
