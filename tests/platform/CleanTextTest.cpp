#include "platform/text/CleanText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrel {
namespace {

constexpr size_t kUnlimited = 1000;

TEST(CleanTextTest, GoodTextStays) {
  const std::string text = "a\tb\n\u00E9\u65E5\U0001F600";
  EXPECT_EQ(cleanText(text, kUnlimited).text, text);
}

TEST(CleanTextTest, EachIllFormedSequenceIsOneReplacement) {
  EXPECT_EQ(cleanText("\xFF\xFE", kUnlimited).text, "\uFFFD\uFFFD");
  EXPECT_EQ(cleanText("\xE2\x82x", kUnlimited).text, "\uFFFDx");                // cut short
  EXPECT_EQ(cleanText("\xC0\xAF", kUnlimited).text, "\uFFFD\uFFFD");            // overlong
  EXPECT_EQ(cleanText("\xED\xA0\x80", kUnlimited).text, "\uFFFD\uFFFD\uFFFD");  // surrogate
  EXPECT_EQ(cleanText("\xF4\x90\x80\x80", kUnlimited).text, "\uFFFD\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(cleanText("x\xF0\x9F", kUnlimited).text, "x\uFFFD");  // cut by the end
}

TEST(CleanTextTest, LineBreaksBecomeLineFeeds) {
  EXPECT_EQ(cleanText("a\r\nb\rc\n\rd\v\f\u0085\u2028\u2029", kUnlimited).text,
            "a\nb\nc\n\nd\n\n\n\n\n");
}

TEST(CleanTextTest, OtherControlCharactersVanish) {
  EXPECT_EQ(cleanText(std::string("a\0b\x1B\x7F", 5) + "\u0080c", kUnlimited).text, "abc");
}

TEST(CleanTextTest, PlacesFollowWhatChanges) {
  const CleanText clean = cleanText(
      "\xFF\x01"
      "b\r\nc",
      kUnlimited);
  ASSERT_EQ(clean.text,
            "\uFFFD"
            "b\nc");
  EXPECT_EQ(clean.places, (std::vector<size_t>{0, 3, 3, 4, 5, 5, 6}));
}

TEST(CleanTextTest, EndsBeforeTheCharacterThatTheLimitCuts) {
  const CleanText clean = cleanText(
      "ab\u65E5"
      "cd",
      4);
  EXPECT_EQ(clean.text, "ab");
  EXPECT_EQ(clean.places, (std::vector<size_t>{0, 1, 2, 2, 2, 2, 2, 2}));
  EXPECT_EQ(cleanText("ab\u65E5"
                      "cd",
                      5)
                .text,
            "ab\u65E5");
}

TEST(CleanTextTest, NothingStaysNothing) {
  const CleanText clean = cleanText("", kUnlimited);
  EXPECT_EQ(clean.text, "");
  EXPECT_EQ(clean.places, std::vector<size_t>{0});
}

}  // namespace
}  // namespace kestrel
