#include <gmock/gmock.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/convert/Compose.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class PlacementTest : public testing::Test {
 protected:
  static std::shared_ptr<LMMovieCompositionTrack> track(const std::string& path) {
    auto made = std::make_shared<LMMovieCompositionTrack>();
    made->setPath(path);
    made->setPosition(2.5);
    made->setRate(3);
    return made;
  }

  /// Stores a dictionary as other programs might, and reads it.
  std::vector<Placement> loaded(const CodedValue::Dictionary& root) const {
    EXPECT_TRUE(KeyedArchiver::archiveRootObject(root, file_, nullptr));
    return loadPlacements(file_);
  }

  /// Why it is no composition.
  std::string refusal(const CodedValue::Dictionary& root) const {
    const Failure failure = failureOf([&] { loaded(root); });
    EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
    EXPECT_EQ(failure.subject(), file_);
    return failure.what();
  }

  TempDir folder_;
  const std::string file_ = (folder_ / "stored.plist").string();
};

TEST_F(PlacementTest, ComesBackAsItWasStored) {
  const std::vector<Placement> placements{
      {.path = "/clips/a.mp4", .track = 3, .position = 1.25, .rate = 1},
      {.path = "/clips/zwölf.mkv", .track = 0, .position = 604800, .rate = 0.5}};
  savePlacements(placements, file_);
  EXPECT_EQ(loadPlacements(file_), placements);
  savePlacements({}, file_);
  EXPECT_EQ(loadPlacements(file_), std::vector<Placement>{});
}

TEST_F(PlacementTest, PathsAreStoredFromTheRootOn) {
  savePlacements({{.path = "a.mp4"}}, file_);
  EXPECT_EQ(loadPlacements(file_).at(0).path, (std::filesystem::current_path() / "a.mp4").string());
}

TEST_F(PlacementTest, WithoutNumbersOfStreamsTheFirstIsMeant) {
  const CodedValue::Array tracks{track("/a.mp4"), track("/b.mp4")};
  EXPECT_THAT(loaded({{"tracks", tracks}}),
              ElementsAre(Placement{"/a.mp4", 0, 2.5, 3}, Placement{"/b.mp4", 0, 2.5, 3}));
}

TEST_F(PlacementTest, WhatIsNoCompositionIsRefused) {
  const CodedValue::Array one{track("/a.mp4")};
  const auto numbered = [&](int64_t number) {
    return CodedValue::Dictionary{{"tracks", one}, {"streams", CodedValue::Array{number}}};
  };
  EXPECT_THAT(refusal({}), HasSubstr("is no stored composition: its lists do not match"));
  EXPECT_THAT(refusal({{"tracks", one}, {"streams", CodedValue::Array{}}}),
              HasSubstr("its lists do not match"));
  EXPECT_THAT(refusal(numbered(-1)), HasSubstr("a stream's number is none"));
  EXPECT_THAT(refusal(numbered(int64_t{1} << 31)), HasSubstr("a stream's number is none"));
  EXPECT_EQ(loaded(numbered((int64_t{1} << 31) - 1)).at(0).track, 2147483647);
  writeBytes(file_, "no archive");
  EXPECT_THAT(failureOf([&] { loadPlacements(file_); }).what(),
              HasSubstr("'" + file_ + "' is no stored composition"));
}

TEST_F(PlacementTest, WhatCannotBeStoredIsRefused) {
  const Failure unnamed = failureOf([&] { savePlacements({{.path = "/\xFF.mp4"}}, file_); });
  EXPECT_EQ(unnamed.kind(), Failure::Kind::kOutput);
  EXPECT_THAT(unnamed.what(), HasSubstr("its name is no UTF-8"));
  EXPECT_FALSE(std::filesystem::exists(file_));
  const std::string nowhere = (folder_ / "absent" / "stored.plist").string();
  EXPECT_THAT(failureOf([&] { savePlacements({{.path = "/a.mp4"}}, nowhere); }).what(),
              HasSubstr("cannot write '" + nowhere + "'"));
}

}  // namespace
}  // namespace kestrel::test
