#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/output/MovieOutput.h"
#include "tests/support/EditList.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// What of a clip of 50 pictures, 25 a second and a key picture every 8, an edit list shows.
struct Case {
  std::string name;
  std::vector<std::pair<int, int>> shown;  // first picture and number of pictures
  std::string container;
  int mostEncoded = 0;  // how many pictures may have to be encoded
};

class CopiedHiddenPictures : public testing::TestWithParam<Case> {};

TEST_P(CopiedHiddenPictures, StayHidden) {
  constexpr int kTicks = 512;  // of a picture
  constexpr int kFirst = 2 * kTicks;
  const TempDir dir;
  const auto edited = dir / "edited.mp4";
  std::filesystem::copy_file(fixture(GetParam().name), edited);
  std::vector<Edit> edits;
  for (const auto& [first, count] : GetParam().shown)
    edits.push_back(
        {static_cast<uint32_t>(40 * count), static_cast<uint32_t>(kFirst + first * kTicks)});
  setEdits(edited, edits);

  const auto copy = dir / ("copy." + GetParam().container);
  PacketReader reader(edited);
  LMFFMovieFileOutput output;
  output.setPath(copy.string());
  output.copyOutputStream(reader.video());
  ASSERT_TRUE(output.startOutput()) << output.lastError().message;
  while (const auto item = reader.next()) output.writeVideoPacket(item);
  output.stopOutput();
  EXPECT_FALSE(output.lastError()) << output.lastError().message;
  EXPECT_LE(output.picturesEncodedToHide(), GetParam().mostEncoded);

  const auto all = pictureSums(fixture(GetParam().name));
  const auto lumas = meanLumas(fixture(GetParam().name));
  std::vector<std::string> expected;
  std::vector<double> expectedLumas;
  for (const auto& [first, count] : GetParam().shown) {
    expected.insert(expected.end(), all.begin() + first, all.begin() + first + count);
    expectedLumas.insert(expectedLumas.end(), lumas.begin() + first, lumas.begin() + first + count);
  }
  const auto sums = pictureSums(copy);
  ASSERT_EQ(sums.size(), expected.size());
  int different = 0;
  for (size_t i = 0; i < sums.size(); ++i) different += sums[i] == expected[i] ? 0 : 1;
  EXPECT_LE(different, output.picturesEncodedToHide());
  const auto copiedLumas = meanLumas(copy);
  for (size_t i = 0; i < sums.size(); ++i) EXPECT_NEAR(copiedLumas[i], expectedLumas[i], 0.5) << i;
}

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const std::string container : {"mp4", "mkv", "ts"}) {
    const bool hides = container == "mp4";
    for (const std::string clip : {"groups-h264.mp4", "groups-hevc.mp4"}) {
      all.push_back({clip, {{8, 16}}, container, 0});
      all.push_back({clip, {{0, 8}, {24, 8}, {16, 8}}, container, 0});
      all.push_back({clip, {{11, 20}}, container, (hides ? 0 : 5) + 2});  // at the end: a few
      all.push_back({clip, {{8, 8}, {27, 10}}, container, 5 + 2});
    }
  }
  return all;
}

std::string nameOf(const testing::TestParamInfo<Case>& info) {
  std::string name = info.param.name + "_" + info.param.container;
  for (const auto& [first, count] : info.param.shown)
    name += "_" + std::to_string(first) + "_" + std::to_string(count);
  for (char& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(, CopiedHiddenPictures, testing::ValuesIn(cases()), nameOf);

}  // namespace
}  // namespace kestrel::test
