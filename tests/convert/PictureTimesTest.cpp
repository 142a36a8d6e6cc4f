#include "convert/probe/PictureTimes.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>

#include <filesystem>
#include <vector>

#include "tests/support/EditList.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;

std::vector<int64_t> timesIn(const std::filesystem::path& file) {
  const auto source = LMMediaSource::mediaWithPath(file.string());
  source->open();
  return pictureTimes(*source);
}

/// So many times, 40 ms apart.
std::vector<int64_t> everyTick(int count) {
  std::vector<int64_t> times;
  for (int i = 0; i < count; ++i) times.push_back(int64_t{40'000} * i);
  return times;
}

TEST(PictureTimes, RiseWhateverTheOrderOfDecoding) {
  EXPECT_EQ(timesIn(fixture("groups-h264.mp4")), everyTick(50));
}

TEST(PictureTimes, OfHiddenPicturesDoNotCount) {
  const TempDir folder;
  const auto edited = folder / "edited.mp4";
  std::filesystem::copy_file(fixture("groups-h264.mp4"), edited);
  // From the fourth picture on, ten of them; times are 2 x 512 ticks late for the decoder.
  setEdits(edited, {{400, 2 * 512 + 3 * 512}});
  EXPECT_EQ(timesIn(edited), everyTick(10));
}

TEST(PictureTimes, OfNoPicturesAreNone) {
  EXPECT_THAT(timesIn(fixture("audio-only.m4a")), IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
