#include <gtest/gtest.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/convert/Player.h>

#include <stdexcept>

#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

constexpr Size kSize{64, 36};

/// How often the host is asked to draw when the picture of `time` is.
int drawnAt(Player& player, int64_t time) {
  int drawn = 0;
  player.seek(time);
  player.drawPicture(kSize, [&](const std::shared_ptr<const Image>&) { ++drawn; });
  player.movie().flushOperation();
  return drawn;
}

TEST(PlayerDraw, AHostThatThrowsGetsTheNextPicture) {
  Player player({.input = fixture("av25.mp4").string(), .withPictures = true});
  ASSERT_EQ(drawnAt(player, 0), 1);
  player.seek(300000);
  bool thrown = false;
  player.drawPicture(kSize, [&](const std::shared_ptr<const Image>&) {
    thrown = true;
    throw std::runtime_error("no room to draw");
  });
  player.movie().flushOperation();
  ASSERT_TRUE(thrown);
  EXPECT_EQ(drawnAt(player, 500000), 1);
}

TEST(PlayerDraw, PicturesThatNobodyAskedForHaveNoShape) {
  const std::string input = fixture("av25.mp4").string();
  Player silent({.input = input});
  EXPECT_EQ(silent.displayAspect(), 0);
  EXPECT_EQ(drawnAt(silent, 0), 0);
  EXPECT_NEAR(Player({.input = input, .withPictures = true}).displayAspect(), 16.0 / 9, 0.01);
}

}  // namespace
}  // namespace kestrel::test
