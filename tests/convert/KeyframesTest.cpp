#include <kestrel/convert/Conversion.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::Pair;

/// One for each codec whose groups may be long, and others of some of them; those that there are.
std::vector<std::string> encoders() {
  std::vector<std::string> names{"libx264",    "libx265", "libsvtav1", "libaom-av1", "librav1e",
                                 "libvpx-vp9", "libvpx",  "mpeg4",     "libxvid",    "libtheora"};
  std::erase_if(names,
                [](const auto& name) { return !avcodec_find_encoder_by_name(name.c_str()); });
  return names;
}

/// The longest time from one key picture to the next, or to the end, that ffprobe finds after a
/// conversion with a key picture every 0.4 s.
double longestGroup(const std::string& encoder, const std::string& input) {
  const TempDir folder;
  ConversionSettings settings{.input = fixture(input).string(), .output = folder / "out.mkv"};
  settings.videoCodec = encoder;
  settings.keyframes = 0.4;
  // The fastest: what the presets of all differ in is not where key pictures lie.
  if (encoder == "libaom-av1") settings.encoderPreset = "8";
  if (encoder == "librav1e") settings.encoderPreset = "10";
  EXPECT_TRUE(Conversion(settings).run().isWhole());
  const auto packets = ffprobeJson(settings.output, {"-show_packets", "-select_streams", "v",
                                                     "-show_entries", "packet=pts_time,flags"});
  std::vector<double> keys{2};
  for (const auto& packet : packets["packets"])
    if (packet["flags"].get<std::string>().starts_with("K"))
      keys.push_back(std::stod(packet["pts_time"].get<std::string>()));
  std::ranges::sort(keys);
  EXPECT_LT(keys.front(), 0.05);  // sound may begin before
  double longest = 0;
  for (size_t i = 1; i < keys.size(); ++i) longest = std::max(longest, keys[i] - keys[i - 1]);
  return longest;
}

// Ten seconds of 25 pictures each.
TEST(Keyframes, AreTenSecondsApartAtMostByDefault) {
  for (const std::string& encoder : encoders()) {
    SCOPED_TRACE(encoder);
    ConversionSettings settings{.input = fixture("raw.avi").string(), .output = "a.mkv"};
    settings.videoCodec = encoder;
    EXPECT_THAT(Conversion(settings).plan().videoOptions, Contains(Pair("g", "250")));
  }
}

TEST(Keyframes, ComeAsOftenAsIsAskedForFromEveryEncoder) {
  for (const std::string& encoder : encoders())
    EXPECT_LE(longestGroup(encoder, "av25.mp4"), 0.4001) << encoder;
}

// In the second half a picture lasts 0.12 s, and the first that is 0.4 s from the last key picture
// is the next one. Two encoders can't be told.
TEST(Keyframes, ComeInTimeWherePicturesAreSlow) {
  for (const std::string& encoder : encoders()) {
    if (encoder == "libsvtav1" || encoder == "librav1e") continue;
    EXPECT_LT(longestGroup(encoder, "raw-vfr.mkv"), 0.4 + 0.121) << encoder;
  }
}

}  // namespace
}  // namespace kestrel::test
