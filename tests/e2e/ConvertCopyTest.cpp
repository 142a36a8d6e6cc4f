#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::SizeIs;

const Arguments kCopyBoth{"--video-codec", "copy", "--audio-codec", "copy"};

/// The payloads of a file's AAC packets without the headers that some containers put before them.
std::vector<std::string> aacPayloads(const std::filesystem::path& file, const TempDir& folder) {
  const auto bare = folder / ("bare-" + file.filename().string() + ".mkv");
  ffmpeg({"-i", file.string(), "-map", "0:a:0", "-c", "copy", "-bsf:a", "aac_adtstoasc",
          bare.string()});
  return packetHashes(bare, "a");
}

size_t packetCount(const std::filesystem::path& file, const std::string& kind) {
  return packetHashes(file, kind).size();
}

struct CopyCase {
  std::string source;
  std::string target;    // extension
  bool keepsVideoBytes;  // both containers want the same form of the bitstream
};

void PrintTo(const CopyCase& copied, std::ostream* stream) {
  *stream << copied.source << " to " << copied.target;
}

/// A copy, and when its pictures are shown.
struct Copy {
  explicit Copy(const CopyCase& wanted) : path(folder / ("out." + wanted.target)) {
    isMade = converts(fixture(wanted.source), path, kCopyBoth);
    if (isMade) times = pictureTimes(path);
  }

  TempDir folder;
  std::filesystem::path path;
  testing::AssertionResult isMade = testing::AssertionFailure();
  std::vector<double> times;
};

/// Every test looks at the same copies, which are made once.
class ConvertCopy : public testing::TestWithParam<CopyCase> {
 protected:
  void SetUp() override {
    source_ = fixture(GetParam().source);
    auto& copy = copies()[testing::PrintToString(GetParam())];
    if (!copy) copy = std::make_unique<Copy>(GetParam());
    ASSERT_TRUE(copy->isMade);
    output_ = copy->path;
    times_ = copy->times;
    ASSERT_THAT(times_, SizeIs(125));
  }

  static void TearDownTestSuite() { copies().clear(); }

  static std::map<std::string, std::unique_ptr<Copy>>& copies() {
    static std::map<std::string, std::unique_ptr<Copy>> made;
    return made;
  }

  TempDir folder_;
  std::filesystem::path source_;
  std::filesystem::path output_;
  std::vector<double> times_;
};

TEST_P(ConvertCopy, EveryVideoPacketArrivesOnce) {
  EXPECT_EQ(packetCount(output_, "v"), packetCount(source_, "v"));
  if (GetParam().keepsVideoBytes) {
    EXPECT_EQ(packetHashes(output_, "v"), packetHashes(source_, "v"));
  }
}

TEST_P(ConvertCopy, DecodesToTheSamePictures) {
  EXPECT_TRUE(pictureBytes(output_, "format=yuv420p") == pictureBytes(source_, "format=yuv420p"));
  EXPECT_EQ(shownNumbers(output_), countingFrom(0, 125));
}

TEST_P(ConvertCopy, EverySoundPacketArrivesOnceByteForByte) {
  EXPECT_EQ(aacPayloads(output_, folder_), aacPayloads(source_, folder_));
}

TEST_P(ConvertCopy, BeginsAtZeroAndLastsAsLong) {
  // A transport stream's clock starts 1.4 s before the first picture. Where a container has no
  // times before 0, B-frames cost the time of two pictures first.
  const double begin = GetParam().target == "ts" ? 1.4 : 0;
  EXPECT_GE(times_.front(), begin);
  EXPECT_LE(times_.front(), begin + 0.081);
  EXPECT_NEAR(times_.back() - times_.front(), 124 / 25.0, 0.041);
}

TEST_P(ConvertCopy, PicturesFollowOneAnotherEvenly) {
  for (size_t i = 3; i + 1 < times_.size(); ++i)
    EXPECT_NEAR(times_[i + 1] - times_[i], 0.04, 0.0021) << "after picture " << i;
}

TEST_P(ConvertCopy, KeepsSync) {
  const auto ticks = tickTimes(output_);
  ASSERT_EQ(ticks.size(), tickTimes(source_).size());
  // The last tick is heard at 4 s, when picture 100 is shown, the others each a second before.
  const size_t first = 5 - ticks.size();
  for (size_t i = 0; i < ticks.size(); ++i)
    EXPECT_NEAR(ticks[i], times_.at(25 * (first + i)), 0.04) << "tick " << first + i;
}

INSTANTIATE_TEST_SUITE_P(
    , ConvertCopy,
    testing::Values(
        CopyCase{"numbered25.mp4", "mp4", true}, CopyCase{"numbered25.mp4", "mkv", true},
        CopyCase{"numbered25.mp4", "mov", true}, CopyCase{"numbered25.mp4", "avi", false},
        CopyCase{"numbered25.mp4", "ts", false}, CopyCase{"numbered25-aac.mkv", "mp4", true},
        CopyCase{"numbered25-aac.mkv", "mkv", true}, CopyCase{"numbered25-aac.mkv", "mov", true},
        CopyCase{"numbered25-aac.mkv", "avi", false}, CopyCase{"numbered25-aac.mkv", "ts", false},
        CopyCase{"numbered25.ts", "mp4", false}, CopyCase{"numbered25.ts", "ts", true}),
    [](const auto& tested) {
      std::string name = tested.param.source + "_to_" + tested.param.target;
      std::ranges::replace_if(
          name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
      return name;
    });

class ConvertCopyOne : public testing::Test {
 protected:
  TempDir folder_;
};

TEST_F(ConvertCopyOne, CopiedPicturesBesideEncodedSound) {
  const auto source = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--video-codec", "copy", "--audio-codec", "mp3"}));
  EXPECT_EQ(packetHashes(output, "v"), packetHashes(source, "v"));
  EXPECT_EQ(streamOf(output, "audio")["codec_name"], "mp3");
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 0, 5)}));
}

TEST_F(ConvertCopyOne, EncodedPicturesBesideCopiedSound) {
  const auto source = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--audio-codec", "copy"}));
  EXPECT_EQ(packetHashes(output, "a"), packetHashes(source, "a"));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 0, 5)}));
}

TEST_F(ConvertCopyOne, SoundAloneOutOfAMovie) {
  const auto source = fixture("numbered25.mp4");
  const auto output = folder_ / "out.m4a";
  ASSERT_TRUE(converts(source, output, {"--video-codec", "none", "--audio-codec", "copy"}));
  EXPECT_EQ(packetHashes(output, "a"), packetHashes(source, "a"));
  EXPECT_THAT(ffprobeJson(output)["streams"], SizeIs(1));
}

TEST_F(ConvertCopyOne, PicturesAloneOutOfAMovie) {
  const auto source = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(source, output, {"--video-codec", "copy", "--audio-codec", "none"}));
  EXPECT_EQ(packetHashes(output, "v"), packetHashes(source, "v"));
  EXPECT_THAT(ffprobeJson(output)["streams"], SizeIs(1));
}

TEST_F(ConvertCopyOne, OneOfSeveralTracks) {
  const auto source = fixture("av-tracks.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(source, output, joined(kCopyBoth, {"--audio-tracks", "1"})));
  const auto second =
      ffmpeg({"-i", source.string(), "-map", "0:a:1", "-c", "copy", "-f", "md5", "-"});
  EXPECT_EQ(ffmpeg({"-i", output.string(), "-map", "0:a:0", "-c", "copy", "-f", "md5", "-"}),
            second);
  EXPECT_EQ(streamOf(output, "audio")["tags"]["language"], "fre");
}

TEST_F(ConvertCopyOne, UncompressedSoundStaysAsItIs) {
  const auto source = fixture("numbered25.mkv");
  for (const char* name : {"out.mkv", "out.mov", "out.avi"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, kCopyBoth));
    EXPECT_EQ(soundHash(output), soundHash(source));
  }
}

TEST_F(ConvertCopyOne, BFramesOutOfAviKeepTheirPictures) {
  const auto source = fixture("mpeg4-bframes.avi");
  for (const char* name : {"out.mp4", "out.mkv", "out.avi"}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(source, output, kCopyBoth));
    EXPECT_EQ(packetCount(output, "v"), packetCount(source, "v"));
    EXPECT_TRUE(pictureBytes(output, "format=yuv420p") == pictureBytes(source, "format=yuv420p"));
  }
}

TEST_F(ConvertCopyOne, SoundThatBeginsLaterStaysLater) {
  const auto source = fixture("numbered-late-audio.mkv");
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(source, output, kCopyBoth));
  EXPECT_EQ(packetHashes(output, "a"), packetHashes(source, "a"));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = {2, 3, 4}}));
}

// MPEG-4 files hide the samples of the encoder's delay by an edit list.
TEST_F(ConvertCopyOne, SamplesThatAreHiddenStayHidden) {
  const auto source = folder_ / "mp3.mp4";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-c:v", "copy", "-c:a", "libmp3lame",
          source.string()});
  const auto heard = samples(source);
  for (const std::string target : {"out.mp4", "out.mov"}) {
    SCOPED_TRACE(target);
    ASSERT_TRUE(converts(source, folder_ / target, kCopyBoth));
    EXPECT_EQ(samples(folder_ / target), heard);
  }
}

// From half a second on, packets lie half as far apart as they last.
TEST_F(ConvertCopyOne, SoundWhosePacketsLieCloseTogetherIsWhole) {
  const auto source = folder_ / "dense.mkv";
  ffmpeg({"-f", "lavfi", "-i", "sine=sample_rate=44100:duration=3", "-c:a", "wmav2", "-bsf:a",
          "setts=ts='min(TS,500+(TS-500)*0.5)'", source.string()});
  const auto output = folder_ / "out.avi";
  ASSERT_EQ(convert(source, output, {"--audio-codec", "copy"}).status, 0);
  EXPECT_EQ(packetHashes(output, "a"), packetHashes(source, "a"));
}

// AAC of a transport stream begins each packet with a header that tells where it ends.
TEST_F(ConvertCopyOne, SoundThatTellsItsFramingGoesIntoWaves) {
  const auto source = folder_ / "framed.aac";
  ffmpeg({"-i", fixture("numbered25.mp4").string(), "-vn", "-c:a", "copy", source.string()});
  // Decoders complain where the demuxer cuts the packets otherwise, and decode all of them.
  const auto heardIn = [](const std::filesystem::path& file) {
    return runPeer({"ffmpeg", "-v", "quiet", "-i", file.string(), "-f", "crc", "-"}).out;
  };
  const std::string heard = heardIn(source);
  ASSERT_THAT(heard, testing::StartsWith("CRC="));
  for (const std::string target : {"out.wav", "out.w64"}) {
    SCOPED_TRACE(target);
    ASSERT_TRUE(converts(source, folder_ / target, {"--audio-codec", "copy"}));
    EXPECT_EQ(heardIn(folder_ / target), heard);
  }
}

TEST_F(ConvertCopyOne, AStartBeginsWithTheNextKeyPicture) {
  // Key pictures lie at 0 s, 2 s and 4 s.
  const auto source = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mkv";
  const RunResult result = convert(source, output, joined(kCopyBoth, {"--start", "1.5"}));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, testing::HasSubstr("the first 0.500 s, up to the key picture"));
  const auto pictures = shownPictures(output);
  ASSERT_EQ(pictures.size(), 75u);
  // The first one is shown at once; all others, and the sound, have their time from the start on.
  EXPECT_EQ(pictures[0].number, 50);
  EXPECT_NEAR(pictures[0].time, 0, 1e-3);
  for (size_t i = 1; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i].number, 50 + static_cast<int>(i));
    EXPECT_NEAR(pictures[i].time, pictures[i].number / 25.0 - 1.5, 0.04);
  }
  const auto ticks = tickTimes(output);
  ASSERT_EQ(ticks.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(ticks[i], static_cast<double>(i) + 0.5, 0.04);
}

TEST_F(ConvertCopyOne, AStartBetweenKeyPicturesIsExactWhereOthersCanBeHidden) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25.mp4"), output, joined(kCopyBoth, {"--start", "1.5"})));
  // Picture 37 is shown until 1.52 s.
  const auto pictures = shownPictures(output);
  ASSERT_EQ(pictures.size(), 88u);
  for (size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i].number, 37 + static_cast<int>(i));
    EXPECT_NEAR(pictures[i].time, std::max(0.0, pictures[i].number / 25.0 - 1.5), 1e-3);
  }
  const auto ticks = tickTimes(output);
  ASSERT_EQ(ticks.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(ticks[i], static_cast<double>(i) + 0.5, 0.01);
}

// numbered25.mp4 has a key picture every two seconds.
TEST(ConvertCopySpan, WithoutAKeyPictureIsRefused) {
  const TempDir folder;
  const RunResult result = convert(fixture("numbered25.mp4"), folder / "out.mkv",
                                   joined(kCopyBoth, {"--start", "2.2", "--duration", "1"}));
  EXPECT_TRUE(endsWithSentence(result, 1, "no key picture within the span"));
  EXPECT_THAT(namesIn(folder.path()), SizeIs(0));
}

}  // namespace
}  // namespace kestrel::test
