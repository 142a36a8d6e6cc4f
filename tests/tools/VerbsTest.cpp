#include "tools/verbs/Verbs.h"

#include <gmock/gmock.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <set>
#include <string>

namespace {

class VerbsTest : public testing::Test {
 protected:
  VerbsTest() { addVerbs(line_); }

  CommandLine line_{aboutProgram()};
};

TEST_F(VerbsTest, EveryWordThatShellsOfferForAConversionIsAValue) {
  const auto known = kestrel::knownConversionOptions();
  const std::set<std::string> ofQuality{"per", "unless-smaller", "max-cost"};
  int count = 0;
  for (const VerbDescription& verb : line_.describe().verbs) {
    if (verb.name != "convert" && verb.name != "thumb") continue;
    for (const OptionDescription& option : verb.options) {
      const std::string name = option.isArgument() ? "" : option.names.back().substr(2);
      if (std::ranges::count(known, name, &kestrel::OptionInfo::name) == 0) continue;
      for (const std::string& word : option.choices.words) {
        kestrel::ConversionSettings settings;
        if (ofQuality.contains(name)) settings.targetQuality.emplace();
        EXPECT_NO_THROW(kestrel::applyOptions({{name, word}}, settings)) << name << " " << word;
        ++count;
      }
    }
  }
  EXPECT_GT(count, 40);
}

TEST_F(VerbsTest, EveryOptionSaysWhatItsValueIsAndStandsOnce) {
  for (const VerbDescription& verb : line_.describe().verbs) {
    std::set<std::string> names;
    for (const OptionDescription& option : verb.options) {
      EXPECT_NE(option.value, "VALUE") << verb.name;
      EXPECT_NE(option.text, "") << verb.name;
      for (const std::string& name : option.names)
        EXPECT_TRUE(names.insert(name).second) << verb.name << " " << name;
    }
    EXPECT_TRUE(names.contains("--help")) << verb.name;
  }
}

TEST_F(VerbsTest, WhatOnlyShellsAskForIsInNoHelp) {
  const auto verbs = line_.describe().verbs;
  EXPECT_EQ(std::ranges::count(verbs, "complete", &VerbDescription::name), 0);
  EXPECT_EQ(std::ranges::count(verbs, "convert", &VerbDescription::name), 1);
}

}  // namespace
