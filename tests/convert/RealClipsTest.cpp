#include <gtest/gtest.h>
#include <kestrel/convert/Conversion.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/convert/ShownTimes.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Peer.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// The pictures of a file as ffmpeg decodes them, in grey and of 64x36 pixels; `options` before its
/// input.
std::string grey(const std::filesystem::path& file, const std::vector<std::string>& options = {}) {
  std::vector<std::string> arguments{"ffmpeg", "-v", "error", "-nostdin"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  for (const char* argument : {"-i", file.c_str(), "-map", "0:v", "-vsync", "passthrough", "-vf",
                               "scale=64:36:flags=area,format=gray", "-f", "rawvideo", "-"})
    arguments.emplace_back(argument);
  const RunResult result = runPeer(arguments);
  if (result.status != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
  return result.out;
}

double meanDifference(const std::string& a, const std::string& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i)
    sum += std::abs(static_cast<uint8_t>(a[i]) - static_cast<uint8_t>(b[i]));
  return sum / static_cast<double>(a.size());
}

// A camera that was held upside down, and whose pictures come from 80 to 100 ms apart.
TEST(RealClips, ATurnedClipOfUnevenTimesComesOutUprightWithAllItsPictures) {
  KESTREL_NEED_MEDIA("fire-720p-vfr-h264-aac.mp4");
  const auto clip = mediaFile("fire-720p-vfr-h264-aac.mp4");
  const TempDir folder;
  ConversionSettings settings{.input = clip.string(), .output = (folder / "out.mp4").string()};
  settings.width = 320;
  settings.encoderPreset = "veryfast";
  EXPECT_TRUE(Conversion(settings).run().isWhole());

  const auto before = shownTimes(clip);
  const auto after = shownTimes(settings.output);
  ASSERT_EQ(after.size(), 25U);
  ASSERT_EQ(before.size(), after.size());
  for (size_t i = 0; i < after.size(); ++i)
    EXPECT_NEAR(after[i] - after[0], before[i] - before[0], 0.0012) << i;

  const std::string pictures = grey(settings.output, {"-noautorotate"});
  const std::string upright = grey(clip);
  const std::string stored = grey(clip, {"-noautorotate"});
  ASSERT_EQ(pictures.size(), size_t{25} * 64 * 36);
  ASSERT_EQ(upright.size(), pictures.size());
  ASSERT_EQ(stored.size(), pictures.size());
  EXPECT_LT(meanDifference(pictures, upright), 3);
  EXPECT_GT(meanDifference(pictures, stored), 10);
}

// Full chroma of an encoder whose number stands in the first packet alone: without it pictures are
// green. 20 a second, so that the span's first one is the 160th.
TEST(RealClips, ASpanThatBeginsFarBehindTheFirstPacketHasThePicturesOfTheClip) {
  KESTREL_NEED_MEDIA("cockatoo-720p20-h264-mp3.mp4");
  const auto clip = mediaFile("cockatoo-720p20-h264-mp3.mp4");
  const auto sums = pictureSumsOf(clip);
  ASSERT_GT(sums.size(), 163U);
  const std::vector<uint32_t> expected(sums.begin() + 160, sums.begin() + 163);
  const TempDir folder;
  ConversionSettings settings{.input = clip.string(), .output = (folder / "out.mkv").string()};
  settings.start = 8'000'000;
  settings.duration = 150'000;
  settings.videoCodec = "ffv1";
  settings.audio = StreamAction::kNone;
  for (const int count : {1, 2, 16}) {
    const ForcedCpuCount forced(count);
    Conversion(settings).run();
    settings.replaces = true;
    EXPECT_EQ(pictureSumsOf(settings.output), expected) << count << " processors";
  }
}

}  // namespace
}  // namespace kestrel::test
