#include "support/LanguageCode.h"

#include <gtest/gtest.h>

namespace kestrel::test {
namespace {

// ISO 639: two letters where there are any, whichever of the longer codes is given.
TEST(LanguageCode, HasThreeLettersWhereContainersTakeNoOthers) {
  EXPECT_EQ(longLanguageCode("en-GB"), "eng");
  EXPECT_EQ(longLanguageCode("fr"), "fra");
  EXPECT_EQ(longLanguageCode("fre"), "fre");
  EXPECT_EQ(longLanguageCode("no language"), "");
}

TEST(LanguageCode, IsTheShortestThereIs) {
  EXPECT_EQ(shortLanguageCode("fr"), "fr");
  EXPECT_EQ(shortLanguageCode("fra"), "fr");
  EXPECT_EQ(shortLanguageCode("fre"), "fr");
  EXPECT_EQ(shortLanguageCode("ger"), "de");
  EXPECT_EQ(shortLanguageCode("ENG"), "en");
  EXPECT_EQ(shortLanguageCode("haw"), "haw");
  EXPECT_EQ(shortLanguageCode(""), "");
  EXPECT_EQ(shortLanguageCode("x\",URI=\""), "");
}

}  // namespace
}  // namespace kestrel::test
