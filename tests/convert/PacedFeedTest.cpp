#include "convert/feed/PacedFeed.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Pictures.h"

namespace kestrel::test {
namespace {

/// What a feed is to give: each of the pictures that ffmpeg decodes has a place of its own, the
/// tick that its time lies in or the next that is free, and keeps it until the next one's.
std::vector<uint32_t> expectedPictures(const std::vector<TimedPicture>& pictures, double rate) {
  constexpr double kRounding = 0.0011;  // seconds: times of containers that count milliseconds
  const auto tickOf = [&](double time) {
    return static_cast<size_t>(std::floor((time + kRounding) * rate));
  };
  std::vector<uint32_t> sums;
  for (const TimedPicture& picture : pictures) {
    const size_t place = sums.empty() ? 0 : std::max(sums.size(), tickOf(picture.start));
    while (sums.size() < place) sums.push_back(sums.back());
    sums.push_back(picture.sum);
  }
  while (sums.size() < tickOf(pictures.back().end)) sums.push_back(sums.back());
  return sums;
}

std::vector<uint32_t> fedPictures(const std::filesystem::path& file, Rational rate) {
  const auto source = LMMediaSource::mediaWithPath(file.string());
  source->open();
  LMFFMovie movie;
  movie.setExportMovie(true);
  movie.openMedias(source->createMedias());
  movie.seek(0);
  movie.flushOperation();
  std::vector<uint32_t> sums;
  movie.decodeImage(
      [&] {
        PacedFeed feed(movie, 0, {}, rate);
        while (const auto picture = feed.next()) sums.push_back(pictureSum(*picture->getFrame()));
      },
      true);
  return sums;
}

/// Pictures at any times, at a constant rate, and few a second.
class PacedFeedGrid : public testing::TestWithParam<const char*> {};

TEST_P(PacedFeedGrid, LeavesNoPictureOut) {
  const auto file = fixture(GetParam());
  const auto pictures = timedPicturesOf(file);
  for (const int processors : {1, 2, 16}) {
    const ForcedCpuCount forced(processors);
    for (const Rational rate : {Rational{25, 1}, {60, 1}, {30000, 1001}}) {
      SCOPED_TRACE(testing::Message() << processors << " processors, " << rate.num);
      const double perSecond = static_cast<double>(rate.num) / rate.den;
      EXPECT_EQ(fedPictures(file, rate), expectedPictures(pictures, perSecond));
    }
  }
}

std::string nameOf(const testing::TestParamInfo<const char*>& clip) {
  std::string name = clip.param;
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(c); }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Clips, PacedFeedGrid,
                         testing::Values("numbered25.mp4", "numbered-vfr.mp4", "raw-vfr.mkv",
                                         "slow5.ts"),
                         nameOf);

}  // namespace
}  // namespace kestrel::test
