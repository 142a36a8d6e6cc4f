#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;

int64_t microseconds(const nlohmann::json& seconds) {
  return std::llround(std::stod(seconds.get<std::string>()) * 1e6);
}

// Facts, as ffprobe tells them.

TEST(LMFFMediaFacts, AreTheContainersAndItsStreams) {
  const auto file = fixture("av25.mp4");
  const auto json = ffprobeJson(file);
  const auto media = openedMedia(file);
  EXPECT_EQ(media->videoFormat(), (LMFFVideoFormat{AV_PIX_FMT_YUV420P, 320, 180}));
  EXPECT_EQ(media->framerate(), 25.0F);
  EXPECT_EQ(std::to_string(media->videoBitrate()), json["streams"][0]["bit_rate"]);
  EXPECT_EQ(std::to_string(media->audioBitrate()), json["streams"][1]["bit_rate"]);
  EXPECT_EQ(std::to_string(media->fileBitrate()), json["format"]["bit_rate"]);
  EXPECT_EQ(media->duration(), microseconds(json["format"]["duration"]));
  EXPECT_EQ(media->start_time(), 0);
}

TEST(LMFFMediaFacts, OfATypeAreItsLastStreams) {
  const auto file = fixture("av-tracks.mkv");
  const auto media = openedMedia(file);
  media->streams()[1]->codecContext()->bit_rate = 1;
  media->streams()[2]->codecContext()->bit_rate = 2;
  EXPECT_EQ(media->audioBitrate(), 2);
  media->streams()[2]->setEnable(false);
  EXPECT_EQ(media->audioBitrate(), 1);
}

TEST(LMFFMediaFacts, StartTimeIsTheContainersFirst) {
  const auto file = fixture("av25.ts");
  const auto json = ffprobeJson(file);
  EXPECT_EQ(openedMedia(file)->start_time(), microseconds(json["format"]["start_time"]));
  EXPECT_GE(openedMedia(file)->start_time(), 9 * kSecond);
}

TEST(LMFFMediaFacts, DurationThatTheHeaderDoesNotTellIsMeasured) {
  const auto file = fixture("av-live.mkv");
  ASSERT_FALSE(ffprobeJson(file)["format"].contains("duration"));
  int64_t end = 0;
  const auto packets = ffprobeJson(file, {"-show_packets"})["packets"];
  for (const auto& packet : packets) {
    const int64_t duration = packet.contains("duration") ? packet["duration"].get<int64_t>() : 0;
    end = std::max(end, (packet["pts"].get<int64_t>() + duration) * 1000);
  }
  const auto media = openedMedia(file);
  EXPECT_EQ(media->duration(), end - media->start_time());
  EXPECT_NEAR(static_cast<double>(media->duration()), 2e6, 1e5);
}

TEST(LMFFMediaFacts, InputWithoutAnyTimeLastsAsLongAsItsPackets) {
  EXPECT_EQ(openedMedia(fixture("bare.h264"))->duration(), 2 * kSecond);
}

TEST(LMFFMediaFacts, MeasuringTheDurationDoesNotMoveTheReader) {
  const auto media = openedMedia(fixture("av-live.mkv"));
  media->forwardNextPacket();
  const int64_t position = media->last_pts();
  media->duration();
  EXPECT_EQ(media->last_pts(), position);
  int packets = 1;
  while (media->forwardNextPacket()) ++packets;
  EXPECT_GE(packets, 50);
}

/// Counts its copies.
class CountingSource : public MemorySource {
 public:
  CountingSource(Bytes bytes, int& copies)
      : MemorySource(bytes), bytes_(std::move(bytes)), copies_(copies) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    ++copies_;
    return std::make_shared<MemorySource>(bytes_);
  }

 private:
  Bytes bytes_;
  int& copies_;
};

TEST(LMFFMediaFacts, DurationIsMeasuredOnce) {
  int copies = 0;
  LMFFMedia media;
  media.setSource(std::make_shared<CountingSource>(bytesOf(fixture("av-live.mkv")), copies));
  media.open();
  const int64_t duration = media.duration();
  EXPECT_GT(duration, 0);
  EXPECT_EQ(media.duration(), duration);
  EXPECT_EQ(copies, 1);
}

// Copies.

TEST(LMFFMediaCopy, TakesPlaceAndSelectionsOver) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setMovie_position(3 * kSecond);
  media->setSelectStreams(IndexSet{0, 1});
  media->setSelectAudios(IndexSet{0});
  media->setSelectSubtitles(IndexSet{});
  const auto copy = media->copy();
  EXPECT_EQ(copy->movie_position(), 3 * kSecond);
  EXPECT_EQ(copy->selectStreams(), (IndexSet{0, 1}));
  EXPECT_EQ(copy->selectAudios(), IndexSet{0});
  EXPECT_EQ(copy->selectSubtitles(), IndexSet{});
}

TEST(LMFFMediaCopy, IsUnopenedAndBelongsToNoMovie) {
  LMFFMovie movie;
  const auto media = openedMedia(fixture("av25.mp4"));
  media->setMovie(&movie);
  const auto copy = media->copy();
  EXPECT_FALSE(copy->isOpen());
  EXPECT_THAT(copy->streams(), IsEmpty());
  EXPECT_EQ(copy->movie(), nullptr);
  media->setMovie(nullptr);
}

TEST(LMFFMediaCopy, ReadsThroughASourceOfItsOwn) {
  const auto media = openedMedia(fixture("av25.mp4"));
  const auto copy = media->copy();
  EXPECT_NE(copy->source(), media->source());
  EXPECT_EQ(copy->source()->fullpath(), media->source()->fullpath());
  copy->open();
  EXPECT_NE(copy->formatContext(), media->formatContext());
  while (copy->forwardNextPacket()) {
  }
  EXPECT_EQ(media->last_pts(), AV_NOPTS_VALUE);
  EXPECT_TRUE(media->forwardNextPacket());
}

TEST(LMFFMediaCopy, OfAMediaWithoutASourceHasNone) {
  EXPECT_EQ(LMFFMedia().copy()->source(), nullptr);
}

TEST(LMFFMediaCopy, AsksTheSameInterrupt) {
  const auto media = openedMedia(fixture("av25.mp4"));
  int asked = 0;
  media->source()->setInterrupt([&asked] { return ++asked < 0; });
  media->copy()->open();
  EXPECT_GT(asked, 0);
}

// Content access.

TEST(LMFFMediaContent, IsAlwaysThere) {
  LMFFMedia media;
  EXPECT_FALSE(media.isContentDiscarded());
  EXPECT_TRUE(media.beginContentAccess());
  media.discardContentIfPossible();
  media.endContentAccess();
  EXPECT_FALSE(media.isContentDiscarded());
  EXPECT_TRUE(media.beginContentAccess());
}

TEST(LMFFMediaContent, SubtitlesGiveNoTextsHere) {
  const AVSubtitle subtitle{};
  EXPECT_THAT(LMFFMedia().textsFromAVSubtitle(&subtitle), IsEmpty());
  EXPECT_THAT(LMFFMedia().textsFromAVSubtitle(nullptr), IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
