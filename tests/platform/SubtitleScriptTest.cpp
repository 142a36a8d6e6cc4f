#include "platform/text/SubtitleScript.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/text/TextLayout.h"

namespace kestrel::test {
namespace {

// Drawings have sides at whole pixels, so that what covers a pixel can be told by hand.

using Rgba = std::array<int, 4>;

constexpr Rgba kNothing{};
constexpr Rgba kRed{255, 0, 0, 255};

const char* const kHeader =
    "[Script Info]\nScriptType: v4.00+\nPlayResX: 200\nPlayResY: 100\n"
    "[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, "
    "OutlineColour, BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, "
    "Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
    "Style: Default,DejaVu Sans,20,&H00FFFFFF,&H00FFFFFF,&H00000000,&H00000000,0,0,0,0,100,100,0,"
    "0,1,0,0,2,0,0,0,1\n"
    "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";

class SubtitleScriptTest : public testing::Test {
 protected:
  /// A line that shows from 1 s to 3 s.
  void add(const std::string& text) { script_.add("0,0,Default,,0,0,0,," + text, 1000, 2000); }

  /// A rectangle with its upper left corner `x`, `y` from that of the script's picture.
  void addRectangle(int x, int y, int width, int height, const std::string& codes) {
    const auto at = [](int value) { return std::to_string(value); };
    add("{\\an7\\pos(" + at(x) + "," + at(y) + ")\\bord0\\shad0" + codes + "\\p1}m 0 0 l " +
        at(width) + " 0 " + at(width) + " " + at(height) + " 0 " + at(height));
  }

  void draw(int64_t time) {
    if (auto parts = script_.partsAt(time, canvas_)) parts_ = std::move(*parts);
  }

  /// What is drawn at a pixel counted from the upper left of the canvas.
  Rgba at(int x, int y) const {
    for (const auto& [bitmap, origin] : parts_) {
      const int column = x - static_cast<int>(origin.x);
      const int row = y - (canvas_.height - static_cast<int>(origin.y) - bitmap->height());
      if (column < 0 || column >= bitmap->width() || row < 0 || row >= bitmap->height()) continue;
      const uint8_t* pixel = bitmap->row(row) + static_cast<ptrdiff_t>(column) * 4;
      return {pixel[0], pixel[1], pixel[2], pixel[3]};
    }
    return kNothing;
  }

  SubtitleScript script_{kHeader};
  SubtitleScript::Canvas canvas_{200, 100, {200, 100}, {}};
  std::vector<SubtitleScript::Part> parts_;
};

TEST_F(SubtitleScriptTest, IsDrawnInItsPlaceAndColour) {
  addRectangle(20, 30, 40, 10, "\\1c&H0000FF&");
  draw(1500);
  for (const auto& [x, y] : {std::pair{20, 30}, {59, 30}, {20, 39}, {59, 39}, {40, 35}})
    EXPECT_EQ(at(x, y), kRed) << x << ' ' << y;
  for (const auto& [x, y] : {std::pair{19, 35}, {60, 35}, {40, 29}, {40, 40}})
    EXPECT_EQ(at(x, y)[3], 0) << x << ' ' << y;
}

TEST_F(SubtitleScriptTest, ShowsFromItsStartToBeforeItsEnd) {
  addRectangle(20, 30, 40, 10, "\\1c&H0000FF&");
  for (const auto& [time, isShown] :
       {std::pair{999, false}, {1000, true}, {2999, true}, {3000, false}}) {
    draw(time);
    EXPECT_EQ(at(40, 35), isShown ? kRed : kNothing) << time;
  }
}

TEST_F(SubtitleScriptTest, GrowsWithTheCanvas) {
  addRectangle(20, 30, 40, 10, "\\1c&H0000FF&");
  canvas_.width = 400;
  canvas_.height = 200;
  draw(1500);
  EXPECT_EQ(at(40, 60), kRed);
  EXPECT_EQ(at(119, 79), kRed);
  EXPECT_EQ(at(39, 60)[3], 0);
  EXPECT_EQ(at(120, 79)[3], 0);
}

TEST_F(SubtitleScriptTest, WhatOverlapsIsOnePartAndCovers) {
  addRectangle(20, 30, 40, 10, "\\1c&H0000FF&");
  addRectangle(50, 30, 40, 10, "\\1c&HFF0000&\\1a&H80&");  // 127 of 255 opaque
  addRectangle(150, 70, 10, 10, "\\1c&HFFFFFF&");
  draw(1500);
  EXPECT_EQ(parts_.size(), 2u);
  EXPECT_EQ(at(49, 35), kRed);
  EXPECT_EQ(at(55, 35), (Rgba{128, 0, 127, 255}));
  EXPECT_EQ(at(70, 35), (Rgba{0, 0, 255, 127}));
  EXPECT_EQ(at(155, 75), (Rgba{255, 255, 255, 255}));
}

TEST_F(SubtitleScriptTest, TellsThatNothingHasChanged) {
  addRectangle(20, 30, 40, 10, "");
  EXPECT_TRUE(script_.partsAt(500, canvas_));
  EXPECT_TRUE(script_.partsAt(1000, canvas_));
  EXPECT_FALSE(script_.partsAt(1500, canvas_));
  script_.clear();
  const auto parts = script_.partsAt(1600, canvas_);
  ASSERT_TRUE(parts);
  EXPECT_TRUE(parts->empty());
}

TEST_F(SubtitleScriptTest, PlainTextLooksAsIsAsked) {
  canvas_.plain = SubtitleScript::Style{
      .font = {.family = "DejaVu Sans", .size = 30}, .color = {0, 1, 0, 1}, .below = 20};
  add("\u2588");  // fills the line from top to bottom
  draw(1500);
  int highest = canvas_.height;
  int lowest = -1;
  for (int y = 0; y < canvas_.height; ++y)
    if (at(100, y) == Rgba{0, 255, 0, 255}) {
      highest = std::min(highest, y);
      lowest = y;
    }
  EXPECT_NEAR(lowest, 79, 2);
  EXPECT_NEAR(lowest - highest, 30 * lineHeight(canvas_.plain->font), 3);
}

TEST(LineHeight, IsThatOfTheFontsFile) {
  // DejaVu Sans: 1901 above and 483 below the line, of 2048.
  EXPECT_NEAR(lineHeight({.family = "DejaVu Sans", .size = 12}), (1901 + 483) / 2048.0, 0.02);
}

}  // namespace
}  // namespace kestrel::test
