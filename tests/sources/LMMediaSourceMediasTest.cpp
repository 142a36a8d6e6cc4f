#include <gmock/gmock.h>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

using Medias = std::vector<std::shared_ptr<LMFFMedia>>;

Medias mediasOf(const std::string& fixtureName,
                const std::optional<IndexSet>& streams = std::nullopt) {
  return sourceOf(fixture(fixtureName))->createMediasWithStreams(streams);
}

TEST(LMMediaSourceMedias, PicturesAndSoundAreTwoMedias) {
  const auto medias = mediasOf("av25.mp4");
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_EQ(medias[1]->selectStreams(), IndexSet{1});
  EXPECT_TRUE(medias[0]->hasVideo() && !medias[0]->hasAudio());
  EXPECT_TRUE(medias[1]->hasAudio() && !medias[1]->hasVideo());
}

TEST(LMMediaSourceMedias, TheFirstReadsTheSourceItselfAndTheSecondACopy) {
  const auto source = sourceOf(fixture("av25.mp4"));
  const auto medias = source->createMedias();
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_EQ(medias[0]->source(), source);
  EXPECT_NE(medias[1]->source(), source);
  EXPECT_NE(medias[1]->formatContext(), source->formatContext());
  EXPECT_TRUE(medias[0]->isOpen() && medias[1]->isOpen());
}

TEST(LMMediaSourceMedias, SubtitlesAreSelectedInNeither) {
  const auto medias = mediasOf("av-tracks.mkv");
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_EQ(medias[1]->selectStreams(), (IndexSet{1, 2}));
  EXPECT_FALSE(medias[0]->hasSubtitle() || medias[1]->hasSubtitle());
  EXPECT_FALSE(medias[0]->streams()[3]->isOpen());
}

TEST(LMMediaSourceMedias, SoundAloneIsOneMediaOfTheSound) {
  const auto medias = mediasOf("audio-only.m4a");
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_TRUE(medias[0]->hasAudio());
}

TEST(LMMediaSourceMedias, PicturesAloneAreOneMediaOfThePictures) {
  const auto medias = mediasOf("video-only.mp4");
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_TRUE(medias[0]->hasVideo());
}

TEST(LMMediaSourceMedias, CoverPictureIsNoVideo) {
  const auto medias = mediasOf("cover.m4a");
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_FALSE(medias[0]->hasVideo());
}

TEST(LMMediaSourceMedias, TextAloneIsNone) { EXPECT_THAT(mediasOf("subtitles.srt"), IsEmpty()); }

TEST(LMMediaSourceMedias, WhatCannotBeOpenedIsNone) {
  const auto source = sourceOf("no-such-file.mp4");
  EXPECT_THAT(source->createMedias(), IsEmpty());
  EXPECT_TRUE(source->lastError());
}

TEST(LMMediaSourceMedias, OnlyTheStreamsAskedForCount) {
  const auto medias = mediasOf("av-tracks.mkv", IndexSet{0, 2, 3});
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{0});
  EXPECT_EQ(medias[1]->selectStreams(), IndexSet{2});
}

TEST(LMMediaSourceMedias, SoundAskedForAloneIsOneMedia) {
  const auto medias = mediasOf("av-tracks.mkv", IndexSet{1, 3});
  ASSERT_THAT(medias, SizeIs(1));
  EXPECT_EQ(medias[0]->selectStreams(), IndexSet{1});
  EXPECT_FALSE(medias[0]->streams()[3]->isOpen());
}

TEST(LMMediaSourceMedias, AskingForNoStreamOrForMissingOnesIsNone) {
  EXPECT_THAT(mediasOf("av25.mp4", IndexSet{}), IsEmpty());
  EXPECT_THAT(mediasOf("av25.mp4", IndexSet{7}), IsEmpty());
}

TEST(LMMediaSourceMedias, TheTwoReadIndependently) {
  const auto medias = mediasOf("av25.mp4");
  ASSERT_THAT(medias, SizeIs(2));
  while (medias[1]->forwardNextPacket()) {
  }
  EXPECT_EQ(medias[0]->last_pts(), AV_NOPTS_VALUE);
  EXPECT_EQ(medias[0]->videoFrameAtTime(0)->pts, 0);
}

TEST(LMMediaSourceMedias, TheyKeepTheSource) {
  auto source = sourceOf(fixture("av25.mp4"));
  const std::weak_ptr<LMMediaSource> watch = source;
  auto medias = source->createMedias();
  source.reset();
  EXPECT_FALSE(watch.expired());
  EXPECT_TRUE(medias[0]->forwardNextPacket());
  medias.clear();
  EXPECT_TRUE(watch.expired());
}

TEST(LMMediaSourceMedias, CopyAsksTheSameInterrupt) {
  const auto source = sourceOf(fixture("av25.mp4"));
  int asked = 0;
  source->setInterrupt([&asked] { return ++asked < 0; });
  const auto medias = source->createMedias();
  ASSERT_THAT(medias, SizeIs(2));
  const int before = asked;
  medias[1]->seek(kSecond);
  EXPECT_GT(asked, before);
}

TEST(LMMediaSourceMedias, DiscsCopyIsADisc) {
  auto source = std::make_shared<DiscLikeSource>();
  source->setFullpath(fixture("two-sounds.ts"));
  const auto medias = source->createMedias();
  ASSERT_THAT(medias, SizeIs(2));
  EXPECT_TRUE(medias[1]->source()->isDVD());
  EXPECT_NE(medias[1]->source(), source);
}

}  // namespace
}  // namespace kestrel::test
