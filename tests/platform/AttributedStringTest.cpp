#include <kestrel/AttributedString.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "tests/platform/TextPictures.h"

namespace kestrel {
namespace {

using namespace test;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr Size kUnlimited{kInfinity, kInfinity};

double lineHeight(double size) {
  return mono("x", size).boundingRectWithSize(kUnlimited).size.height;
}

/// Lines that a text makes when it is wrapped to so many glyphs of 6 pixels.
double linesIn(const AttributedString& text, int glyphs) {
  const Rect box = text.boundingRectWithSize({glyphs * 6.0, kInfinity});
  return box.size.height / lineHeight(10);
}

TEST(AttributedStringTest, NothingTakesNoRoom) {
  EXPECT_EQ(AttributedString().boundingRectWithSize({100, 100}), Rect{});
  EXPECT_EQ(mono("").boundingRectWithSize({100, 100}), Rect{});
  EXPECT_EQ(mono(" \n\t ").trimmed().boundingRectWithSize({100, 100}), Rect{});
}

TEST(AttributedStringTest, WidthIsTheGlyphsAdvances) {
  EXPECT_EQ(mono("MMMMMMMMMM", 100).boundingRectWithSize(kUnlimited).size.width, 600);
  EXPECT_EQ(mono("iiiii", 100).boundingRectWithSize(kUnlimited).size.width, 300);
}

TEST(AttributedStringTest, HeightIsTheTypefacesOwn) {
  EXPECT_NEAR(lineHeight(100), 116.4, 1);
  EXPECT_NEAR(lineHeight(1000), 1164, 1);
}

TEST(AttributedStringTest, TwoLinesAreTwiceAsHighAsOne) {
  const double one = mono("one", 40).boundingRectWithSize(kUnlimited).size.height;
  EXPECT_EQ(mono("one\ntwo", 40).boundingRectWithSize(kUnlimited).size.height, 2 * one);
  EXPECT_EQ(mono("one\n\nthree", 40).boundingRectWithSize(kUnlimited).size.height, 3 * one);
}

TEST(AttributedStringTest, TheWidestLineCounts) {
  EXPECT_EQ(mono("one\nthree\nor").boundingRectWithSize(kUnlimited).size.width, 5 * 6);
}

TEST(AttributedStringTest, EverySortOfLineBreakBreaksOnce) {
  for (const char* text :
       {"a\nb", "a\r\nb", "a\rb", "a\vb", "a\fb", "a\u0085b", "a\u2028b", "a\u2029b"}) {
    EXPECT_EQ(linesIn(mono(text), 10), 2) << text;
  }
}

TEST(AttributedStringTest, WrapsBetweenWords) {
  EXPECT_EQ(linesIn(mono("aaaa bbbb cccc"), 14), 1);
  EXPECT_EQ(linesIn(mono("aaaa bbbb cccc"), 13), 2);
  EXPECT_EQ(linesIn(mono("aaaa bbbb cccc"), 8), 3);
}

TEST(AttributedStringTest, AWordThatIsTooLongBreaksWithinAndGetsNoHyphen) {
  EXPECT_EQ(linesIn(mono("abcdefghijkl"), 4), 3);
}

TEST(AttributedStringTest, ASoftHyphenShowsWhereTheLineBreaksAtIt) {
  const auto picture = [](const char* text) {
    return inkBytesOf(mono(text, 20).bitmapImageWithSize({60, 60}));
  };
  EXPECT_EQ(picture("abcd\u00ADefgh"), picture("abcd-\nefgh"));
}

TEST(AttributedStringTest, LineBreakModeDecidesWhereLinesBreak) {
  TextAttributes attributes = monospaced(10);
  const auto lines = [&](LineBreakMode mode) {
    attributes.paragraphStyle.lineBreakMode = mode;
    return linesIn(AttributedString("a bcdefg", attributes), 4);
  };
  EXPECT_EQ(lines(LineBreakMode::kByWordWrapping), 3);  // a, bcde, fg
  EXPECT_EQ(lines(LineBreakMode::kByCharWrapping), 2);  // a bc, defg
  EXPECT_EQ(lines(LineBreakMode::kByClipping), 1);
  EXPECT_EQ(lines(LineBreakMode::kByTruncatingHead), 1);
  EXPECT_EQ(lines(LineBreakMode::kByTruncatingTail), 1);
  EXPECT_EQ(lines(LineBreakMode::kByTruncatingMiddle), 1);
}

TEST(AttributedStringTest, NoWiderThanAllowed) {
  for (const LineBreakMode mode : {LineBreakMode::kByWordWrapping, LineBreakMode::kByClipping,
                                   LineBreakMode::kByTruncatingTail}) {
    TextAttributes attributes = monospaced(10);
    attributes.paragraphStyle.lineBreakMode = mode;
    const AttributedString text("a text that is longer", attributes);
    EXPECT_LE(text.boundingRectWithSize({45, 100}).size.width, 45);
  }
}

TEST(AttributedStringTest, TruncatedToTheLinesThatFit) {
  const AttributedString text = mono("1\n2\n3\n4");
  const double line = lineHeight(10);
  EXPECT_EQ(text.boundingRectWithSize({100, 4 * line}).size.height, 4 * line);
  EXPECT_EQ(text.boundingRectWithSize({100, 3.9 * line}).size.height, 3 * line);
  EXPECT_EQ(text.boundingRectWithSize({100, line}).size.height, line);
}

TEST(AttributedStringTest, NotTruncatedWithoutTheOption) {
  const AttributedString text = mono("1\n2\n3\n4");
  const double line = lineHeight(10);
  EXPECT_EQ(text.boundingRectWithSize({100, line}, kUsesLineFragmentOrigin).size.height, 4 * line);
}

TEST(AttributedStringTest, OneLineStaysHoweverLowTheLimit) {
  EXPECT_EQ(mono("1\n2").boundingRectWithSize({100, 5}), (Rect{{0, 0}, {12, 5}}));
}

TEST(AttributedStringTest, OriginIsTheCornerOrTheBaseline) {
  const AttributedString text = mono("Mg", 100);
  const Rect corner = text.boundingRectWithSize(kUnlimited, kUsesLineFragmentOrigin);
  EXPECT_EQ(corner.origin, (Point{0, 0}));

  const Rect baseline = text.boundingRectWithSize(kUnlimited, 0);
  EXPECT_EQ(baseline.size, corner.size);
  EXPECT_NEAR(baseline.minY(), -23.6, 1);  // the typeface's descent, 483 of 2048
  EXPECT_NEAR(baseline.maxY(), 92.8, 1);   // its ascent, 1901 of 2048
}

TEST(AttributedStringTest, NoRoomNoRectangle) {
  const AttributedString text = mono("text");
  for (const double none : {0.0, -1.0, -kInfinity, kNaN}) {
    EXPECT_EQ(text.boundingRectWithSize({none, 100}), Rect{}) << none;
    EXPECT_EQ(text.boundingRectWithSize({100, none}), Rect{}) << none;
  }
}

TEST(AttributedStringTest, AFontWithoutSizeDrawsNothing) {
  for (const double none : {0.0, -1.0, -kInfinity, kNaN}) {
    EXPECT_EQ(mono("text", none).boundingRectWithSize({100, 100}), Rect{}) << none;
  }
}

TEST(AttributedStringTest, AFontOfAnySizeIsHarmless) {
  const double largest = lineHeight(4096);
  EXPECT_NEAR(largest, 1.164 * 4096, 1);
  EXPECT_EQ(lineHeight(1e300), largest);
  EXPECT_EQ(lineHeight(kInfinity), largest);
  EXPECT_LE(lineHeight(1e-300), 2);
}

TEST(AttributedStringTest, ItsOwnRectangleKeepsTheLines) {
  std::mt19937 random(7);
  for (int round = 0; round < 100; ++round) {
    std::string words;
    for (auto count = 1 + random() % 30; count > 0; --count) {
      words += std::string(1 + random() % 12, static_cast<char>('a' + random() % 26));
      words += random() % 6 == 0 ? "\n" : " ";
    }
    const AttributedString text = systemText(words, 20).trimmed();
    const Rect box =
        text.boundingRectWithSize({std::uniform_real_distribution(50.0, 350.0)(random), kInfinity});
    EXPECT_EQ(text.boundingRectWithSize({box.size.width, kInfinity}), box) << words;
    EXPECT_EQ(text.boundingRectWithSize(box.size), box) << words;
  }
}

TEST(AttributedStringTest, BoldTextIsWider) {
  TextAttributes attributes = systemText("").attributes();
  const double regular = systemText("width").boundingRectWithSize(kUnlimited).size.width;
  attributes.font.weight = 700;
  const double bold =
      AttributedString("width", attributes).boundingRectWithSize(kUnlimited).size.width;
  EXPECT_GT(bold, regular);
}

TEST(AttributedStringTest, RunsOfTheWholeTextAreLikeItsAttributes) {
  TextAttributes attributes = systemText("").attributes();
  const AttributedString runs("heavy", attributes, {{.length = 5, .bold = true, .italic = true}});
  attributes.font.weight = 700;
  attributes.font.italic = true;
  EXPECT_EQ(bytesOf(pictureOf(runs)), bytesOf(pictureOf(AttributedString("heavy", attributes))));
}

TEST(AttributedStringTest, ARunCountsTheBytesOfTheTextAsGiven) {
  // The run is the b: before it lie a broken byte, which shows as three, and one that vanishes.
  const TextAttributes attributes = systemText("").attributes();
  const AttributedString broken(
      "\xFF\x01"
      "ab",
      attributes, {{.location = 3, .length = 1, .bold = true}});
  const AttributedString whole(
      "\uFFFD"
      "ab",
      attributes, {{.location = 4, .length = 1, .bold = true}});
  EXPECT_EQ(bytesOf(pictureOf(broken)), bytesOf(pictureOf(whole)));
}

TEST(AttributedStringTest, RunsBeyondTheTextAreHarmless) {
  const TextAttributes attributes = systemText("").attributes();
  const AttributedString beyond("text", attributes,
                                {{.location = 2, .length = SIZE_MAX, .bold = true},
                                 {.location = SIZE_MAX, .length = SIZE_MAX, .italic = true}});
  const AttributedString within("text", attributes, {{.location = 2, .length = 2, .bold = true}});
  EXPECT_EQ(bytesOf(pictureOf(beyond)), bytesOf(pictureOf(within)));
}

TEST(AttributedStringTest, TrimsUnicodeSpaceFromBothEnds) {
  EXPECT_EQ(mono(" \t\r\n\u00A0\u3000 a b\u2009c \u2028\u0085").trimmed().text(), "a b\u2009c");
  EXPECT_EQ(mono("x").trimmed().text(), "x");
  EXPECT_EQ(mono(" \n ").trimmed().text(), "");
  EXPECT_EQ(mono("\xFF ").trimmed().text(), "\xFF");
}

TEST(AttributedStringTest, TrimmingMovesTheRunsAlong) {
  const AttributedString text("  abc  ", {},
                              {{.location = 0, .length = 4, .bold = true},
                               {.location = 4, .length = 3, .italic = true},
                               {.location = 0, .length = 2, .underline = true}});
  EXPECT_EQ(text.trimmed().runs(),
            (std::vector<TextRun>{{.location = 0, .length = 2, .bold = true},
                                  {.location = 2, .length = 1, .italic = true}}));
}

TEST(AttributedStringTest, AMegabyteIsCutToWhatIsLaidOut) {
  const auto words = [](size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += "word ";
    text.resize(bytes);
    return mono(text);
  };
  EXPECT_EQ(
      words(1 << 20).boundingRectWithSize({1280, kInfinity}, kUsesLineFragmentOrigin),
      words(size_t{16} * 1024).boundingRectWithSize({1280, kInfinity}, kUsesLineFragmentOrigin));
}

TEST(AttributedStringTest, AMegabyteWithoutSpacesFitsIntoItsRectangle) {
  const Rect box = mono(std::string(1 << 20, 'x')).boundingRectWithSize({1280, 720});
  EXPECT_LE(box.size.width, 1280);
  EXPECT_LE(box.size.height, 720);
}

}  // namespace
}  // namespace kestrel
