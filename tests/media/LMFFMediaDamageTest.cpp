#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/media/Media.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

struct Read {
  std::vector<uint32_t> sums;  // of the pictures, in order
  int64_t errors = 0;
};

Read readThrough(const std::filesystem::path& file) {
  const auto media = videoMediaOf(file);
  const auto stream = media->videoStream();
  Read read;
  while (media->forwardStream(stream))
    if (stream->hasFrame()) read.sums.push_back(pictureSum(*stream->frame()));
  read.errors = stream->decodeErrors();
  return read;
}

/// A fixture without its last bytes: it ends within a picture.
std::filesystem::path cutOff(const TempDir& dir, const std::string& name, double share) {
  std::ifstream whole(fixture(name), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(whole), {}};
  bytes.resize(static_cast<size_t>(share * static_cast<double>(bytes.size())));
  std::filesystem::path file = dir / name;
  std::ofstream(file, std::ios::binary) << bytes;
  return file;
}

class TruncatedFile : public testing::TestWithParam<const char*> {};

// The pictures before the damaged one are still in the decoder's threads when the input ends.
TEST_P(TruncatedFile, LosesNoPictureOnAnyMachine) {
  const TempDir dir;
  for (const double share : {0.31, 0.5, 0.83}) {
    const auto file = cutOff(dir, GetParam(), share);
    const auto expected = pictureSumsOf(file, 1);
    ASSERT_GT(expected.size(), 5u);
    int64_t errors = -1;
    for (const int count : {1, 2, 16}) {
      const ForcedCpuCount forced(count);
      const Read read = readThrough(file);
      ASSERT_EQ(read.sums.size(), expected.size()) << share << ", " << count << " processors";
      // What was made up for the missing part is not always the same.
      const auto [mine, other] = std::ranges::mismatch(read.sums, expected);
      if (mine != read.sums.end()) {
        EXPECT_TRUE(std::ranges::equal(mine + 1, read.sums.end(), other + 1, expected.end()))
            << share << ", " << count << " processors";
      }
      if (errors >= 0) {
        EXPECT_EQ(read.errors, errors) << share << " of it, " << count << " processors";
      }
      errors = read.errors;
    }
  }
}

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  for (char& c : name)
    if (c == '.' || c == '-') c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, TruncatedFile,
                         testing::Values("vp9.ivf", "vp8.ivf", "mpeg4.avi", "video-only.mkv",
                                         "open-groups.ts", "h264.flv"),
                         nameOf);

// The encoder's number, without which such pictures are green, stands in the first packet alone.
TEST(LMFFMediaDamage, PicturesThatNeedTheFirstPacketAreRightAfterASeek) {
  KESTREL_NEED_MEDIA("cockatoo-720p20-h264-mp3.mp4");
  const auto file = mediaFile("cockatoo-720p20-h264-mp3.mp4");
  const auto sums = pictureSumsOf(file);
  const auto middles = middlesOf(*videoMediaOf(file), pictureTimesOf(file));
  ASSERT_EQ(sums.size(), middles.size());
  for (const int count : {1, 2, 16}) {
    const ForcedCpuCount forced(count);
    const auto media = videoMediaOf(file);
    for (const size_t picture : {160, 161, 40, 250}) {
      media->seek(middles[picture]);
      const auto found = media->pictureAtTime(middles[picture]);
      ASSERT_TRUE(found);
      ASSERT_EQ(pictureSum(*found.frame), sums[picture]) << picture << ", " << count;
    }
  }
}

}  // namespace
}  // namespace kestrel::test
