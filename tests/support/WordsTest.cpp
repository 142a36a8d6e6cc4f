#include "support/Words.h"

#include <gtest/gtest.h>

namespace kestrel::test {
namespace {

TEST(NounAndNumbers, DrawsNeighboursTogether) {
  EXPECT_EQ(nounAndNumbers("title", {4}), "title 4");
  EXPECT_EQ(nounAndNumbers("title", {4, 5}), "titles 4, 5");
  EXPECT_EQ(nounAndNumbers("title", {1, 2, 3, 7, 9, 10}), "titles 1 to 3, 7, 9, 10");
  EXPECT_EQ(nounAndNumbers("title set", {3, 4, 5, 6}), "title sets 3 to 6");
}

TEST(LowerCased, ChangesAsciiLettersOnly) { EXPECT_EQ(lowerCased("AZ az_ÄÉ9"), "az az_ÄÉ9"); }

TEST(IsUtf8, KnowsWholeCharacters) {
  for (const char* text : {"", "plain", "Größe 東京", "\xF0\x9F\x8E\xAC"})
    EXPECT_TRUE(isUtf8(text)) << text;
  // Latin 1; cut in two; longer than needed; a surrogate; beyond U+10FFFF.
  for (const char* text : {"caf\xE9!", "\xE6\x9D", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    EXPECT_FALSE(isUtf8(text)) << text;
}

}  // namespace
}  // namespace kestrel::test
