// The scripts of the world, drawn with the fonts that the project's setup installs.

#include <gtest/gtest.h>
#include <kestrel/AttributedString.h>

#include <limits>
#include <string>

#include "platform/text/PangoOwners.h"
#include "tests/platform/TextPictures.h"

namespace kestrel {
namespace {

using namespace test;

constexpr const char* kZeroWidthNonJoiner = "\u200C";

double widthOf(const std::string& text, double size = 40) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  return systemText(text, size).boundingRectWithSize({kInfinity, kInfinity}).size.width;
}

/// Characters that no installed font has, asked of the layout library directly.
int missingGlyphs(const std::string& text) {
  const FontMapPtr map(pango_cairo_font_map_new());
  const PangoContextPtr context(pango_font_map_create_context(map.get()));
  const LayoutPtr layout(pango_layout_new(context.get()));
  pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
  return pango_layout_get_unknown_glyphs_count(layout.get());
}

struct Script {
  const char* name;
  const char* text;
};

class AttributedStringScriptsTest : public testing::TestWithParam<Script> {};

TEST_P(AttributedStringScriptsTest, EveryCharacterHasAGlyph) {
  EXPECT_EQ(missingGlyphs(GetParam().text), 0);
}

TEST_P(AttributedStringScriptsTest, IsDrawn) {
  const auto picture = pictureOf(systemText(GetParam().text));
  ASSERT_TRUE(picture);
  // Text covers a good part of the box it stands in.
  EXPECT_GT(inkOf(*picture).alpha, int64_t{255} * picture->width() * picture->height() / 20);
}

INSTANTIATE_TEST_SUITE_P(
    All, AttributedStringScriptsTest,
    testing::Values(Script{"Latin", "Zażółć gęślą jaźń, Ấ"}, Script{"Greek", "Ξεσκεπάζω"},
                    Script{"Cyrillic", "Съешь ещё булок"}, Script{"Arabic", "السلام عليكم"},
                    Script{"Hebrew", "שָׁלוֹם עולם"}, Script{"Devanagari", "नमस्ते दुनिया"},
                    Script{"Chinese", "你好，世界。繁體字"},
                    Script{"Japanese", "こんにちは、カタカナ漢字"},
                    Script{"Korean", "안녕하세요 세계"},
                    Script{"Emoji", "😀👍🏽❤️🇫🇷"}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(AttributedStringShapingTest, TheCountOfMissingGlyphsSeesOne) {
  EXPECT_EQ(missingGlyphs("a\uE123"), 1);
}

TEST(AttributedStringShapingTest, ArabicLettersJoin) {
  const std::string joined = "\u0628\u0628\u0628\u0628";
  const std::string z = kZeroWidthNonJoiner;
  const std::string isolated = "\u0628" + z + "\u0628" + z + "\u0628" + z + "\u0628";
  EXPECT_LT(widthOf(joined), widthOf(isolated) * 0.8);
}

TEST(AttributedStringShapingTest, DevanagariConsonantsMakeConjuncts) {
  EXPECT_LT(widthOf("\u0915\u094D\u0937"),
            widthOf(std::string("\u0915\u094D") + kZeroWidthNonJoiner + "\u0937"));
}

TEST(AttributedStringShapingTest, CombiningMarksStandOnTheirLetters) {
  EXPECT_EQ(widthOf("e\u0301"), widthOf("e"));
}

TEST(AttributedStringShapingTest, EastAsianCharactersAreSquare) {
  EXPECT_EQ(widthOf("\u4F60\u597D\u4E16\u754C"), 4 * 40);
  EXPECT_EQ(widthOf("\u3053\u3093\u306B\u3061\u306F"), 5 * 40);
}

/// The first three characters of a text whose characters are squares of 40 pixels, without the room
/// around them.
std::vector<uint8_t> firstThree(const std::string& text, const std::string& family) {
  TextAttributes attributes = systemText("").attributes();
  attributes.font.family = family;
  const auto picture = pictureOf(AttributedString(text, attributes));
  return bytesOf(*picture, inkWhere(*picture, [&](const uint8_t* at) {
    return (at - picture->pixels()) % picture->bytesPerRow() / 4 < 120;
  }));
}

TEST(AttributedStringShapingTest, JapaneseTextHasJapaneseForms) {
  // These characters are drawn differently in Chinese; the kana after them tells which text it is.
  const std::string characters = "\u76F4\u9AA8\u4ECA";
  const auto drawn = firstThree(characters + "\u306E", "sans-serif");
  EXPECT_EQ(drawn, firstThree(characters, "Noto Sans CJK JP"));
  EXPECT_NE(drawn, firstThree(characters, "Noto Sans CJK SC"));
}

/// Where the red first letter of a text of two stands, seen from its green second.
double firstFromSecond(const std::string& text, size_t first, size_t second) {
  const AttributedString string(
      text, systemText("").attributes(),
      {{.location = 0, .length = first, .color = Color{1, 0, 0, 1}},
       {.location = first, .length = second, .color = Color{0, 1, 0, 1}}});
  const auto picture = pictureOf(string);
  const Ink red = inkWhere(*picture, [](const uint8_t* at) { return at[0] > at[1]; });
  const Ink green = inkWhere(*picture, [](const uint8_t* at) { return at[1] > at[0]; });
  EXPECT_FALSE(red.isEmpty() || green.isEmpty()) << text;
  return red.centerX() - green.centerX();
}

TEST(AttributedStringShapingTest, LettersRunInTheScriptsDirection) {
  EXPECT_LT(firstFromSecond("ab", 1, 1), 0);
  EXPECT_GT(firstFromSecond("\u05D0\u05D1", 2, 2), 0);  // Hebrew
  EXPECT_GT(firstFromSecond("\u0627\u0628", 2, 2), 0);  // Arabic
}

TEST(AttributedStringShapingTest, NumbersInRightToLeftTextRunLeftToRight) {
  // Hebrew, then digits: the word is at the right of the number, whose own digits keep their order.
  EXPECT_GT(firstFromSecond("\u05D0\u05D1 12", 4, 3), 0);
  EXPECT_EQ(widthOf("12"), widthOf("21"));
  const auto number = inkBytesOf(pictureOf(systemText("12")));
  const AttributedString hebrew("\u05D0 12", systemText("").attributes(),
                                {{.location = 0, .length = 3, .color = Color::clear()}});
  EXPECT_EQ(inkBytesOf(pictureOf(hebrew)), number);
}

TEST(AttributedStringShapingTest, EmojiAreColoured) {
  const auto picture = pictureOf(systemText("\U0001F600"));
  ASSERT_TRUE(picture);
  const Ink yellow = inkWhere(
      *picture, [](const uint8_t* at) { return at[3] == 255 && at[0] > 200 && at[2] < 100; });
  EXPECT_GT(yellow.alpha, 255 * 300);
}

TEST(AttributedStringShapingTest, EmojiSequencesAreOnePicture) {
  const double one = widthOf("\U0001F600");
  EXPECT_EQ(widthOf("\U0001F1EB\U0001F1F7"), one);                        // a flag
  EXPECT_EQ(widthOf("\U0001F44D\U0001F3FD"), one);                        // a thumb, toned
  EXPECT_EQ(widthOf("\U0001F468\u200D\U0001F469\u200D\U0001F467"), one);  // a family
}

TEST(AttributedStringShapingTest, EmojiFadeWithTheirText) {
  TextAttributes attributes = systemText("").attributes();
  attributes.foregroundColor.alpha = 0.5;
  const auto picture = pictureOf(AttributedString("\U0001F600", attributes));
  ASSERT_TRUE(picture);
  const Ink yellow =
      inkWhere(*picture, [](const uint8_t* at) { return at[0] > 200 && at[2] < 100; });
  EXPECT_FALSE(yellow.isEmpty());
  const Ink opaque = inkWhere(*picture, [](const uint8_t* at) { return at[3] > 128; });
  EXPECT_TRUE(opaque.isEmpty());
}

}  // namespace
}  // namespace kestrel
