#include <kestrel/convert/Compose.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Files of any content: what a text names is decided by names alone.
class PlacementText : public testing::Test {
 protected:
  std::string file(const std::string& name) const {
    const std::string path = folder_ / name;
    std::ofstream(path) << "x";
    return path;
  }

  static std::string refusal(const std::string& text) {
    try {
      parsePlacement(text);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
      return failure.what();
    }
    return {};
  }

  const TempDir folder_;
};

TEST_F(PlacementText, HasATrackAndAPosition) {
  const std::string clip = file("clip.mp4");
  EXPECT_EQ(parsePlacement(clip), (Placement{.path = clip}));
  EXPECT_EQ(parsePlacement(clip + ":2"), (Placement{.path = clip, .track = 2}));
  EXPECT_EQ(parsePlacement(clip + "@1:02.5"), (Placement{.path = clip, .position = 62.5}));
  EXPECT_EQ(parsePlacement(clip + ":1@3"), (Placement{.path = clip, .track = 1, .position = 3}));
}

TEST_F(PlacementText, ThatNamesAFileIsThatFile) {
  for (const char* name : {"a:1", "b@2", "c:1@2"}) {
    const std::string odd = file(name);
    EXPECT_EQ(parsePlacement(odd), (Placement{.path = odd})) << name;
  }
}

TEST_F(PlacementText, MayNameATitleOfADisc) {
  const std::string disc = file("disc.iso");
  EXPECT_EQ(parsePlacement(disc + "#3.2:1@4"),
            (Placement{.path = disc, .track = 1, .position = 4, .title = 3, .angle = 2}));
  EXPECT_EQ(parsePlacement(disc + "#main"), (Placement{.path = disc, .title = kMainTitle}));
}

TEST_F(PlacementText, OfAnythingElseIsRefused) {
  const std::string clip = file("clip.mp4");
  EXPECT_EQ(refusal(clip + ":x"), "'x' is no stream of '" + clip + "': they are numbers from 0");
  EXPECT_EQ(refusal(clip + ":-1"), "'-1' is no stream of '" + clip + "': they are numbers from 0");
  EXPECT_NE(refusal(clip + "@soon"), "");
  EXPECT_EQ(refusal("@3"), "'@3' names no file");
}

}  // namespace
}  // namespace kestrel::test
