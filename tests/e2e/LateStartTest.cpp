#include <gtest/gtest.h>

#include <algorithm>

#include "tests/e2e/Kestrel.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Inputs whose first time stamp is 60 s and which last 5 s from there.
class LateStartTest : public testing::TestWithParam<const char*> {
 protected:
  const TempDir dir_;
  const std::filesystem::path input_ = fixture(GetParam());
};

TEST_P(LateStartTest, InfoTellsTheLengthFromTheStartOn) {
  const RunResult result = run({kestrelBinary(), "info", "--json", input_.string()});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto info = nlohmann::json::parse(result.out);
  EXPECT_NEAR(info.at("duration").get<double>(), 5, 0.05) << result.out;
}

TEST_P(LateStartTest, ConversionIsWhole) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mp4"));
  // The sound begins before the first picture, which is shown from there on.
  auto numbers = shownNumbers(dir_ / "a.mp4");
  EXPECT_LE(numbers.size(), 126u);
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  EXPECT_EQ(numbers, countingFrom(0, 125));
}

TEST_P(LateStartTest, HalfOfItIsThePictureInItsMiddle) {
  const RunResult result =
      run({kestrelBinary(), "thumb", input_.string(), (dir_ / "a.png").string(), "--time", "50%"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NEAR(shownNumbers(dir_ / "a.png").at(0), 62, 1);
}

TEST_P(LateStartTest, StartIsCountedFromItsStart) {
  ASSERT_TRUE(converts(input_, dir_ / "a.mp4", {"--start", "3.01"}));
  EXPECT_NEAR(shownNumbers(dir_ / "a.mp4").front(), 75, 1);
}

INSTANTIATE_TEST_SUITE_P(Containers, LateStartTest,
                         testing::Values("numbered25-from-60.mkv", "numbered25-from-60.mp4",
                                         "numbered25-from-60.nut"));

}  // namespace
}  // namespace kestrel::test
