#include <kestrel/convert/ConversionOptions.h>

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <vector>

namespace kestrel::test {
namespace {

using testing::Not;

TEST(ConversionOptions, TellOfThemselves) {
  std::set<std::string> names;
  for (const OptionInfo& option : knownConversionOptions()) {
    SCOPED_TRACE(option.name);
    EXPECT_TRUE(names.insert(option.name).second) << "is there twice";
    EXPECT_THAT(option.name, testing::MatchesRegex("[a-z][a-z-]*"));
    EXPECT_THAT(option.text, Not(testing::IsEmpty()));
    EXPECT_EQ(option.value.empty(), option.form == OptionForm::kSwitch);
    EXPECT_EQ(formOf(option.name), option.form);
  }
}

// A heading that came again would stand in the help twice.
TEST(ConversionOptions, ThoseOfAHeadingStandTogetherTheLooksAtTheEnd) {
  std::vector<std::string> headings;
  for (const OptionInfo& option : knownConversionOptions())
    if (headings.empty() || headings.back() != option.group) headings.push_back(option.group);
  EXPECT_THAT(headings,
              testing::ElementsAre("Picture", "Sound", "Other streams", "Span and file", "Look"));
  for (const OptionInfo& option : knownLookOptions()) EXPECT_EQ(option.group, "Look");
}

TEST(ConversionOptions, StylesOfSubtitlesAreThoseThatNeedOnes) {
  std::vector<std::string> styles;
  for (const OptionInfo& option : knownLookOptions())
    if (option.stylesSubtitles) styles.push_back(option.name);
  EXPECT_THAT(styles, testing::ElementsAre("ignore-styles", "subtitle-font", "subtitle-color",
                                           "subtitle-position", "subtitle-outline"));
}

}  // namespace
}  // namespace kestrel::test
