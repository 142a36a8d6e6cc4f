#include "media/Deinterlacer.h"

#include <gmock/gmock.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "support/FFmpegCompat.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

constexpr int kSide = 96;

enum class Kind { kOneMoment, kTwoMoments };

/// A bar in grey, further to the right with each picture, that lasts `ticks`.
FramePtr picture(int number, Kind kind, int ticks, bool isMarked = false) {
  FramePtr frame = makeFrame();
  frame->width = kSide;
  frame->height = kSide;
  frame->format = AV_PIX_FMT_GRAY8;
  av_frame_get_buffer(frame.get(), 0);
  for (int y = 0; y < kSide; ++y) {
    const int edge = 4 * number + (kind == Kind::kTwoMoments && y % 2 == 1 ? 2 : 0);
    uint8_t* line = frame->data[0] + ptrdiff_t{y} * frame->linesize[0];
    // Lines of their own, fainter than combs.
    std::memset(line, 40 + 2 * ((7 * y + 13 * number) % 5), kSide);
    std::memset(line + edge, 200, 30);
  }
  frame->pts = int64_t{number} * ticks;
  setFrameDuration(*frame, ticks);
  frame->interlaced_frame = isMarked;
  frame->top_field_first = isMarked;
  return frame;
}

std::string bytesOf(const AVFrame& frame) {
  std::string bytes;
  for (int y = 0; y < frame.height; ++y)
    bytes.append(reinterpret_cast<const char*>(frame.data[0]) + ptrdiff_t{y} * frame.linesize[0],
                 static_cast<size_t>(frame.width));
  return bytes;
}

/// What comes out of pictures of these kinds, in order.
std::vector<FramePtr> deinterlaced(const PictureTreatment& treatment,
                                   const std::vector<Kind>& kinds, int ticks = 40,
                                   bool areMarked = false) {
  Deinterlacer deinterlacer(treatment, {1, 25 * ticks});
  std::vector<FramePtr> finished;
  for (size_t i = 0; i < kinds.size(); ++i)
    std::ranges::move(deinterlacer.push(picture(static_cast<int>(i), kinds[i], ticks, areMarked)),
                      std::back_inserter(finished));
  std::ranges::move(deinterlacer.finish(), std::back_inserter(finished));
  return finished;
}

std::vector<int64_t> timesOf(const std::vector<FramePtr>& pictures) {
  std::vector<int64_t> times;
  for (const auto& picture : pictures) times.push_back(picture->pts);
  return times;
}

/// For each picture whether it still is what went in.
std::vector<bool> untouched(const std::vector<FramePtr>& pictures, const std::vector<Kind>& kinds) {
  std::vector<bool> result;
  for (size_t i = 0; i < pictures.size(); ++i)
    result.push_back(bytesOf(*pictures[i]) == bytesOf(*picture(static_cast<int>(i), kinds[i], 40)));
  return result;
}

constexpr Kind kOne = Kind::kOneMoment;
constexpr Kind kTwo = Kind::kTwoMoments;

TEST(Deinterlacer, TouchesOnlyPicturesThatShowCombs) {
  const std::vector<Kind> kinds{kOne, kOne, kTwo, kTwo, kOne, kOne};
  for (const bool areMarked : {false, true}) {
    const auto pictures =
        deinterlaced({.deinterlacing = Deinterlacing::kCombed}, kinds, 40, areMarked);
    EXPECT_THAT(timesOf(pictures), ElementsAre(0, 40, 80, 120, 160, 200));
    EXPECT_THAT(untouched(pictures, kinds), ElementsAre(true, true, false, false, true, true));
  }
}

// Where little moves, interlaced pictures show no combs; film with repeated fields has more than
// two without any between those that show them.
TEST(Deinterlacer, InterlacedPicturesWithoutCombsAreTreatedLikeThoseAroundThem) {
  const PictureTreatment combed{.deinterlacing = Deinterlacing::kCombed};
  const std::vector<Kind> gaps{kOne, kTwo, kOne, kTwo, kOne, kOne, kTwo};
  EXPECT_THAT(untouched(deinterlaced(combed, gaps), gaps),
              ElementsAre(true, false, false, false, false, false, false));
  const std::vector<Kind> film{kTwo, kTwo, kOne, kOne, kOne, kTwo, kTwo, kOne, kOne, kOne};
  EXPECT_THAT(untouched(deinterlaced(combed, film), film),
              ElementsAre(false, false, true, true, true, false, false, true, true, true));
  std::vector<Kind> shot{kTwo, kTwo, kTwo};
  shot.insert(shot.end(), 14, kOne);
  std::vector<bool> expected(15, false);
  expected.insert(expected.end(), 2, true);
  EXPECT_EQ(untouched(deinterlaced(combed, shot), shot), expected);
}

TEST(Deinterlacer, TheFirstPictureIsComparedWithTheNext) {
  const std::vector<Kind> kinds{kTwo, kTwo, kTwo};
  const auto pictures = deinterlaced({.deinterlacing = Deinterlacing::kCombed}, kinds);
  EXPECT_THAT(untouched(pictures, kinds), ElementsAre(false, false, false));
  EXPECT_THAT(timesOf(pictures), ElementsAre(0, 40, 80));
}

TEST(Deinterlacer, ASinglePictureStaysAsItIs) {
  const auto pictures = deinterlaced({.deinterlacing = Deinterlacing::kCombed}, {kTwo});
  EXPECT_THAT(untouched(pictures, {kTwo}), ElementsAre(true));
}

TEST(Deinterlacer, GoesByMarksWhereItIsToldTo) {
  const std::vector<Kind> kinds{kTwo, kTwo, kTwo};
  const PictureTreatment byMarks{.deinterlacing = Deinterlacing::kAuto};
  EXPECT_THAT(untouched(deinterlaced(byMarks, kinds, 40, false), kinds),
              ElementsAre(true, true, true));
  EXPECT_THAT(untouched(deinterlaced(byMarks, kinds, 40, true), kinds),
              ElementsAre(false, false, false));
  EXPECT_THAT(untouched(deinterlaced({.deinterlacing = Deinterlacing::kOn}, kinds), kinds),
              ElementsAre(false, false, false));
}

TEST(Deinterlacer, FieldsBecomePicturesOfHalfTheLength) {
  const PictureTreatment fields{.deinterlacing = Deinterlacing::kOn, .separatesFields = true};
  const auto pictures = deinterlaced(fields, {kTwo, kTwo, kTwo});
  EXPECT_THAT(timesOf(pictures), ElementsAre(0, 20, 40, 60, 80, 100));
  EXPECT_EQ(frameDuration(*pictures.back()), 20);
}

TEST(Deinterlacer, FieldsGetFinerTicksWhereTheirPicturesLastOne) {
  const PictureTreatment fields{.deinterlacing = Deinterlacing::kCombed, .separatesFields = true};
  const auto pictures = deinterlaced(fields, {kOne, kOne, kTwo, kTwo}, 1);
  EXPECT_THAT(timesOf(pictures), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));  // in fiftieths of a second
  for (const auto& picture : pictures) EXPECT_EQ(av_cmp_q(picture->time_base, {1, 50}), 0);
  EXPECT_EQ(frameDuration(*pictures[0]), 1);
  EXPECT_EQ(frameDuration(*pictures.back()), 1);
}

TEST(Deinterlacer, WhereFieldsBecomePicturesTheOthersComeTwice) {
  const std::vector<Kind> kinds{kOne, kOne, kTwo, kTwo, kOne, kOne};
  for (const auto which : {Deinterlacing::kCombed, Deinterlacing::kAuto}) {
    const auto pictures =
        deinterlaced({.deinterlacing = which, .separatesFields = true}, kinds, 40);
    EXPECT_THAT(timesOf(pictures),
                ElementsAre(0, 20, 40, 60, 80, 100, 120, 140, 160, 180, 200, 220));
    for (const size_t number : {0U, 1U, 4U, 5U})
      for (const size_t half : {0U, 1U})
        EXPECT_EQ(bytesOf(*pictures.at(2 * number + half)),
                  bytesOf(*picture(static_cast<int>(number), kinds[number], 40)))
            << number;
  }
}

TEST(Deinterlacer, TheEarlierFieldComesFirst) {
  // The left edge of the bar in the middle of the height.
  const auto edge = [](const AVFrame& frame) {
    const uint8_t* line = frame.data[0] + ptrdiff_t{kSide / 2} * frame.linesize[0];
    int x = 0;
    while (line[x] < 120) ++x;
    return x;
  };
  const auto edges = [&](bool topFieldFirst) {
    std::vector<int> result;
    for (const auto& picture : deinterlaced({.deinterlacing = Deinterlacing::kOn,
                               .separatesFields = true,
                               .topFieldFirst = topFieldFirst},
                                            {kTwo, kTwo, kTwo}))
      result.push_back(edge(*picture));
    return result;
  };
  // The upper field lies at 4 and 8, the lower one two columns further.
  const auto upperFirst = edges(true);
  EXPECT_LT(upperFirst[2], upperFirst[3]);
  const auto lowerFirst = edges(false);
  EXPECT_GT(lowerFirst[2], lowerFirst[3]);
}

}  // namespace
}  // namespace kestrel::test
