// HDR pictures of real clips in SDR, beside the model.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/platform/image/HdrStills.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"

namespace kestrel::test {
namespace {

struct Clip {
  const char* name;
  const char* time;  // seconds
  HdrLight::Transfer transfer;
};

class HdrClipsTest : public testing::TestWithParam<Clip> {};

TEST_P(HdrClipsTest, TheirPicturesAreThoseOfTheModel) {
  KESTREL_NEED_MEDIA(GetParam().name);
  constexpr int kWidth = 96;
  constexpr int kHeight = 54;
  const RunResult decoded = runPeer(
      {"ffmpeg", "-v", "error", "-noautorotate", "-ss", GetParam().time, "-i",
       mediaFile(GetParam().name).string(), "-frames:v", "1", "-vf",
       "scale=" + std::to_string(kWidth) + ":" + std::to_string(kHeight) + ":flags=neighbor",
       "-pix_fmt", "yuv444p10le", "-f", "rawvideo", "-"});
  ASSERT_EQ(decoded.out.size(), size_t{2} * 3 * kWidth * kHeight) << decoded.err;
  HdrStill still = emptyStill(GetParam().name, {GetParam().transfer}, kWidth, kHeight);
  for (size_t p = 0; p < 3; ++p) {
    for (int row = 0; row < kHeight; ++row)
      std::memcpy(still.planes.at(p, 0, row),
                  decoded.out.data() + 2 * kWidth * (static_cast<ptrdiff_t>(p) * kHeight + row),
                  2 * kWidth);
  }
  const auto [mean, worst] = differenceFromModel(still);
  EXPECT_LE(mean, 1.0);
  EXPECT_LE(worst, 3.0);
  RecordProperty("difference", std::to_string(mean) + " " + std::to_string(worst));
}

INSTANTIATE_TEST_SUITE_P(
    Clips, HdrClipsTest,
    testing::Values(Clip{"phone-hlg-1080p30-hevc10-turned.mov", "0.5", HdrLight::Transfer::kHlg},
                    Clip{"phone-hlg-1080p30-hevc10-turned.mov", "2", HdrLight::Transfer::kHlg},
                    Clip{"hdr10-720p60-prores.mxf", "0", HdrLight::Transfer::kPq}));

}  // namespace
}  // namespace kestrel::test
