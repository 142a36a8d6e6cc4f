#include <gtest/gtest.h>
#include <kestrel/Font.h>

#include <algorithm>
#include <limits>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/Process.h"

namespace kestrel {
namespace {

Font font(const std::string& family, double size, int weight = 400, bool italic = false) {
  return {.family = family, .size = size, .weight = weight, .italic = italic};
}

TEST(FontTest, TheSystemsFontExists) {
  const Font system = Font::systemFontOfSize(80);
  EXPECT_EQ(system.size, 80);
  EXPECT_EQ(system.weight, 400);
  EXPECT_FALSE(system.italic);
  EXPECT_TRUE(system.exists());
}

TEST(FontTest, FamiliesAreWhatTheSystemLists) {
  std::set<std::string> expected;
  std::istringstream lines(test::run({"fc-list", "--format", "%{family}\n"}).out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream names(line);
    for (std::string name; std::getline(names, name, ',');) expected.insert(name);
  }
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(Font::availableFontFamilies(),
            std::vector<std::string>(expected.begin(), expected.end()));
}

TEST(FontTest, AFamilyExistsInWhateverCase) {
  EXPECT_TRUE(font("DejaVu Sans", 10).exists());
  EXPECT_TRUE(font("dejavu SANS", 10).exists());
  EXPECT_TRUE(font("Monospace", 10).exists());
}

TEST(FontTest, AFamilyThatIsNotInstalledDoesNotExist) {
  EXPECT_FALSE(font("No Such Family", 10).exists());
  EXPECT_FALSE(font("DejaVu", 10).exists());
  EXPECT_FALSE(font("", 10).exists());
}

TEST(FontTest, ResolvesToTheFamilyThatIsDrawn) {
  EXPECT_EQ(font("dejavu sans mono", 10).resolvedFamily(), "DejaVu Sans Mono");
  EXPECT_EQ(font("DejaVu Sans Mono", 10, 700, true).resolvedFamily(), "DejaVu Sans Mono");
}

TEST(FontTest, WhatIsNotInstalledResolvesToSomethingThatIs) {
  const auto families = Font::availableFontFamilies();
  for (const char* family : {"No Such Family", "sans-serif", ""}) {
    const std::string resolved = font(family, 10).resolvedFamily();
    EXPECT_TRUE(std::binary_search(families.begin(), families.end(), resolved)) << resolved;
  }
}

TEST(FontTest, ReadsFamilyStyleAndSize) {
  const auto read = [](const char* text) { return Font::fontWithDescription(text, 80); };
  EXPECT_EQ(read("DejaVu Sans 40"), font("DejaVu Sans", 40));
  EXPECT_EQ(read("DejaVu Sans Bold 40"), font("DejaVu Sans", 40, 700));
  EXPECT_EQ(read("DejaVu Sans Bold Italic 40.5"), font("DejaVu Sans", 40.5, 700, true));
  EXPECT_EQ(read("DejaVu Sans Mono oblique"), font("DejaVu Sans Mono", 80, 400, true));
  EXPECT_EQ(read("  DejaVu \t Serif  Semi-Bold "), font("DejaVu Serif", 80, 600));
}

TEST(FontTest, ReadsFamiliesThatAreNotInstalled) {
  EXPECT_EQ(Font::fontWithDescription("No Such Family Heavy 12", 80),
            font("No Such Family", 12, 900));
}

TEST(FontTest, PartsThatAreMissingAreTheSystems) {
  EXPECT_EQ(Font::fontWithDescription("Bold", 80), font("sans-serif", 80, 700));
  EXPECT_EQ(Font::fontWithDescription("24", 80), font("sans-serif", 24));
}

TEST(FontTest, AStyleWordOfAnInstalledFamilyBelongsToItsName) {
  if (!font("DejaVu Sans Light", 10).exists()) GTEST_SKIP() << "DejaVu Sans Light is not installed";
  EXPECT_EQ(Font::fontWithDescription("DejaVu Sans Light 20", 80), font("DejaVu Sans Light", 20));
}

TEST(FontTest, DescriptionsThatAreNoneAreNothing) {
  for (const char* text : {"", "  ", "DejaVu Sans 0", "DejaVu Sans -4", "-1"}) {
    EXPECT_FALSE(Font::fontWithDescription(text, 80)) << text;
  }
  EXPECT_FALSE(Font::fontWithDescription("DejaVu Sans", 0));
  EXPECT_FALSE(Font::fontWithDescription("Sans", std::numeric_limits<double>::quiet_NaN()));
}

}  // namespace
}  // namespace kestrel
