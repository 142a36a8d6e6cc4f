#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kBroadcast = "dvb-subtitles.ts";
constexpr const char* kSmall = "scale=180:144:flags=area,format=gray";
constexpr size_t kPictureBytes = 180 * 144;

/// Moments at which the broadcast's subtitles, most of them of two rows in a rectangle each, show
/// for at least a tenth of a second before and after: seconds from the first.
const std::vector<double> kMoments{16.2, 17.2, 18.6, 20.7, 21.4, 22.4, 23.8, 25.2, 27.0, 30.2};

/// The broadcast's subtitles as they come, over pictures of one colour: those of the clip itself
/// were taken out of it.
class ConvertBitmapSubtitles : public testing::Test {
 protected:
  void SetUp() override { KESTREL_NEED_MEDIA(kBroadcast); }

  static void TearDownTestSuite() { shared().reset(); }

  /// Pictures at 25 a second, with a key picture every two seconds.
  static fs::path movie() { return inputs().movie; }

  /// One picture, with sound as long as the subtitles.
  static fs::path still() { return inputs().still; }

  /// Every picture of the movie's first 32 seconds, small, with the subtitles that ffmpeg's own
  /// filter lays over it.
  static const std::string& overlaid() { return inputs().overlaid; }

  fs::path converted(const fs::path& source, const Arguments& options = {}) {
    const auto output = folder_ / "out.mkv";
    EXPECT_TRUE(
        converts(source, output,
                 joined({"--subtitle-track", "0", "--video-option", "qp=1", "--encoder-preset",
                         "ultrafast", "--audio-codec", "none", "--force"},
                        options)));
    return output;
  }

  /// The first 32 seconds of a finished file, small.
  static std::string shown(const fs::path& file) {
    return ffmpeg({"-i", file.string(), "-t", "32", "-vf", kSmall, "-f", "rawvideo", "-"});
  }

  /// The picture of a time in seconds.
  static std::string at(const std::string& pictures, double time) {
    return pictures.substr(static_cast<size_t>(time * 25) * kPictureBytes, kPictureBytes);
  }

  TempDir folder_;

 private:
  /// What all tests read, made once.
  struct Inputs {
    Inputs() {
      ffmpeg({"-f", "lavfi", "-i", "color=0x404870:s=720x576:r=25:d=33", "-i",
              mediaFile(kBroadcast).string(), "-map", "0:v", "-map", "1:s", "-c:v", "mpeg2video",
              "-g", "50", "-q:v", "2", "-c:s", "copy", movie.string()});
      const auto picture = folder / "picture.mkv";
      ffmpeg({"-f", "lavfi", "-i", "color=0x404870:s=720x576:r=25:d=0.04", "-c:v", "mpeg2video",
              "-q:v", "2", picture.string()});
      ffmpeg({"-i", picture.string(), "-i", mediaFile(kBroadcast).string(), "-f", "lavfi", "-i",
              "anullsrc=d=33", "-map", "0:v", "-map", "1:s", "-map", "2:a", "-c", "copy", "-c:a",
              "mp2", still.string()});
      overlaid = ffmpeg({"-i", movie.string(), "-t", "32", "-filter_complex",
                         std::string("[0:v][0:s]overlay,") + kSmall, "-f", "rawvideo", "-"});
    }

    TempDir folder;
    const fs::path movie = folder / "movie.ts";
    const fs::path still = folder / "still.mkv";
    std::string overlaid;
  };

  static std::unique_ptr<Inputs>& shared() {
    static std::unique_ptr<Inputs> inputs;
    return inputs;
  }

  static const Inputs& inputs() {
    if (!shared()) shared() = std::make_unique<Inputs>();
    return *shared();
  }
};

TEST_F(ConvertBitmapSubtitles, OfBroadcastsLieWhereFFmpegLaysThem) {
  const auto source = movie();
  const std::string& expected = overlaid();
  const std::string pictures = shown(converted(source));
  const std::string plain = at(expected, 0);
  ASSERT_EQ(pictures.size(), expected.size());
  for (const double time : kMoments) {
    EXPECT_GT(psnr(at(pictures, time), at(expected, time)), 40) << time;
    EXPECT_LT(psnr(at(pictures, time), plain), 32) << time;  // there is something to see
  }
}

TEST_F(ConvertBitmapSubtitles, OverAStillEachShowsAtItsOwnTime) {
  const std::string& expected = overlaid();
  const std::string pictures = shown(converted(still()));
  ASSERT_GT(pictures.size(), 30 * 25 * kPictureBytes);
  EXPECT_GT(psnr(at(pictures, 5), at(expected, 5)), 40);
  for (const double time : kMoments)
    EXPECT_GT(psnr(at(pictures, time), at(expected, time)), 40) << time;
}

TEST_F(ConvertBitmapSubtitles, ThatBeganBeforeTheStartShowFromTheStart) {
  const auto source = movie();
  const std::string& expected = overlaid();
  for (const auto& input : {source, still()}) {
    for (const double time : {17.2, 21.4, 30.2}) {
      const auto output = converted(input, {"--start", std::to_string(time), "--duration", "0.04"});
      EXPECT_GT(psnr(shown(output), at(expected, time)), 40) << input << ' ' << time;
    }
  }
}

TEST_F(ConvertBitmapSubtitles, OfADiscWithAStillConvertFromAnyStart) {
  KESTREL_NEED_MEDIA("dvd-still-subpictures-ac3.vob");
  // A seek lands within a frame of sound: that is no damage.
  for (const char* start : {"0", "5", "20"})
    EXPECT_TRUE(
        converts(mediaFile("dvd-still-subpictures-ac3.vob"), folder_ / "out.mkv",
                 {"--subtitle-track", "1", "--start", start, "--duration", "0.5", "--force"}));
}

// Its pictures and its sound are promised, and the file has not a packet of them.
TEST_F(ConvertBitmapSubtitles, WithoutThePicturesOfTheirBroadcastSayWhatIsMissing) {
  const auto source = mediaFile(kBroadcast);
  const auto output = folder_ / "out.mkv";
  for (const char* codec : {"h264", "copy"})
    EXPECT_TRUE(endsWithSentence(convert(source, output, {"--video-codec", codec}), 1,
                                 "it promises pictures, and none of them were found"));
  const auto sound = convert(source, output, {"--video-codec", "none", "--audio-codec", "copy"});
  EXPECT_TRUE(endsWithSentence(sound, 1, "has no stream that goes into"));
}

TEST_F(ConvertBitmapSubtitles, ShowInSinglePictures) {
  const auto source = movie();
  const std::string& expected = overlaid();
  for (const auto& input : {source, still()}) {
    for (const double time : {5.0, 18.6, 25.2}) {
      const auto output = folder_ / "out.png";
      const RunResult result =
          run({kestrelBinary(), "thumb", input.string(), output.string(), "--force", "--time",
               std::to_string(time), "--subtitle-track", "0"});
      EXPECT_EQ(result.status, 0) << result.err;
      EXPECT_GT(psnr(shown(output), at(expected, time)), 30) << input << ' ' << time;
    }
  }
}

}  // namespace
}  // namespace kestrel::test
