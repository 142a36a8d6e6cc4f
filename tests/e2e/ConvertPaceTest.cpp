#include <gmock/gmock.h>

#include <algorithm>

#include "tests/e2e/Decoded.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// Pictures that come unevenly, where a container has one rate or there is a limit.
class ConvertPace : public testing::Test {
 protected:
  /// Numbered pictures two by two, 20 ms apart, ten pairs a second.
  fs::path pairs() const {
    const auto file = folder_ / "pairs.mkv";
    ffmpeg({"-f", "lavfi", "-i", "testsrc=s=64x48:r=50:d=2", "-vf", "select='lt(mod(n,5),2)'",
            "-vsync", "vfr", "-c:v", "ffv1", file.string()});
    return file;
  }

  /// The pictures of a file, each as often as it is another than the one before.
  static std::vector<std::string> distinct(const fs::path& file) {
    auto pictures = greyPictures(file, 64, 48);
    const auto end = std::unique(pictures.begin(), pictures.end());
    pictures.erase(end, pictures.end());
    return pictures;
  }

  TempDir folder_;
};

TEST_F(ConvertPace, AContainerOfOneRateShowsEveryPicture) {
  const auto source = pairs();
  const auto target = folder_ / "out.avi";
  ASSERT_TRUE(converts(source, target, {"--video-codec", "ffv1"}));
  EXPECT_EQ(distinct(target), distinct(source));
  EXPECT_EQ(distinct(target).size(), 40U);
}

TEST_F(ConvertPace, PicturesOfARealClipThatTellsAWrongRateAllArrive) {
  KESTREL_NEED_MEDIA("real-rv20.rm");
  const auto source = mediaFile("real-rv20.rm");
  // Its index names a stream that it does not have, of which ffmpeg complains.
  const auto decoded = folder_ / "decoded.mkv";
  runPeer({"ffmpeg", "-v", "quiet", "-nostdin", "-i", source.string(), "-map", "0:v", "-vsync",
           "vfr", "-enc_time_base", "1/1000", "-c:v", "ffv1", decoded.string()});
  const auto target = folder_ / "out.avi";
  const RunResult result =
      run({kestrelBinary(), "convert", source.string(), target.string(), "--video-codec", "ffv1",
           "--deinterlace", "off", "--audio-codec", "none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("avi has one rate, 25 a second, at which none is left out"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(streamOf(target, "video")["r_frame_rate"], "25/1");
  EXPECT_EQ(distinct(target), distinct(decoded));
  EXPECT_EQ(greyPictures(decoded, 64, 48).size(), 144U);
}

TEST_F(ConvertPace, ALimitHoldsForTheFastestPictures) {
  const auto source = pairs();
  const auto target = folder_ / "out.mkv";
  ASSERT_TRUE(converts(source, target, {"--video-codec", "ffv1", "--max-fps", "25"}));
  const auto times = pictureTimes(target);
  ASSERT_GT(times.size(), 20U);
  for (size_t i = 1; i < times.size(); ++i) EXPECT_GE(times[i] - times[i - 1], 0.0385) << i;
  // What comes slowly enough keeps its times.
  ASSERT_TRUE(converts(source, target, {"--video-codec", "ffv1", "--max-fps", "50", "--force"}));
  EXPECT_EQ(pictureTimes(target), pictureTimes(source));
}

}  // namespace
}  // namespace kestrel::test
