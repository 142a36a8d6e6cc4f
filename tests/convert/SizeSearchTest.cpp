#include "convert/run/SizeSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace kestrel::test {
namespace {

using Verdict = SizeSearch::Verdict;

constexpr int kMost = 100'000'000;

/// Searches with an encoder whose file has `size(rate)` bytes.
Verdict searched(SizeSearch& search, const std::function<int64_t(int)>& size) {
  Verdict verdict = Verdict::kAgain;
  while (verdict == Verdict::kAgain) verdict = search.judge(size(search.rate()));
  return verdict;
}

TEST(SizeSearch, TheFirstRateFillsTheRoomThatTheRestLeaves) {
  SizeSearch search(1'000'000, 180'000, 1000, kMost);
  search.begin(10, 0);
  // 0.98 of a million less the rest, in bits, over ten seconds.
  EXPECT_EQ(search.rate(), 640'000);
}

TEST(SizeSearch, AnEncoderThatKeepsItsRateFitsAtOnce) {
  SizeSearch search(1'000'000, 180'000, 1000, kMost);
  search.begin(10, 0);
  EXPECT_EQ(search.judge(980'000), Verdict::kFits);
  EXPECT_EQ(search.best(), 980'000);
}

// Encoders miss their rate by a factor, are the slower to follow the farther it goes, or have bytes
// that no rate changes.
TEST(SizeSearch, FindsTheSizeOfEncodersThatMissTheirRate) {
  const std::function<int64_t(int)> encoders[] = {
      [](int rate) { return 180'000 + std::llround(0.4 * rate * 10 / 8); },
      [](int rate) { return 180'000 + std::llround(3.0 * rate * 10 / 8); },
      [](int rate) { return 180'000 + std::llround(50 * std::pow(rate, 0.7)); },
      [](int rate) { return 400'000 + std::llround(0.9 * rate * 10 / 8); },
      [](int rate) {
        return 180'000 + std::llround(rate * 10 / 8.0 * (rate % 7 < 3 ? 1.1 : 0.95));
      },
  };
  for (const auto& size : encoders) {
    SizeSearch search(1'000'000, 180'000, 1000, kMost);
    search.begin(10, 0);
    EXPECT_EQ(searched(search, size), Verdict::kFits);
    EXPECT_LE(search.best().value_or(0), 1'000'000);
    EXPECT_GE(search.best().value_or(0), 950'000);
  }
}

TEST(SizeSearch, EndsWhereMoreBitsMakeNothingBetter) {
  SizeSearch search(1'000'000, 0, 1000, kMost);
  search.begin(10, 0);
  EXPECT_EQ(searched(search, [](int rate) { return std::min(300'000, rate); }), Verdict::kBelow);
  EXPECT_EQ(search.best(), 300'000);
}

TEST(SizeSearch, EndsAtTheHighestRate) {
  SizeSearch search(1'000'000, 0, 1000, 100'000);
  search.begin(10, 0);
  EXPECT_EQ(search.rate(), 100'000);
  EXPECT_EQ(search.judge(125'000), Verdict::kBelow);
}

TEST(SizeSearch, EndsWhereFewerBitsMakeNothingSmaller) {
  SizeSearch search(100'000, 0, 1000, kMost);
  search.begin(10, 0);
  EXPECT_EQ(searched(search, [](int rate) { return 200'000 + rate / 1000; }), Verdict::kTooBig);
  EXPECT_FALSE(search.best());
  EXPECT_NEAR(static_cast<double>(search.smallest()), 200'000, 100);
}

TEST(SizeSearch, EndsAtTheLowestRate) {
  SizeSearch search(100'000, 0, 90'000, kMost);
  search.begin(10, 0);
  EXPECT_EQ(search.rate(), 90'000);
  EXPECT_EQ(search.judge(112'500), Verdict::kTooBig);
}

TEST(SizeSearch, WhatIsNeverNearEndsWithTheLargestThatFits) {
  SizeSearch search(1'000'000, 0, 1000, kMost);
  search.begin(10, 0);
  // Leaps over the sizes that are wanted.
  EXPECT_EQ(searched(search, [](int rate) { return rate < 700'000 ? rate : 2 * rate; }),
            Verdict::kNearest);
  EXPECT_LT(search.best().value_or(0), 700'000);
  EXPECT_GT(search.best().value_or(0), 400'000);
}

TEST(SizeSearch, WithoutALengthItBeginsWithTheGuess) {
  SizeSearch search(1'000'000, 0, 1000, kMost);
  search.begin(0, 250'000);
  EXPECT_EQ(search.rate(), 250'000);
}

}  // namespace
}  // namespace kestrel::test
