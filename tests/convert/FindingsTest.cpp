#include "convert/check/Findings.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace kestrel::test {
namespace {

constexpr int64_t kSecond = 1'000'000;

using Told = std::vector<std::tuple<int64_t, int64_t, std::string>>;

/// Start and end in seconds, and what is said.
Told told(Findings& findings) {
  Told list;
  for (const CheckFinding& each : findings.take())
    list.emplace_back(each.start / kSecond, each.end / kSecond, each.sentence);
  return list;
}

TEST(Findings, AreInTheOrderOfTheirTimes) {
  Findings findings;
  findings.add({.start = 5 * kSecond, .end = 6 * kSecond, .sentence = "later"});
  findings.add({.start = 1 * kSecond, .end = 9 * kSecond, .sentence = "earlier"});
  findings.add({.start = 5 * kSecond, .end = 5 * kSecond, .sentence = "as late"});
  EXPECT_EQ(told(findings), (Told{{1, 9, "earlier"}, {5, 6, "later"}, {5, 5, "as late"}}));
}

TEST(Findings, AStateIsToldWhereItLastsLongEnough) {
  Findings findings;
  LastingState state(CheckKind::kSilence, 1, 2, "silence");
  state.set(true, 1 * kSecond, findings);
  state.set(true, 2 * kSecond, findings);
  state.set(false, 3 * kSecond, findings);
  state.set(false, 4 * kSecond, findings);
  state.set(true, 5 * kSecond, findings);
  state.set(false, 7 * kSecond - 1, findings);
  state.set(true, 8 * kSecond, findings);
  state.finish(12 * kSecond, findings);
  EXPECT_EQ(told(findings), (Told{{1, 3, "silence"}, {8, 12, "silence"}}));
}

TEST(Findings, AStateMayBeMeant) {
  Findings findings;
  LastingState state(CheckKind::kBlack, 0, 0.5, "black");
  state.set(true, 0, findings);
  state.finish(kSecond, findings);
  const auto all = findings.take();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_FALSE(all[0].isFault);
  EXPECT_EQ(all[0].stream, 0U);
  EXPECT_EQ(all[0].kind, CheckKind::kBlack);
}

TEST(Findings, EventsWithinASecondAreOne) {
  Findings findings;
  Incidents incidents(CheckKind::kDamage, 0, "packet", "cannot be decoded");
  incidents.add(10 * kSecond, 10 * kSecond, 1, findings);
  incidents.add(11 * kSecond, 11 * kSecond, 2, findings);
  incidents.add(12 * kSecond + 1, 12 * kSecond + 1, 1, findings);
  incidents.add(13 * kSecond, 13 * kSecond, 0, findings);
  incidents.finish(findings);
  incidents.finish(findings);
  EXPECT_EQ(told(findings), (Told{{10, 11, "3 packets cannot be decoded"},
                                  {12, 12, "1 packet cannot be decoded"}}));
  EXPECT_EQ(incidents.count(), 4);
}

}  // namespace
}  // namespace kestrel::test
