#include <gtest/gtest.h>
#include <kestrel/AttributedString.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/TextPictures.h"

namespace kestrel {
namespace {

using namespace test;

/// U+2588 fills its whole cell: with it, pixels are known.
constexpr const char* kBlock = "\u2588";

std::vector<int> pixel(const BitmapImage& picture, int x, int y) {
  const uint8_t* at = pixelAt(picture, x, y);
  return {at[0], at[1], at[2], at[3]};
}

AttributedString coloured(const std::string& text, const Color& color,
                          std::vector<TextRun> runs = {}) {
  TextAttributes attributes = monospaced(40);
  attributes.foregroundColor = color;
  return AttributedString(text, attributes, std::move(runs));
}

TEST(AttributedStringDrawingTest, ColourAndAlphaAreNotPremultiplied) {
  const auto picture = pictureOf(coloured(kBlock, {1, 0.5, 0.25, 0.5}));
  ASSERT_TRUE(picture);
  EXPECT_EQ(pixel(*picture, picture->width() / 2, picture->height() / 2),
            (std::vector<int>{255, 128, 64, 128}));
}

TEST(AttributedStringDrawingTest, FaintColoursKeepTheirHue) {
  const auto picture = pictureOf(coloured(kBlock, {0.8, 0.6, 0.2, 0.02}));
  ASSERT_TRUE(picture);
  EXPECT_EQ(pixel(*picture, picture->width() / 2, picture->height() / 2),
            (std::vector<int>{204, 153, 51, 5}));
}

TEST(AttributedStringDrawingTest, SoftEdgesHaveTheTextsColour) {
  const auto picture = pictureOf(coloured("SO&", {1, 0.5, 0.25, 1}));
  ASSERT_TRUE(picture);
  int soft = 0;
  for (int y = 0; y < picture->height(); ++y) {
    for (int x = 0; x < picture->width(); ++x) {
      const uint8_t* at = pixelAt(*picture, x, y);
      if (at[3] == 0) {
        EXPECT_EQ(pixel(*picture, x, y), (std::vector<int>{0, 0, 0, 0}));
        continue;
      }
      soft += at[3] < 255;
      // What can be seen of a component is as fine as a byte.
      EXPECT_NEAR(at[0] * at[3] / 255.0, at[3], 1.01);
      EXPECT_NEAR(at[1] * at[3] / 255.0, at[3] * 0.5, 1.01);
      EXPECT_NEAR(at[2] * at[3] / 255.0, at[3] * 0.25, 1.01);
    }
  }
  EXPECT_GT(soft, 20);
}

TEST(AttributedStringDrawingTest, ComponentsOutOfRangeAreClamped) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto picture = pictureOf(coloured(kBlock, {7, -1, nan, 9}));
  ASSERT_TRUE(picture);
  EXPECT_EQ(pixel(*picture, picture->width() / 2, picture->height() / 2),
            (std::vector<int>{255, 0, 0, 255}));
}

TEST(AttributedStringDrawingTest, TransparentTextIsATransparentPicture) {
  const auto picture = pictureOf(coloured(kBlock, Color::clear()));
  ASSERT_TRUE(picture);
  EXPECT_TRUE(inkOf(*picture).isEmpty());
}

TEST(AttributedStringDrawingTest, ARunHasItsOwnColourAndAlpha) {
  const std::string text = std::string(kBlock) + kBlock;
  const auto picture = pictureOf(coloured(
      text, {0, 1, 0, 0.5}, {{.location = 3, .length = 3, .color = Color{0, 0, 1, 0.75}}}));
  ASSERT_TRUE(picture);
  const int y = picture->height() / 2;
  EXPECT_EQ(pixel(*picture, picture->width() / 4, y), (std::vector<int>{0, 255, 0, 128}));
  EXPECT_EQ(pixel(*picture, picture->width() * 3 / 4, y), (std::vector<int>{0, 0, 255, 191}));
}

TEST(AttributedStringDrawingTest, UnderlineAndStrikethroughAreDrawn) {
  const auto plain = inkOf(*pictureOf(mono("xx", 40)));
  const TextAttributes attributes = monospaced(40);
  const AttributedString under("xx", attributes, {{.length = 2, .underline = true}});
  const AttributedString struck("xx", attributes, {{.length = 2, .strikethrough = true}});
  EXPECT_GT(inkOf(*pictureOf(under)).bottom, plain.bottom);
  EXPECT_GT(inkOf(*pictureOf(struck)).alpha, plain.alpha);
  EXPECT_EQ(inkOf(*pictureOf(struck)).bottom, plain.bottom);
}

TEST(AttributedStringDrawingTest, PictureHasTheSizeRoundedUp) {
  const auto picture = mono("x").bitmapImageWithSize({20.2, 30.7});
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 21);
  EXPECT_EQ(picture->height(), 31);
}

TEST(AttributedStringDrawingTest, NoPictureOfNoSize) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double none : {0.0, -1.0, infinity, nan, 1e9}) {
    EXPECT_FALSE(mono("x").bitmapImageWithSize({none, 10})) << none;
    EXPECT_FALSE(mono("x").bitmapImageWithSize({10, none})) << none;
  }
}

TEST(AttributedStringDrawingTest, LinesBeginAtTheTop) {
  const auto picture = mono("x", 40).bitmapImageWithSize({100, 300});
  ASSERT_TRUE(picture);
  EXPECT_LT(inkOf(*picture).bottom, 47);  // one line is 46.6 pixels high
}

TEST(AttributedStringDrawingTest, RectanglesCountFromTheLowerLeft) {
  BitmapContext context(100, 100, BitmapContext::Format::kRGBA);
  mono(kBlock, 20).drawInRect({{30, 10}, {12, 20}}, context);  // a cell is 12 × 23.3 pixels
  const auto picture = BitmapImage::borrowing(context.data(), 100, 100, context.bytesPerRow());
  const Ink ink = inkOf(*picture);
  EXPECT_EQ(ink.left, 30);
  EXPECT_EQ(ink.right, 42);
  EXPECT_EQ(ink.bottom, 90);
  EXPECT_LT(ink.top, 75);
}

TEST(AttributedStringDrawingTest, LiesOverWhatIsThere) {
  BitmapContext context(60, 60);
  context.fillRect({{0, 0}, {60, 60}}, 0, 0, 1);
  coloured(kBlock, {1, 0, 0, 0.5}).drawInRect({{20, 0}, {24, 60}}, context);
  const auto picture = BitmapImage::borrowing(context.data(), 60, 60, context.bytesPerRow());
  EXPECT_EQ(pixel(*picture, 5, 30), (std::vector<int>{0, 0, 255, 255}));
  const auto mixed = pixel(*picture, 32, 20);
  EXPECT_NEAR(mixed[0], 128, 1);
  EXPECT_NEAR(mixed[2], 127, 1);
  EXPECT_EQ(mixed[3], 255);
}

TEST(AttributedStringDrawingTest, NothingShowsOutsideOfTheRectangle) {
  BitmapContext context(100, 100, BitmapContext::Format::kRGBA);
  mono(std::string(kBlock) + "\n" + kBlock, 60)
      .drawInRect({{40, 40}, {20, 20}}, context, kUsesLineFragmentOrigin);
  const auto picture = BitmapImage::borrowing(context.data(), 100, 100, context.bytesPerRow());
  const Ink ink = inkOf(*picture);
  EXPECT_EQ(ink.left, 40);
  EXPECT_EQ(ink.right, 60);
  EXPECT_GE(ink.top, 40);
  EXPECT_EQ(ink.bottom, 60);
}

TEST(AttributedStringDrawingTest, ARectangleAcrossTheEdgeIsClippedNotMoved) {
  BitmapContext large(100, 100, BitmapContext::Format::kRGBA);
  mono("across", 20).drawInRect({{20, 20}, {80, 40}}, large);
  BitmapContext small(50, 50, BitmapContext::Format::kRGBA);
  mono("across", 20).drawInRect({{-10, -10}, {80, 40}}, small);
  // The small surface is the part of the large one from (30, 30) to (80, 80).
  const auto expected = BitmapImage::borrowing(large.data(), 100, 100, large.bytesPerRow());
  const auto drawn = BitmapImage::borrowing(small.data(), 50, 50, small.bytesPerRow());
  EXPECT_FALSE(inkOf(*drawn).isEmpty());
  EXPECT_EQ(bytesOf(drawn), bytesOf(*expected, {30, 80, 20, 70}));
}

TEST(AttributedStringDrawingTest, ARectangleThatIsNoneDrawsNothing) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  BitmapContext context(20, 20, BitmapContext::Format::kRGBA);
  for (const double bad : {nan, infinity, -infinity}) {
    mono(kBlock).drawInRect({{bad, 0}, {20, 20}}, context);
    mono(kBlock).drawInRect({{0, bad}, {20, 20}}, context);
    mono(kBlock).drawInRect({{0, 0}, {bad, 20}}, context);
    mono(kBlock).drawInRect({{0, 0}, {20, bad}}, context);
  }
  mono(kBlock).drawInRect(Rect::infinite(), context);
  mono(kBlock).drawInRect({{0, 0}, {0, 20}}, context);
  mono(kBlock).drawInRect({{100, 100}, {20, 20}}, context);
  BitmapContext none(0, 0);
  mono(kBlock).drawInRect({{0, 0}, {20, 20}}, none);
  const std::vector<uint8_t> untouched(size_t{20} * 20 * 4, 0);
  EXPECT_EQ(0, std::memcmp(context.data(), untouched.data(), untouched.size()));
}

/// The ink of the second of two lines, of five blocks and of one, drawn 200 pixels wide.
Ink shortLine(TextAlignment alignment) {
  std::string text;
  for (int i = 0; i < 5; ++i) text += kBlock;
  const AttributedString string(text + "\n" + kBlock, monospaced(20, alignment));
  const auto picture = string.bitmapImageWithSize({200, 100});
  Ink ink;
  for (int x = 0; x < 200; ++x) {
    if (pixelAt(*picture, x, 35)[3] == 0) continue;  // the second line runs from 24 to 48
    ink.left = std::min(ink.left, x);
    ink.right = x + 1;
  }
  return ink;
}

TEST(AttributedStringDrawingTest, CentredLinesStandInTheMiddle) {
  const Ink ink = shortLine(TextAlignment::kCenter);
  EXPECT_EQ(ink.centerX(), 100);
  EXPECT_NEAR(ink.left, 94, 1);  // a cell is 12 pixels wide
}

TEST(AttributedStringDrawingTest, LinesStandAtTheSideOfTheirAlignment) {
  EXPECT_EQ(shortLine(TextAlignment::kLeft).left, 0);
  EXPECT_EQ(shortLine(TextAlignment::kRight).right, 200);
  EXPECT_EQ(shortLine(TextAlignment::kNatural).left, 0);
  EXPECT_EQ(shortLine(TextAlignment::kJustified).left, 0);
}

TEST(AttributedStringDrawingTest, LeftAndRightHoldForBothDirections) {
  TextAttributes attributes = systemText("").attributes();
  const auto inkOfHebrew = [&](TextAlignment alignment) {
    attributes.paragraphStyle.alignment = alignment;
    return inkOf(*AttributedString("\u05D0\u05D1", attributes).bitmapImageWithSize({400, 100}));
  };
  EXPECT_LT(inkOfHebrew(TextAlignment::kLeft).right, 100);
  EXPECT_GT(inkOfHebrew(TextAlignment::kRight).left, 300);
  EXPECT_GT(inkOfHebrew(TextAlignment::kNatural).left, 300);
}

TEST(AttributedStringDrawingTest, JustifiedLinesFillTheWidth) {
  const AttributedString text("aaaa bbbb cccc", monospaced(20, TextAlignment::kJustified));
  const auto picture = text.bitmapImageWithSize({150, 100});  // two words of a line take 108
  EXPECT_GT(inkOf(*picture).right, 145);
}

TEST(AttributedStringDrawingTest, TrimmedTextDrawsTheSame) {
  const std::string text = "Two lines,\ncentred";
  EXPECT_EQ(bytesOf(pictureOf(systemText(" \n\t" + text + "\r\n \u3000").trimmed())),
            bytesOf(pictureOf(systemText(text))));
}

TEST(AttributedStringDrawingTest, TheLastVisibleLineEndsInAnEllipsis) {
  // A monospaced line of ten cells holds "aaaa bbbb" and an ellipsis, one of nine lacks a cell.
  const AttributedString text = mono("aaaa bbbb cccc dddd", 20);
  const auto shown = [](const AttributedString& string, double width) {
    return bytesOf(string.bitmapImageWithSize({width, 30}));
  };
  EXPECT_EQ(shown(text, 120), shown(mono("aaaa bbbb\u2026", 20), 120));
  EXPECT_EQ(shown(text, 108), shown(mono("aaaa bbb\u2026", 20), 108));
}

TEST(AttributedStringDrawingTest, AnEllipsisReplacesTheLinesThatFollow) {
  EXPECT_EQ(bytesOf(mono("one\ntwo\nthree", 20).bitmapImageWithSize({200, 50})),
            bytesOf(mono("one\ntwo\u2026", 20).bitmapImageWithSize({200, 50})));
}

TEST(AttributedStringDrawingTest, TheEllipsisNeverCutsACharacterInTwo) {
  // Three cells: two accented letters, each of two code points, and the ellipsis.
  const AttributedString text = mono("e\u0301e\u0301e\u0301e\u0301", 20);
  EXPECT_EQ(bytesOf(text.bitmapImageWithSize({36, 30})),
            bytesOf(mono("e\u0301e\u0301\u2026", 20).bitmapImageWithSize({36, 30})));
}

TEST(AttributedStringDrawingTest, OfARightToLeftTextTheEllipsisIsAtTheLeft) {
  TextAttributes attributes = systemText("").attributes();
  attributes.paragraphStyle.alignment = TextAlignment::kNatural;
  const std::string word = "\u05E9\u05DC\u05D5\u05DD ";
  const AttributedString text(word + word + word + word, attributes);
  const auto picture = text.bitmapImageWithSize({200, 50});
  // The three dots are alone in the leftmost ink, and low.
  const Ink all = inkOf(*picture);
  const Ink leftmost = inkWhere(*picture, [&](const uint8_t* at) {
    return (at - picture->pixels()) % picture->bytesPerRow() / 4 < all.left + 30;
  });
  EXPECT_GT(leftmost.top, 28);
}

TEST(AttributedStringDrawingTest, TruncatingModesPutTheEllipsisWhereTheySay) {
  TextAttributes attributes = monospaced(20);
  const auto shown = [&](LineBreakMode mode) {
    attributes.paragraphStyle.lineBreakMode = mode;
    return bytesOf(AttributedString("abcdefghij", attributes).bitmapImageWithSize({60, 30}));
  };
  const auto plain = [](const char* text) {
    return bytesOf(mono(text, 20).bitmapImageWithSize({60, 30}));
  };
  EXPECT_EQ(shown(LineBreakMode::kByTruncatingTail), plain("abcd\u2026"));
  EXPECT_EQ(shown(LineBreakMode::kByTruncatingHead), plain("\u2026ghij"));
  EXPECT_EQ(shown(LineBreakMode::kByTruncatingMiddle), plain("ab\u2026ij"));
  EXPECT_EQ(shown(LineBreakMode::kByClipping), plain("abcde"));
}

TEST(AttributedStringDrawingTest, ItsOwnRectangleHoldsAllInk) {
  TextAttributes italic = systemText("").attributes();
  italic.font.family = "DejaVu Serif";
  italic.font.italic = true;
  TextAttributes centred = italic;
  centred.paragraphStyle.alignment = TextAlignment::kCenter;
  for (const TextAlignment alignment :
       {TextAlignment::kLeft, TextAlignment::kRight, TextAlignment::kCenter}) {
    italic.paragraphStyle.alignment = alignment;
    for (const char* text : {"jf", "\u1EA4", "\u1EA4f\nj\u0323\u0323f"}) {
      const AttributedString string(text, italic);
      const Size size = string.boundingRectWithSize({1000, 1000}).size;
      BitmapContext context(400, 400, BitmapContext::Format::kRGBA);
      string.drawInRect({{100, 100}, {size.width, size.height}}, context);
      // Between empty lines and centred, the text has room on every side.
      const AttributedString roomy(std::string("\n").append(text).append("\n\n"), centred);
      const auto wide = roomy.bitmapImageWithSize({400, 400});
      const auto own = BitmapImage::borrowing(context.data(), 400, 400, context.bytesPerRow());
      EXPECT_EQ(inkOf(*own).alpha, inkOf(*wide).alpha) << text;
    }
  }
}

TEST(AttributedStringDrawingTest, DamagedTextShowsReplacements) {
  EXPECT_EQ(bytesOf(pictureOf(systemText("a\xFF"
                                         "b\xE2\x82"))),
            bytesOf(pictureOf(systemText("a\uFFFD"
                                         "b\uFFFD"))));
}

TEST(AttributedStringDrawingTest, ControlCharactersShowAsNothing) {
  EXPECT_EQ(bytesOf(pictureOf(systemText(std::string("a\0b\x01\x7F\x1B\xC2\x9F", 8) + "c"))),
            bytesOf(pictureOf(systemText("abc"))));
}

TEST(AttributedStringDrawingTest, AMissingGlyphShowsAsABox) {
  const auto picture = pictureOf(systemText("\uE123"));
  ASSERT_TRUE(picture);
  EXPECT_FALSE(inkOf(*picture).isEmpty());
}

TEST(AttributedStringDrawingTest, AFamilyThatIsNotInstalledDrawsInAnother) {
  for (const std::string& family : {std::string("No Such Family"), std::string(),
                                    std::string("\xFF\xFE"), std::string("a\0b", 3)}) {
    TextAttributes attributes = systemText("").attributes();
    attributes.font.family = family;
    const auto picture = pictureOf(AttributedString("text", attributes));
    ASSERT_TRUE(picture);
    EXPECT_FALSE(inkOf(*picture).isEmpty());
  }
}

TEST(AttributedStringDrawingTest, AnyBytesAreHarmless) {
  std::mt19937 random(11);
  for (int round = 0; round < 150; ++round) {
    std::string bytes(random() % 200, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    TextAttributes attributes = systemText("", 12).attributes();
    attributes.font.weight = static_cast<int>(random());
    attributes.paragraphStyle.alignment = static_cast<TextAlignment>(random() % 7);
    attributes.paragraphStyle.lineBreakMode = static_cast<LineBreakMode>(random() % 8);
    const AttributedString text(bytes, attributes,
                                {{.location = random() % 250,
                                  .length = random() % 250,
                                  .bold = true,
                                  .color = Color{1, 0, 0, 0}}});
    const Size limit{std::uniform_real_distribution(1.0, 300.0)(random),
                     std::uniform_real_distribution(1.0, 200.0)(random)};
    const Rect box = text.boundingRectWithSize(limit);
    EXPECT_LE(box.size.width, limit.width);
    EXPECT_LE(box.size.height, limit.height);
    EXPECT_TRUE(text.bitmapImageWithSize(limit));
  }
}

TEST(AttributedStringDrawingTest, ThreadsDrawTheSameAtOnce) {
  const std::vector<std::string> texts = {"Latin fi", "\u0633\u0644\u0627\u0645",
                                          "\u65E5\u672C\u306E", "\U0001F600 \u0928\u092E"};
  std::vector<std::vector<uint8_t>> expected;
  expected.reserve(texts.size());
  for (const std::string& text : texts) expected.push_back(bytesOf(pictureOf(systemText(text))));

  std::vector<int> wrong(4, 0);
  {
    std::vector<std::jthread> threads;
    for (size_t t = 0; t < wrong.size(); ++t) {
      threads.emplace_back([&, t] {
        for (size_t round = 0; round < 12; ++round) {
          const size_t i = (t + round) % texts.size();
          if (bytesOf(pictureOf(systemText(texts[i]))) != expected[i]) ++wrong[t];
        }
      });
    }
  }
  EXPECT_EQ(wrong, (std::vector<int>{0, 0, 0, 0}));
}

}  // namespace
}  // namespace kestrel
