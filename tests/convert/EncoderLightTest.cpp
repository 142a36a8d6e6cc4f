#include <gtest/gtest.h>

#include "convert/plan/EncoderParameters.h"
#include "convert/probe/Light.h"

namespace kestrel::test {
namespace {

using Options = std::map<std::string, std::string>;

/// A display of DCI-P3 with the white D65.
HdrInfo light() {
  return {.colors = DisplayColors{{0.68, 0.32}, {0.265, 0.69}, {0.15, 0.06}, {0.3127, 0.329}},
          .darkest = 0.005,
          .brightest = 1000,
          .maxContentLight = 1000,
          .maxAverageLight = 400};
}

// In steps of 0.00002, and of 0.0001 candelas per square metre.
TEST(EncoderLight, X265TakesWholeSteps) {
  Options options;
  addLight(options, "libx265", light());
  EXPECT_EQ(options, (Options{{"x265-params",
                               "log-level=none:master-display=G(13250,34500)B(7500,3000)"
                               "R(34000,16000)WP(15635,16450)L(10000000,50):max-cll=1000,400"}}));
}

TEST(EncoderLight, SvtTakesNumbers) {
  Options options;
  addLight(options, "libsvtav1", light());
  EXPECT_EQ(options, (Options{{"svtav1-params",
                               "mastering-display=G(0.265,0.69)B(0.15,0.06)R(0.68,0.32)"
                               "WP(0.3127,0.329)L(1000,0.005):content-light=1000,400"}}));
}

TEST(EncoderLight, WhatIsNotKnownIsNotTold) {
  HdrInfo half = light();
  half.colors.reset();
  half.maxContentLight.reset();
  Options options;
  addLight(options, "libx265", half);
  EXPECT_EQ(options, (Options{{"x265-params", "log-level=none:max-cll=0,400"}}));
}

TEST(EncoderLight, WhatTheListTellsAlreadyStays) {
  Options options{{"x265-params", "max-cll=1,1:master-display=x"}};
  addLight(options, "libx265", light());
  EXPECT_EQ(options.at("x265-params"), "max-cll=1,1:master-display=x");
}

TEST(EncoderLight, OtherEncodersHaveNoWordsForIt) {
  Options options;
  addLight(options, "libx264", light());
  EXPECT_TRUE(options.empty());
}

TEST(Light, WhatNoDisplayHasIsNotPossible) {
  EXPECT_TRUE(isPossible(light()));
  EXPECT_TRUE(isPossible({}));
  HdrInfo wrong = light();
  wrong.colors->green.y = 1.2;
  EXPECT_FALSE(isPossible(wrong));
  wrong = light();
  wrong.brightest = 10001;
  EXPECT_FALSE(isPossible(wrong));
  wrong = light();
  wrong.maxAverageLight = 70000;
  EXPECT_FALSE(isPossible(wrong));
}

}  // namespace
}  // namespace kestrel::test
