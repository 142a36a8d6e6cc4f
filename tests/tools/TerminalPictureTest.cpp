#include "tools/terminal/TerminalPicture.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using kestrel::BitmapImage;
using kestrel::Size;

std::string shown(const std::vector<uint8_t>& pixels, int width, int height) {
  return terminalPicture(*BitmapImage::borrowing(pixels.data(), width, height, width * 4));
}

TEST(TerminalPicture, TwoRowsMakeALineOfHalfBlocks) {
  const std::vector<uint8_t> pixels{255, 0, 0,   255, 0, 255, 0, 255,   // red, green
                                    0,   0, 255, 255, 1, 2,   3, 255};  // blue, nearly black
  EXPECT_EQ(shown(pixels, 2, 2),
            "\n\x1b[38;2;255;0;0m\x1b[48;2;0;0;255m▀"
            "\x1b[38;2;0;255;0m\x1b[48;2;1;2;3m▀\x1b[0m");
}

TEST(TerminalPicture, ColorsAreSaidOnlyWhereTheyChange) {
  const std::vector<uint8_t> pixels(4 * 2 * 4, 9);
  const std::vector<uint8_t> opaque = [&] {
    auto copy = pixels;
    for (size_t i = 3; i < copy.size(); i += 4) copy[i] = 255;
    return copy;
  }();
  EXPECT_EQ(shown(opaque, 4, 2), "\n\x1b[38;2;9;9;9m\x1b[48;2;9;9;9m▀▀▀▀\x1b[0m");
}

TEST(TerminalPicture, TransparentIsBlackAndSoIsARowThatIsMissing) {
  const std::vector<uint8_t> pixels{200, 100, 50, 0};
  EXPECT_EQ(shown(pixels, 1, 1), "\n\x1b[38;2;0;0;0m\x1b[48;2;0;0;0m▀\x1b[0m");
}

TEST(TerminalPicture, FillsTheTerminalWithoutChangingItsShape) {
  // A character is twice as high as wide, and one line is the player's.
  EXPECT_EQ(terminalPictureSize(16.0 / 9, {80, 24}), (Size{78, 44}));
  EXPECT_EQ(terminalPictureSize(16.0 / 9, {80, 100}), (Size{79, 44}));
  EXPECT_EQ(terminalPictureSize(0.5, {80, 24}), (Size{22, 44}));
}

TEST(TerminalPicture, NeedsSomeRoom) {
  EXPECT_EQ(terminalPictureSize(1.5, {80, 2}), Size{});
  EXPECT_EQ(terminalPictureSize(1.5, {1, 24}), Size{});
  EXPECT_EQ(terminalPictureSize(0, {80, 24}), Size{});
  for (int rows = 3; rows < 60; ++rows) {
    for (int columns = 2; columns < 200; columns += 7) {
      const Size size = terminalPictureSize(1.6, {columns, rows});
      EXPECT_GE(size.height, 2);
      EXPECT_LE(size.height, 2 * (rows - 2));
      EXPECT_LT(size.width, columns);
    }
  }
}

}  // namespace
