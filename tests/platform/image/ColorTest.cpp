#include <gmock/gmock.h>
#include <kestrel/Color.h>

#include <string>

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::Not;

// The values are those of the names in CSS.
TEST(Color, IsKnownByItsName) {
  EXPECT_EQ(colorWithName("white"), Color::white());
  EXPECT_EQ(colorWithName("yellow"), (Color{1, 1, 0, 1}));
  EXPECT_EQ(colorWithName("Orange"), (Color{1, 165 / 255.0, 0, 1}));
}

TEST(Color, IsReadFromItsDigits) {
  EXPECT_EQ(colorWithName("#FFCC00"), (Color{1, 204 / 255.0, 0, 1}));
  EXPECT_EQ(colorWithName("#fc0"), (Color{1, 204 / 255.0, 0, 1}));
  EXPECT_EQ(colorWithName("#FFCC0080"), (Color{1, 204 / 255.0, 0, 128 / 255.0}));
  EXPECT_EQ(colorWithName("0xffcc00"), (Color{1, 204 / 255.0, 0, 1}));
  EXPECT_EQ(colorWithName("FFCC00"), (Color{1, 204 / 255.0, 0, 1}));
}

TEST(Color, MayHaveAnAlphaBehindIt) {
  EXPECT_EQ(colorWithName("red@0.5"), (Color{1, 0, 0, 0.5}));
  EXPECT_EQ(colorWithName("#FFCC00@0x80"), (Color{1, 204 / 255.0, 0, 128 / 255.0}));
}

TEST(Color, IsNoneForAnyOtherText) {
  for (const std::string text : {"", "yelow", "#FC", "#GGGGGG", "#FFCC0", "random", "bikeshed",
                                 "red@2", "red@", "red@half", "1,2,3"})
    EXPECT_EQ(colorWithName(text), std::nullopt) << text;
}

TEST(Color, NamesAreThoseThatAreRead) {
  const auto names = colorNames();
  EXPECT_THAT(names, Contains("Yellow"));
  EXPECT_THAT(names, Not(Contains("random")));
  for (const std::string& name : names) EXPECT_TRUE(colorWithName(name)) << name;
}

}  // namespace
}  // namespace kestrel::test
