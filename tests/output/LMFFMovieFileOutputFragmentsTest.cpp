#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/output/MovieOutput.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int64_t kLength = 400000;  // microseconds: ten pictures

/// What an output has handed out.
struct Taken {
  std::string head;
  std::vector<std::string> fragments;
  std::vector<int64_t> starts, durations;

  FragmentTaker taker() {
    return [this](const Fragment& fragment) {
      const std::string bytes(fragment.bytes.begin(), fragment.bytes.end());
      if (fragment.isHead) {
        head += bytes;
        return true;
      }
      fragments.push_back(bytes);
      starts.push_back(fragment.start);
      durations.push_back(fragment.duration);
      return true;
    };
  }
};

/// How often a word is in some bytes.
int countOf(const std::string& bytes, const std::string& word) {
  int count = 0;
  for (size_t at = bytes.find(word); at != std::string::npos; at = bytes.find(word, at + 1))
    ++count;
  return count;
}

/// Opens an output in fragments, of pictures or of sound.
void open(LMFFMovieFileOutput& output, Taken& taken, int videoCodec, int audioCodec) {
  output.setFormatName("mp4");
  output.setMovieFormat(smallFormat(videoCodec, audioCodec));
  output.setFragments(kLength, taken.taker());
  if (videoCodec) output.openVideo();
  if (audioCodec) output.openAudio();
  EXPECT_TRUE(output.startOutput()) << output.lastError().message;
}

TEST(LMFFMovieFileOutputFragments, OfPicturesBeginWithKeyPictures) {
  const TempDir folder;
  Taken taken;
  LMFFMovieFileOutput output;
  output.setVideoOptions({{"g", "1000"}, {"bf", "2"}});
  open(output, taken, AV_CODEC_ID_H264, 0);
  writePictures(output, 25);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_EQ(taken.starts, (std::vector<int64_t>{0, 400000, 800000}));
  EXPECT_EQ(taken.durations, (std::vector<int64_t>{400000, 400000, 200000}));
  EXPECT_EQ(countOf(taken.head, "ftyp"), 1);
  EXPECT_EQ(countOf(taken.head, "cmfc"), 1);
  EXPECT_EQ(countOf(taken.head, "moov"), 1);
  EXPECT_EQ(countOf(taken.head, "moof"), 0);
  for (size_t i = 0; i < taken.fragments.size(); ++i) {
    EXPECT_EQ(countOf(taken.fragments[i], "moof"), 1);
    // Each can be begun with.
    const auto file = folder / (std::to_string(i) + ".mp4");
    writeBytes(file, taken.head + taken.fragments[i]);
    EXPECT_EQ(pictureSums(file).size(), i == 2 ? 5u : 10u);
    const auto packets = packetsOf(file, "v");
    EXPECT_TRUE(std::string(packets.front()["flags"]).starts_with("K"));
    EXPECT_NEAR(number(packets.front()["pts_time"]), 0.4 * static_cast<double>(i), 1e-3);
  }
}

// Sound has no pictures to wait for: fragments end at the frames, of 1024 samples, nearest to the
// grid. What the encoder brings along lies before 0 and is hidden.
TEST(LMFFMovieFileOutputFragments, OfSoundEndNearTheGrid) {
  const TempDir folder;
  Taken taken;
  LMFFMovieFileOutput output;
  open(output, taken, 0, AV_CODEC_ID_AAC);
  writeTone(output, 44100);
  output.finishAudio();
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  ASSERT_EQ(taken.starts.size(), 3u);
  constexpr int64_t kHalfFrame = 1024 * 1000000LL / 44100 / 2 + 1;
  for (size_t i = 0; i < 3; ++i)
    EXPECT_LE(std::abs(taken.starts[i] - kLength * static_cast<int64_t>(i)), kHalfFrame);
  EXPECT_EQ(taken.starts[0] + taken.durations[0], taken.starts[1]);
  const auto file = folder / "whole.mp4";
  writeBytes(file, taken.head + taken.fragments[0] + taken.fragments[1] + taken.fragments[2]);
  // 44 frames hold the sound; the one before them is the encoder's delay.
  EXPECT_EQ(decodedSound(file).size(), 45u * 1024);
  EXPECT_NEAR(number(packetsOf(file, "a").front()["pts_time"]), -1024.0 / 44100, 1e-5);
}

TEST(LMFFMovieFileOutputFragments, OfCopiesBeginWithTheirOwnKeyPictures) {
  PacketReader reader(fixture("av25.mp4"));  // 50 pictures, a key picture every 25
  Taken taken;
  LMFFMovieFileOutput output;
  output.setFormatName("mp4");
  output.setFragments(kLength, taken.taker());
  output.copyOutputStream(reader.video());
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  while (const auto item = reader.next())
    if (item->getPacket()->stream_index == reader.video()->index) output.writeVideoPacket(item);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  ASSERT_EQ(taken.starts.size(), 2u);
  EXPECT_NEAR(static_cast<double>(taken.starts[1] - taken.starts[0]), 1e6, 1e3);
}

TEST(LMFFMovieFileOutputFragments, AreOfOneStreamOfMpeg4) {
  for (const bool isMatroska : {false, true}) {
    Taken taken;
    LMFFMovieFileOutput output;
    output.setFormatName(isMatroska ? "matroska" : "mp4");
    output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4, AV_CODEC_ID_AAC));
    output.setFragments(kLength, taken.taker());
    output.openVideo();
    if (!isMatroska) output.openAudio();
    EXPECT_FALSE(output.startOutput());
    EXPECT_EQ(output.lastError().message, "only one stream of MPEG-4 is handed out in fragments");
  }
}

TEST(LMFFMovieFileOutputFragments, ThatAreNotTakenEndTheOutput) {
  LMFFMovieFileOutput output;
  output.setFormatName("mp4");
  output.setMovieFormat(smallFormat(AV_CODEC_ID_MPEG4));
  output.setFragments(kLength, [](const Fragment& fragment) { return fragment.isHead; });
  output.openVideo();
  ASSERT_TRUE(output.startOutput());
  writePictures(output, 25);
  output.stopOutput();
  EXPECT_TRUE(output.lastError());
}

}  // namespace
}  // namespace kestrel::test
