#include <gmock/gmock.h>
#include <kestrel/convert/DiscInfo.h>
#include <kestrel/convert/Failure.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What is on the disc is what tests/fixtures/dvd/make_disc.py says that it puts there.
fs::path disc() { return discFixture("pal") / "disc"; }

std::vector<std::string> languagesOf(const std::vector<LMDVDTrack>& tracks) {
  std::vector<std::string> languages;
  for (const LMDVDTrack& track : tracks) languages.push_back(track.language);
  return languages;
}

TEST(DiscInfo, TellsWhatTheTitlesAre) {
  const DiscInfo info = readDiscInfo(disc().string());
  EXPECT_EQ(info.path, disc().string());
  EXPECT_EQ(info.titleSets, 2);
  EXPECT_THAT(info.findings, IsEmpty());
  ASSERT_EQ(info.titles.size(), 4u);

  const DiscTitleInfo& first = info.titles[0];
  EXPECT_EQ(first.number, 1);
  EXPECT_EQ(first.titleSet, 1);
  EXPECT_EQ(first.duration, 8'000'000);
  ASSERT_EQ(first.chapters.size(), 4u);
  EXPECT_EQ(first.chapters[1].start, 2'000'000);
  EXPECT_EQ(first.chapters[1].end, 4'000'000);
  EXPECT_EQ(first.chapters[3].end, 8'000'000);
  ASSERT_TRUE(first.pictures);
  EXPECT_EQ(first.pictures->width, 720);
  EXPECT_EQ(first.pictures->height, 576);
  EXPECT_EQ(first.pictures->aspect, (Rational{16, 9}));
  EXPECT_EQ(first.standard, "PAL");
  EXPECT_THAT(languagesOf(first.audio), ElementsAre("en", "fr", "de"));
  EXPECT_THAT(languagesOf(first.subtitles), ElementsAre("en", "fr"));
  EXPECT_FALSE(first.whyMain.empty());
  EXPECT_FALSE(first.sameAs);

  EXPECT_EQ(info.titles[2].sameAs, 1);
  EXPECT_EQ(info.titles[3].titleSet, 2);
  EXPECT_EQ(info.titles[3].pictures->aspect, (Rational{4, 3}));
  EXPECT_THAT(languagesOf(info.titles[3].audio), ElementsAre(""));
}

TEST(DiscInfo, FindsTheTitleThatCannotBeRead) {
  const TempDir folder;
  fs::copy(disc(), folder / "disc", fs::copy_options::recursive);
  fs::remove(folder / "disc/VIDEO_TS/VTS_02_1.VOB");
  const DiscInfo info = readDiscInfo((folder / "disc").string());
  ASSERT_EQ(info.titles.size(), 4u);
  EXPECT_EQ(info.titles[0].problem, "");
  EXPECT_NE(info.titles[3].problem, "");
  EXPECT_FALSE(info.titles[3].pictures);
  EXPECT_EQ(info.titles[3].standard, "");
  EXPECT_THAT(info.findings, ElementsAre(HasSubstr("title 4: ")));
}

TEST(DiscInfo, WhatIsNoDiscIsRefused) {
  const TempDir folder;
  EXPECT_THROW(readDiscInfo(folder.path().string()), Failure);
}

}  // namespace
}  // namespace kestrel::test
