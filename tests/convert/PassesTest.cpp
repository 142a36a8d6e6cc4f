#include "convert/run/Passes.h"

#include <gmock/gmock.h>

#include <vector>

#include "convert/plan/EncoderParameters.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;

ConversionPlan planFor(const std::string& encoder) {
  ConversionPlan plan;
  plan.videoEncoder = encoder;
  return plan;
}

TEST(Passes, EachEncoderIsToldInItsOwnWay) {
  ConversionPlan x264 = planFor("libx264");
  setPass(x264, 1, "/tmp/log");
  EXPECT_THAT(x264.videoOptions,
              UnorderedElementsAre(Pair("flags", "+pass1"), Pair("stats", "/tmp/log/passes")));
  ConversionPlan x265 = planFor("libx265");
  setPass(x265, 2, "/tmp/a:b");
  EXPECT_THAT(x265.videoOptions,
              ElementsAre(Pair("x265-params", "log-level=none:pass=2:stats=/tmp/a\\:b/passes")));
  ConversionPlan vp9 = planFor("libvpx-vp9");
  vp9.videoOptions["flags"] = "+psnr";
  setPass(vp9, 2, "");
  EXPECT_THAT(vp9.videoOptions, ElementsAre(Pair("flags", "+psnr+pass2")));
  EXPECT_FALSE(keepsPassLogInFiles(vp9));
}

TEST(Passes, AHostsParametersGoBehindThoseThatArePlanned) {
  std::map<std::string, std::string> options;
  addParameter(options, "libsvtav1", "tune", "0");
  addOptions(options, "libsvtav1", {{"svtav1-params", "tune=1:lp=2"}, {"preset", "9"}});
  EXPECT_THAT(options, UnorderedElementsAre(Pair("svtav1-params", "tune=0:tune=1:lp=2"),
                                            Pair("preset", "9")));
}

// Two pictures at 25 a second, as the library's encoders tell of them. At the coarsest of 31 steps,
// which are 118 units each, their 3658 units become one: (1000 + 2000 + 1) + 500 + 100 bits, and
// (0 + 999 + 1) / 2 + 50 + 10 bits of one that had the finest but one.
TEST(Passes, TheLeastRateIsThatOfTheCoarsestSteps) {
  const std::string statistics =
      "in:0 out:0 type:1 q:3658 itex:1000 ptex:2000 mv:500 misc:100 fcode:1 bcode:1 mc-var:0 "
      "var:0 icount:0 hbits:0;\n"
      "in:1 out:1 type:2 q:1829 itex:0 ptex:999 mv:50 misc:10 fcode:1 bcode:1 mc-var:0 var:0 "
      "icount:0 hbits:0;\n";
  const double bits = 3001 + 600 + 500 + 60;
  const int least = leastRate(statistics, {25, 1});
  EXPECT_GE(least, bits * 12.5);
  EXPECT_LE(least, bits * 12.5 * 1.15);
  EXPECT_EQ(leastRate("AAAA0123", {25, 1}), 0);
  EXPECT_EQ(leastRate("", {25, 1}), 0);
}

TEST(Passes, ProgressOfSeveralRunsIsThatOfOne) {
  std::vector<double> times;
  std::vector<int64_t> pictures;
  Events events;
  events.progress = [&](const Progress& progress) {
    times.push_back(progress.time);
    pictures.push_back(progress.pictures);
    EXPECT_EQ(progress.duration, 8.0);
  };
  SharedProgress shared(events);
  const Events& first = shared.next(0.5);
  first.progress({.time = 4, .duration = 8.0, .pictures = 100});
  first.progress({.time = 8, .duration = 8.0, .pictures = 200});
  const Events& second = shared.next(0.25);
  second.progress({.time = 0, .duration = 8.0, .pictures = 0});
  second.progress({.time = 8, .duration = 8.0, .pictures = 200});
  shared.next(0.25).progress({.time = 8, .duration = 8.0, .pictures = 200});
  EXPECT_THAT(times, ElementsAre(2, 4, 4, 6, 8));
  EXPECT_THAT(pictures, ElementsAre(50, 100, 100, 150, 200));
}

TEST(Passes, WhoeverAsksForNoProgressIsToldNone) {
  const Events events;
  SharedProgress shared(events);
  EXPECT_FALSE(shared.next(1).progress);
}

}  // namespace
}  // namespace kestrel::test
