#include "convert/probe/InputEnd.h"

#include <gmock/gmock.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <fstream>
#include <iterator>

#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Report judged(int64_t promised, const InputEnd& end) {
  Report report;
  judgeInput(report, "a.mp4", promised, end);
  return report;
}

TEST(InputEnd, AnInputThatKeepsItsPromiseIsWhole) {
  for (const auto& [promised, reached] :
       {std::pair<int64_t, int64_t>{5000000, 5000000},
        {5000000, 4000000},  // a second is what containers are wrong by
        {5000000, 9000000},
        {0, 3000000}}) {
    const Report report = judged(promised, {.reached = reached, .error = {}, .refused = 0});
    EXPECT_TRUE(report.isWhole());
    EXPECT_THAT(report.findings, IsEmpty());
  }
}

TEST(InputEnd, WhatIsMissingIsTold) {
  const Report report = judged(5000000, {.reached = 3999999, .error = {}, .refused = 0});
  EXPECT_EQ(report.outcome, Report::Outcome::kDoneInPart);
  EXPECT_THAT(report.findings, ElementsAre("'a.mp4' ended early, at 4.00 of 5.00 s"));
}

TEST(InputEnd, WithTheReasonOfReading) {
  const Error error{-5, "Input/output error"};
  EXPECT_THAT(judged(5000000, {.reached = 1500000, .error = error, .refused = 0}).findings,
              ElementsAre("'a.mp4' ended early, at 1.50 of 5.00 s: Input/output error"));
  EXPECT_THAT(judged(5000000, {.reached = 5000000, .error = error, .refused = 0}).findings,
              ElementsAre("'a.mp4' was not read whole: Input/output error"));
}

TEST(InputEnd, DamageIsTold) {
  EXPECT_THAT(judged(0, {.reached = 5000000, .error = {}, .refused = 3}).findings,
              ElementsAre("'a.mp4' is damaged: 3 of its packets could not be decoded"));
}

TEST(InputEnd, PicturesThatTheDecoderMendedAreTold) {
  EXPECT_THAT(judged(0, {.reached = 5000000, .error = {}, .refused = 0, .mended = 4}).findings,
              ElementsAre("'a.mp4' is damaged: parts of 4 of its pictures are made up"));
  EXPECT_THAT(
      judged(0, {.reached = 5000000, .error = {}, .refused = 3, .mended = 4}).findings,
      ElementsAre("'a.mp4' is damaged: 3 of its packets could not be decoded, parts of 4 of "
                  "its pictures are made up"));
}

TEST(InputEnd, ReadersOfOneInputAreAddedUp) {
  InputEnd end{.reached = 2000000, .error = {}, .refused = 1};
  end.add({.reached = 1000000, .error = {-5, "first"}, .refused = 2});
  end.add({.reached = 3000000, .error = {-6, "second"}, .refused = 4});
  EXPECT_EQ(end.reached, 3000000);
  EXPECT_EQ(end.error.message, "first");
  EXPECT_EQ(end.refused, 7);
}

/// What was found wrong in a file that was read to its end.
InputEnd faultsIn(const std::filesystem::path& file) {
  LMFFMovie movie;
  movie.openMedias(LMMediaSource::mediaWithPath(file.string())->createMedias());
  for (const auto& media : movie.medias())
    while (media->forwardNextPacket()) {
    }
  return faultsOf(movie);
}

TEST(InputEnd, AWholeFileHasNoFaults) {
  const InputEnd end = faultsIn(fixture("av25.mp4"));
  EXPECT_FALSE(end.error);
  EXPECT_EQ(end.refused, 0);
}

TEST(InputEnd, PacketsThatCannotBeDecodedAreCounted) {
  const TempDir folder;
  const auto file = folder / "damaged.avi";
  std::ifstream whole(fixture("mjpeg.avi"), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(whole), std::istreambuf_iterator<char>()};
  // Of the pictures from the tenth on three have nothing but their beginning.
  size_t place = 0;
  for (int picture = 0; picture < 13; ++picture) {
    place = bytes.find("\xFF\xD8\xFF", place + 1);
    ASSERT_NE(place, std::string::npos);
    const size_t size = bytes.find("\xFF\xD9", place) - place;
    if (picture >= 10) bytes.replace(place, size, size, '\0');
  }
  std::ofstream(file, std::ios::binary) << bytes;
  EXPECT_EQ(faultsIn(file).refused, 3);
}

// Twenty bytes at a time are wrong within pictures: the decoder goes on, and makes up what it lost.
TEST(InputEnd, PicturesWithPartsMadeUpAreCountedWhateverTheThreads) {
  const TempDir folder;
  const auto file = folder / "damaged.avi";
  std::ifstream whole(fixture("mpeg4.avi"), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(whole), std::istreambuf_iterator<char>()};
  for (const double share : {0.3, 0.5, 0.7}) {
    const auto place = static_cast<size_t>(share * static_cast<double>(bytes.size()));
    for (size_t i = place; i < place + 20; ++i) bytes[i] = static_cast<char>(~bytes[i]);
  }
  std::ofstream(file, std::ios::binary) << bytes;
  for (const int count : {1, 2, 16}) {
    const ForcedCpuCount forced(count);
    const InputEnd end = faultsIn(file);
    EXPECT_GE(end.mended, 1) << count;
    EXPECT_LE(end.mended, 3) << count;
    EXPECT_EQ(faultsIn(fixture("mpeg4.avi")).mended, 0) << count;
  }
}

}  // namespace
}  // namespace kestrel::test
