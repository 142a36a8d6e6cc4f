#include "convert/probe/Glance.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel::test {
namespace {

// Two seconds at 25 a second, in 1/12800 s, with pictures that nothing refers to; key pictures at
// 0 and 1 s.
class GlanceTest : public ::testing::Test {
 protected:
  GlanceTest() {
    source_.setFullpath(fixture("av25.mp4").string());
    source_.open();
    glance_.emplace(source_, 0);
  }

  std::vector<int64_t> times(int64_t from, size_t count) {
    std::vector<int64_t> times;
    for (const FramePtr& picture : glance_->from(from, count)) times.push_back(picture->pts);
    return times;
  }

 private:
  LMMediaSource source_;
  std::optional<Glance> glance_;
};

TEST_F(GlanceTest, BeginsAtTheKeyPictureAndGoesForward) {
  const std::vector<int64_t> seen = times(1'500'000, 4);
  ASSERT_EQ(seen.size(), 4U);
  EXPECT_EQ(seen.front(), 12800);
  EXPECT_TRUE(std::ranges::is_sorted(seen));
  EXPECT_EQ(std::ranges::adjacent_find(seen), seen.end());
}

TEST_F(GlanceTest, WhatNothingRefersToIsLeftOut) {
  const std::vector<int64_t> seen = times(0, 100);
  EXPECT_GT(seen.size(), 10U);
  EXPECT_LT(seen.size(), 50U);
}

TEST_F(GlanceTest, GoesBackFromTheEnd) {
  times(1'000'000, 100);
  EXPECT_EQ(times(0, 2).front(), 0);
}

}  // namespace
}  // namespace kestrel::test
