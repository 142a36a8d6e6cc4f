#include <gtest/gtest.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Player.h>

#include <fstream>
#include <stdexcept>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr Size kSize{64, 36};
constexpr Size kSubtitledSize{320, 180};

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

/// What is drawn of a picture.
std::string pixelsOf(const std::shared_ptr<const Image>& image) {
  const auto bitmap = ImageContext().bitmapImage(image, {{0, 0}, kSubtitledSize});
  std::string pixels;
  for (int y = 0; bitmap && y < bitmap->height(); ++y)
    pixels.append(reinterpret_cast<const char*>(bitmap->row(y)),
                  static_cast<size_t>(bitmap->width()) * 4);
  return pixels;
}

TEST(PlayerDraw, SubtitlesAreThoseOfThumbnails) {
  const TempDir folder;
  const auto text = folder / "a.srt";
  std::ofstream(text) << "1\n00:00:00,000 --> 00:00:01,000\n{\\an8}Above\n\n"
                         "2\n00:00:01,000 --> 00:00:02,000\nBelow\n\n";
  const std::string input = fixture("av25.mp4").string();
  LookSettings look;
  look.subtitles = text.string();
  Player player({.input = input, .withPictures = true, .look = look});
  Player bare({.input = input, .withPictures = true});
  Pictures pictures({.input = input, .look = look});
  pictures.setOutputSize(kSubtitledSize);
  for (const int64_t time : {500000, 1500000}) {
    std::string drawn;
    std::string plain;
    for (const auto& [from, pixels] : {std::pair{&player, &drawn}, {&bare, &plain}}) {
      from->seek(time);
      from->drawPicture(kSubtitledSize,
                        [out = pixels](const auto& image) { *out = pixelsOf(image); });
      from->movie().flushOperation();
    }
    EXPECT_TRUE(drawn == pixelsOf(pictures.imageAt(time))) << time;
    EXPECT_FALSE(drawn == plain) << time;
  }
}

TEST(PlayerDraw, SubtitlesThatCannotBeReadAreRefusedAtOnce) {
  LookSettings look;
  look.subtitles = "/nowhere.srt";
  EXPECT_THROW(Player({.input = fixture("av25.mp4").string(), .withPictures = true, .look = look}),
               Failure);
}

}  // namespace
}  // namespace kestrel::test
