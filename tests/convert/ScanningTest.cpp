#include <gtest/gtest.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Scanning.h>

#include <optional>

#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

Scanning scanningOf(const char* name) { return readScanning(fixture(name).string()); }

TEST(Scanning, PicturesOfOneMomentAreProgressive) {
  const Scanning scanning = scanningOf("av25.mp4");
  EXPECT_EQ(scanning.scan, Scan::kProgressive);
  EXPECT_FALSE(scanning.isMarked);
  EXPECT_GT(scanning.pictures, 10);
  EXPECT_EQ(scanning.combed, 0);
}

TEST(Scanning, WovenFieldsAreFoundWithoutMarksAndWhichComesFirst) {
  const Scanning top = scanningOf("woven-top.avi");
  EXPECT_EQ(top.scan, Scan::kInterlaced);
  EXPECT_FALSE(top.isMarked);
  EXPECT_EQ(top.topFieldFirst, true);
  const Scanning bottom = scanningOf("woven-bottom.mkv");
  EXPECT_EQ(bottom.scan, Scan::kInterlaced);
  EXPECT_EQ(bottom.topFieldFirst, false);
}

TEST(Scanning, MarksAreToldOf) {
  const Scanning woven = scanningOf("woven-marked.mpg");
  EXPECT_EQ(woven.scan, Scan::kInterlaced);
  EXPECT_TRUE(woven.isMarked);
  EXPECT_EQ(woven.topFieldFirst, true);
}

TEST(Scanning, MarksAloneMakeNothingInterlaced) {
  const Scanning scanning = scanningOf("progressive-marked.mkv");
  EXPECT_EQ(scanning.scan, Scan::kProgressive);
  EXPECT_TRUE(scanning.isMarked);
}

TEST(Scanning, RepeatedFieldsAreMixed) {
  const Scanning scanning = scanningOf("telecined.mkv");
  EXPECT_EQ(scanning.scan, Scan::kMixed);
  const double share = static_cast<double>(scanning.combed) / scanning.pictures;
  EXPECT_NEAR(share, 0.4, 0.1);
}

TEST(Scanning, SoundAloneHasNone) {
  EXPECT_EQ(scanningOf("pcm-mono-44100-s16.wav").pictures, 0);
  EXPECT_THROW(readScanning("/nowhere/at/all"), Failure);
}

}  // namespace
}  // namespace kestrel::test
