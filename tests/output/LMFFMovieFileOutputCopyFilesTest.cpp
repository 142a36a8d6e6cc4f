#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

void expectSamePictures(const std::filesystem::path& from, const std::filesystem::path& to) {
  const Error error = copyFile(from, to);
  EXPECT_FALSE(error) << to << ": " << error.message;
  const std::vector<std::string> expected = pictureSums(from);
  EXPECT_FALSE(expected.empty()) << from;
  EXPECT_EQ(pictureSums(to), expected) << to;
}

TEST(LMFFMovieFileOutputCopyFiles, PicturesSurviveEveryContainer) {
  const TempDir dir;
  for (const auto& [from, to] : {std::pair{"av25.mp4", "a.mkv"},
                                 {"av25.mp4", "a.mov"},
                                 {"av25.mp4", "a.ts"},
                                 {"av25.mp4", "a.flv"},
                                 {"av25.ts", "a.mp4"},
                                 {"av25.ts", "a.mkv"},
                                 {"av25.ts", "a.ts"},
                                 {"av-tracks.mkv", "b.mov"},
                                 {"av-tracks.mkv", "b.mp4"},
                                 {"mjpeg.avi", "c.mov"},
                                 {"mjpeg.avi", "c.mkv"},
                                 {"mjpeg.avi", "c.avi"},
                                 {"av30000-1001.mp4", "d.mkv"}}) {
    expectSamePictures(fixture(from), dir / to);
  }
}

// The same bytes, where both containers write a packet in the same form.
TEST(LMFFMovieFileOutputCopyFiles, PacketsAreCopiedByteForByte) {
  const TempDir dir;
  for (const auto& [from, to] :
       {std::pair{"av25.mp4", "a.mkv"}, {"av-tracks.mkv", "b.mp4"}, {"mjpeg.avi", "c.mov"}}) {
    ASSERT_FALSE(copyFile(fixture(from), dir / to));
    EXPECT_EQ(packetSums(dir / to, "v"), packetSums(fixture(from), "v")) << to;
  }
}

TEST(LMFFMovieFileOutputCopyFiles, SoundIsCopiedByteForByte) {
  const TempDir dir;
  ASSERT_FALSE(copyFile(fixture("mjpeg.avi"), dir / "a.mov"));
  EXPECT_EQ(decodedSound(dir / "a.mov"), decodedSound(fixture("mjpeg.avi")));
}

// What begins each unit of H.264 differs: its length in MP4, a start code in AVI and TS.
TEST(LMFFMovieFileOutputCopyFiles, UnitsOfH264GetStartCodesInAvi) {
  const TempDir dir;
  expectSamePictures(fixture("av25.mp4"), dir / "a.avi");
  EXPECT_EQ(packetSums(dir / "a.avi", "v"),
            packetSums(fixture("av25.mp4"), "v", "h264_mp4toannexb"));
}

TEST(LMFFMovieFileOutputCopyFiles, TimesSurviveTheContainer) {
  const TempDir dir;
  ASSERT_FALSE(copyFile(fixture("av25.mp4"), dir / "a.mp4"));
  const auto before = packetsOf(fixture("av25.mp4"), "v");
  const auto after = packetsOf(dir / "a.mp4", "v");
  EXPECT_EQ(fieldOf(after, "pts"), fieldOf(before, "pts"));
  EXPECT_EQ(fieldOf(after, "duration"), fieldOf(before, "duration"));
  EXPECT_NEAR(lengthOf(dir / "a.mp4"), lengthOf(fixture("av25.mp4")), 0.04);
}

TEST(LMFFMovieFileOutputCopyFiles, HevcFitsWhereStartCodesAreWanted) {
  const TempDir dir;
  const auto original = dir / "original.mp4";
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_HEVC));
  start(output, original, true, false);
  writePictures(output, 20);
  output.stopOutput();
  for (const char* name : {"a.ts", "a.mkv", "a.mov"}) expectSamePictures(original, dir / name);
  expectSamePictures(dir / "a.ts", dir / "back.mp4");
}

// AVI has no presentation times, so most of the packets come without one.
void expectRisingTimes(const std::filesystem::path& file) {
  const nlohmann::json probed = ffprobeJson(file, {"-show_frames", "-select_streams", "v:0"});
  int64_t last = INT64_MIN;
  for (const nlohmann::json& frame : probed["frames"]) {
    ASSERT_TRUE(frame.contains("pts")) << file;
    EXPECT_GT(frame["pts"].get<int64_t>(), last) << file;
    last = frame["pts"].get<int64_t>();
  }
}

TEST(LMFFMovieFileOutputCopyFiles, BPicturesFromAviGetTheirTimes) {
  const TempDir dir;
  const auto original = fixture("mpeg4-bframes.avi");
  for (const char* name : {"a.mkv", "a.mp4", "a.mov", "a.avi"}) {
    expectSamePictures(original, dir / name);
    EXPECT_EQ(packetsOf(dir / name, "v").size(), packetsOf(original, "v").size()) << name;
  }
  for (const char* name : {"a.mkv", "a.mp4", "a.mov"}) expectRisingTimes(dir / name);
}

// From the second picture on they follow each other by one frame.
TEST(LMFFMovieFileOutputCopyFiles, TimesOfBPicturesAreOneFrameApart) {
  const TempDir dir;
  ASSERT_FALSE(copyFile(fixture("mpeg4-bframes.avi"), dir / "a.mp4"));
  std::vector<double> times;
  for (const auto& packet : packetsOf(dir / "a.mp4", "v")) {
    times.push_back(number(packet["pts_time"]));
  }
  std::sort(times.begin(), times.end());
  ASSERT_EQ(times.size(), 50u);
  for (size_t i = 2; i < times.size(); i++) EXPECT_NEAR(times[i] - times[i - 1], 0.04, 0.001);
}

TEST(LMFFMovieFileOutputCopyFiles, BPicturesOfH264FromAviGetTheirTimes) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_H264));
  output.setVideoOptions({{"bf", "3"}, {"g", "15"}, {"x264-params", "b-adapt=0:b-pyramid=normal"}});
  start(output, dir / "original.mkv", true, false);
  writePictures(output, 48);
  output.stopOutput();
  expectSamePictures(dir / "original.mkv", dir / "a.avi");
  for (const char* name : {"a.mkv", "a.mp4"}) {
    expectSamePictures(dir / "a.avi", dir / name);
    expectRisingTimes(dir / name);
  }
}

TEST(LMFFMovieFileOutputCopyFiles, PackedBPicturesAreUnpackedOutsideAvi) {
  KESTREL_NEED_MEDIA("packed-bframes.avi");
  const TempDir dir;
  const auto original = mediaFile("packed-bframes.avi");
  for (const char* name : {"a.mkv", "a.mp4", "a.avi"}) {
    expectSamePictures(original, dir / name);
    EXPECT_EQ(packetsOf(dir / name, "v").size(), packetsOf(original, "v").size()) << name;
  }
  for (const char* name : {"a.mkv", "a.mp4"}) expectRisingTimes(dir / name);
}

TEST(LMFFMovieFileOutputCopyFiles, RotationIsCopied) {
  const TempDir dir;
  const auto original = fixture("av-rotated.mp4");
  const auto rotation = [](const std::filesystem::path& file) {
    return streamOf(file, "v")["side_data_list"][0]["rotation"];
  };
  for (const char* name : {"a.mp4", "a.mov"}) {
    ASSERT_FALSE(copyFile(original, dir / name));
    EXPECT_EQ(rotation(dir / name), rotation(original)) << name;
  }
}

TEST(LMFFMovieFileOutputCopyFiles, VideoIsCopiedBesideSoundThatIsEncoded) {
  const TempDir dir;
  PacketReader reader(fixture("video-only.mp4"));
  LMFFMovieFileOutput output;
  output.setPath((dir / "a.mp4").string());
  output.setMovieFormat(smallFormat(0, AV_CODEC_ID_AAC));
  output.copyOutputStream(reader.video());
  output.openAudio();
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  while (const auto item = reader.next()) output.writeVideoPacket(item);
  writeTone(output, 2 * 44100);
  output.finishAudio();
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(pictureSums(dir / "a.mp4"), pictureSums(fixture("video-only.mp4")));
  EXPECT_NEAR(number(streamOf(dir / "a.mp4", "a")["duration"]), 2, 0.001);
}

/// Copies a clip's pictures into a transport stream, those for which `isDamaged` answers true with
/// a first unit that claims to be longer than its packet.
template <typename Test>
void copyDamaged(LMFFMovieFileOutput& output, const std::filesystem::path& to, Test isDamaged) {
  PacketReader reader(fixture("video-only.mp4"));
  output.setPath(to.string());
  output.copyOutputStream(reader.video());
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  for (int i = 0; const auto item = reader.next(); ++i) {
    if (isDamaged(i)) {
      ASSERT_GE(av_packet_make_writable(item->getPacket()), 0);
      item->getPacket()->data[0] = 0x7F;
    }
    output.writeVideoPacket(item);
  }
  output.stopOutput();
}

TEST(LMFFMovieFileOutputCopyFiles, PacketThatCannotBeRewrittenIsLostAlone) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  copyDamaged(output, dir / "a.ts", [](int i) { return i == 7 || i == 20; });
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(output.refusedPackets(), 2);
  EXPECT_EQ(packetsOf(dir / "a.ts", "v").size(),
            packetsOf(fixture("video-only.mp4"), "v").size() - 2);
}

TEST(LMFFMovieFileOutputCopyFiles, SoundWhoseHeaderIsDamagedIsLostAlone) {
  const TempDir dir;
  for (const char* name : {"a.mp4", "a.mkv", "a.flv"}) {
    SCOPED_TRACE(name);
    PacketReader reader(fixture("av25.ts"));
    LMFFMovieFileOutput output;
    output.setPath((dir / name).string());
    output.copyOutputStream(reader.audio());
    ASSERT_TRUE(output.startOutput()) << output.lastError().message;
    int packets = 0;
    while (const auto item = reader.next()) {
      AVPacket* packet = item->getPacket();
      if (packet->stream_index != reader.audio()->index) continue;
      ++packets;
      ASSERT_GE(av_packet_make_writable(packet), 0);
      if (packets == 1 || packets == 20) packet->data[0] = 0x12;  // no header begins so
      output.writeAudioPacket(item);
    }
    output.stopOutput();
    EXPECT_FALSE(output.lastError()) << output.lastError().message;
    EXPECT_EQ(output.refusedPackets(), 2);
    EXPECT_EQ(static_cast<int>(packetsOf(dir / name, "a").size()), packets - 2);
  }
}

TEST(LMFFMovieFileOutputCopyFiles, StreamOfWhichNothingCanBeRewrittenIsAFailure) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  copyDamaged(output, dir / "a.ts", [](int) { return true; });
  EXPECT_TRUE(output.lastError());
  EXPECT_EQ(output.refusedPackets(),
            static_cast<int64_t>(packetsOf(fixture("video-only.mp4"), "v").size()));
}

}  // namespace
}  // namespace kestrel::test
