#include <gtest/gtest.h>

#include "tests/e2e/Kestrel.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class ConvertMxfTest : public testing::TestWithParam<const char*> {};

TEST_P(ConvertMxfTest, PicturesAreKeptInTheOrderOfDisplay) {
  const TempDir dir;
  ASSERT_TRUE(converts(fixture(GetParam()), dir / "a.mp4"));
  EXPECT_EQ(shownNumbers(dir / "a.mp4"), countingFrom(0, 125));
  const auto shown = shownPictures(dir / "a.mp4");
  for (const auto& picture : shown) EXPECT_NEAR(picture.time, picture.number / 25.0, 0.02);
}

TEST_P(ConvertMxfTest, CopiedPicturesAreShownInTheirOrder) {
  const TempDir dir;
  ASSERT_TRUE(converts(fixture(GetParam()), dir / "a.mkv", {"--video-codec", "copy"}));
  EXPECT_EQ(shownNumbers(dir / "a.mkv"), countingFrom(0, 125));
}

INSTANTIATE_TEST_SUITE_P(Coding, ConvertMxfTest,
                         testing::Values("numbered25.mxf", "numbered25-interlaced.mxf"));

}  // namespace
}  // namespace kestrel::test
