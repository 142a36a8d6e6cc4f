#include "convert/cut/CutPlan.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kestrel::test {
namespace {

using Entry = IndexedPicture::Entry;
using testing::ElementsAre;

/// Pictures in the order of decoding, a tick apart: "I0 p3 p1" is a clean key picture that shows at
/// 0 and two others; "i" is an open one, "x" is hidden.
PictureIndex indexOf(const std::string& text) {
  PictureIndex index;
  index.timebase = {1, 25};
  for (size_t at = 0; at < text.size(); at = text.find(' ', at) + 1) {
    const char kind = text[at];
    index.pictures.push_back({.shown = std::stoi(text.substr(at + 1)),
                              .duration = 1,
                              .entry = kind == 'I'   ? Entry::kClean
                                       : kind == 'i' ? Entry::kOpen
                                                     : Entry::kNone,
                              .isHidden = kind == 'x'});
    if (kind != 'x') index.shown.push_back(index.pictures.back().shown);
    if (text.find(' ', at) == std::string::npos) break;
  }
  std::ranges::sort(index.shown);
  return index;
}

/// "C" and "E" for what is copied and encoded, with the times of the pictures in the order of
/// decoding.
std::vector<std::string> stretches(const PicturePlan& plan) {
  std::vector<std::string> texts;
  for (const PictureRun& stretch : plan.stretches) {
    std::string text = stretch.isEncoded ? "E" : "C";
    for (size_t i = 0; i < stretch.count; ++i)
      text += ' ' + std::to_string(plan.pictures[stretch.first + i].source);
    texts.push_back(text);
  }
  return texts;
}

std::vector<std::string> planned(const std::string& index, const std::vector<TickSpan>& spans,
                                 const CutWay& way = {}) {
  return stretches(planPictures(indexOf(index), spans, way));
}

const std::string kSimple = "I0 p1 p2 p3 I4 p5 p6 p7 I8 p9";
const std::string kReordered = "I0 p3 p1 p2 p6 p4 p5 I7 p10 p8 p9 I11";
// The pictures at 3 and 4 are decoded behind the key picture at 5 and need one before it.
const std::string kOpen = "I0 p2 p1 i5 p3 p4 p8 p6 p7 i11 p9 p10";

TEST(CutPlan, WholeGroupsAreCopied) {
  EXPECT_THAT(planned(kSimple, {{4, 8}}), ElementsAre("C 4 5 6 7"));
  EXPECT_THAT(planned(kSimple, {{0, 10}}), ElementsAre("C 0 1 2 3 4 5 6 7 8 9"));
}

TEST(CutPlan, WhatLiesBeforeAKeyPictureIsEncoded) {
  EXPECT_THAT(planned(kSimple, {{2, 8}}), ElementsAre("E 2 3", "C 4 5 6 7"));
}

// Pictures that need only those before them need not be encoded at a span's end.
TEST(CutPlan, TheBeginningOfAGroupIsCopied) {
  EXPECT_THAT(planned(kSimple, {{4, 6}}), ElementsAre("C 4 5"));
  EXPECT_THAT(planned(kReordered, {{0, 4}}), ElementsAre("C 0 3 1 2"));
}

TEST(CutPlan, WhatNeedsPicturesBehindTheEndIsEncoded) {
  EXPECT_THAT(planned(kReordered, {{0, 6}}), ElementsAre("C 0 3 1 2", "E 4 5"));
  EXPECT_THAT(planned(kReordered, {{2, 9}}), ElementsAre("E 2 3 4 5 6", "C 7", "E 8"));
}

TEST(CutPlan, ASpanWithoutKeyPictureIsEncoded) {
  EXPECT_THAT(planned(kSimple, {{5, 7}}), ElementsAre("E 5 6"));
}

TEST(CutPlan, LeadingPicturesAreEncodedWhereCopiesMayStartOpen) {
  EXPECT_THAT(planned(kOpen, {{2, 9}}, {.startsOpen = true}), ElementsAre("E 2 3 4", "C 5 8 6 7"));
  EXPECT_THAT(planned(kOpen, {{2, 9}}), ElementsAre("E 2 3 4 5 6 7 8"));
}

TEST(CutPlan, OpenGroupsWithinACopyStayWhole) {
  EXPECT_THAT(planned(kOpen, {{0, 12}}), ElementsAre("C 0 2 1 5 3 4 8 6 7 11 9 10"));
}

TEST(CutPlan, HiddenPicturesAreNotCopied) {
  EXPECT_THAT(planned("I0 p1 x2 p3 I4 p5", {{0, 6}}), ElementsAre("C 0 1", "E 3", "C 4 5"));
}

TEST(CutPlan, SpansFollowEachOtherAtTheSourcesRate) {
  const PicturePlan plan = planPictures(indexOf(kReordered), {{1, 5}, {7, 11}}, {});
  EXPECT_THAT(stretches(plan), ElementsAre("E 1 2 3 4", "C 7 10 8 9"));
  std::vector<int64_t> shown;
  std::vector<int64_t> decoded;
  for (const PlannedPicture& picture : plan.pictures) {
    shown.push_back(picture.shown);
    decoded.push_back(picture.decoded);
    EXPECT_EQ(picture.duration, 1);
  }
  EXPECT_THAT(shown, ElementsAre(0, 1, 2, 3, 4, 7, 5, 6));
  EXPECT_THAT(decoded, ElementsAre(-1, 0, 1, 2, 3, 4, 5, 6));
}

// A picture that stands still ends where the span does.
TEST(CutPlan, StillPicturesLastToTheSpansEnd) {
  const PicturePlan plan = planPictures(indexOf("I0 p1 p2 p3 p20"), {{0, 10}, {20, 21}}, {});
  EXPECT_EQ(plan.windows[0].end, 10);
  EXPECT_EQ(plan.windows[1].place, 10);
}

TEST(CutPlan, WholeGroupsHoldTheSpan) {
  const CutWay way{.keepsGroups = true};
  EXPECT_THAT(planned(kSimple, {{5, 7}}, way), ElementsAre("C 4 5 6"));
  EXPECT_THAT(planned(kReordered, {{8, 9}}, way), ElementsAre("C 7 10 8 9"));
  EXPECT_THAT(planned(kSimple, {{1, 2}, {3, 6}}, way), ElementsAre("C 0 1 2 3 4 5"));
  EXPECT_THAT(planned(kSimple, {{1, 2}, {5, 6}}, way), ElementsAre("C 0 1", "C 4 5"));
}

TEST(CutPlan, SpansWithoutPicturesAreLeftOut) {
  EXPECT_THAT(planned(kSimple, {{0, 1}, {100, 200}}), ElementsAre("C 0"));
}

}  // namespace
}  // namespace kestrel::test
