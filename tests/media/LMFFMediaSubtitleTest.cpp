#include <gtest/gtest.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFMovie.h>

#include "tests/media/HandMade.h"
#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

// Texts: from 0.2 s to 0.9 s, and from 1.1 s to 1.8 s, in a time base of milliseconds.

const char* const kFirst = "First line";
const char* const kSecond_ = "Second line\nwith a second row";

class LMFFMediaText : public testing::TestWithParam<const char*> {
 protected:
  /// The file's texts alone.
  LMFFMediaText() {
    media_.setSource(sourceOf(fixture(GetParam())));
    media_.open();
    media_.setSelectStreams(IndexSet{static_cast<uint32_t>(media_.streams().size() - 1)});
    media_.updateSelectStreams();
  }

  std::optional<std::string> textAt(int64_t inMilliseconds) {
    return media_.subtitleStringAtTime(milliseconds(inMilliseconds));
  }

  LMFFMedia media_;
};

TEST_P(LMFFMediaText, IsShownFromAfterItsStartToBeforeItsEnd) {
  EXPECT_EQ(textAt(100), std::nullopt);
  EXPECT_EQ(textAt(200), std::nullopt);
  EXPECT_EQ(textAt(201), kFirst);
  EXPECT_EQ(textAt(550), kFirst);
  EXPECT_EQ(textAt(899), kFirst);
  EXPECT_EQ(textAt(900), std::nullopt);
}

TEST_P(LMFFMediaText, ReadsForwardAsFarAsItMust) {
  EXPECT_EQ(textAt(1500), kSecond_);
  EXPECT_EQ(textAt(1799), kSecond_);
  EXPECT_EQ(textAt(1800), std::nullopt);
}

TEST_P(LMFFMediaText, NoneIsShownBetweenTwo) {
  textAt(550);
  EXPECT_EQ(textAt(1000), std::nullopt);
  EXPECT_EQ(textAt(1100), std::nullopt);
  EXPECT_EQ(textAt(1101), kSecond_);
}

TEST_P(LMFFMediaText, NoneIsShownAfterTheLast) {
  EXPECT_EQ(textAt(60'000), std::nullopt);
  EXPECT_EQ(textAt(61'000), std::nullopt);
}

TEST_P(LMFFMediaText, IsFoundAgainAfterASeekToTheStart) {
  textAt(1500);
  textAt(60'000);
  media_.seek(0);
  EXPECT_EQ(textAt(550), kFirst);
  EXPECT_EQ(textAt(1500), kSecond_);
}

TEST_P(LMFFMediaText, EveryMillisecondIsRight) {
  for (int64_t t = 0; t <= 2000; ++t) {
    std::optional<std::string> expected;
    if (t > 200 && t < 900) expected = kFirst;
    if (t > 1100 && t < 1800) expected = kSecond_;
    ASSERT_EQ(textAt(t), expected) << t;
  }
}

std::string nameOfText(const testing::TestParamInfo<const char*>& file) {
  return std::string(file.param).ends_with("srt") ? "alone" : "in_a_movie";
}

INSTANTIATE_TEST_SUITE_P(Files, LMFFMediaText, testing::Values("subtitles.srt", "text.mkv"),
                         nameOfText);

class LMFFMediaOverlappingTexts : public testing::TestWithParam<const char*> {};

TEST_P(LMFFMediaOverlappingTexts, AreShownTogether) {
  struct Cue {
    int64_t start;
    int64_t end;
    const char* markup;
  };
  constexpr Cue kCues[] = {{200, 1500, "A sign that stays"},
                           {400, 700, "<i>First</i> words, over it"},
                           {600, 900, "An answer, before they end"},
                           {1000, 1300, "Twice the same"}};  // the longer of the two
  const auto media = openedMedia(fixture(GetParam()));
  for (const int64_t start : {0, 650}) {
    media->seek(milliseconds(start));
    for (int64_t t = start == 0 ? 0 : 1001; t <= 2000; ++t) {
      std::string expected;
      for (const Cue& cue : kCues)
        if (t > cue.start && t < cue.end)
          expected = cue.markup + (expected.empty() ? "" : "\n" + expected);
      ASSERT_EQ(media->subtitleMarkupAtTime(milliseconds(t)).value_or(""), expected) << t;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Files, LMFFMediaOverlappingTexts,
                         testing::Values("overlapping.srt", "overlapping.mkv"), nameOfText);

TEST(LMFFMediaTexts, SeekToTheStartOfATextFileFallsBackOnItsFirstLine) {
  // No line begins at or before 0, so there is none to seek back to by time.
  const auto media = openedMedia(fixture("subtitles.srt"));
  ASSERT_LT(av_seek_frame(media->formatContext(), -1, 0, AVSEEK_FLAG_BACKWARD), 0);
  while (media->forwardNextPacket()) {
  }
  media->seek(0);
  EXPECT_EQ(media->subtitleStringAtTime(milliseconds(550)), kFirst);
}

TEST(LMFFMediaTexts, AreFoundInAMediaThatHasPicturesToo) {
  const auto media = openedMedia(fixture("text.mkv"));
  EXPECT_EQ(media->subtitleStringAtTime(milliseconds(550)), kFirst);
  EXPECT_EQ(media->subtitleStringAtTime(milliseconds(1500)), kSecond_);
  EXPECT_EQ(media->subtitleStringAtTime(milliseconds(5000)), std::nullopt);
}

TEST(LMFFMediaTexts, MediaWithoutSubtitlesHasNone) {
  const auto media = openedMedia(fixture("av25.mp4"));
  EXPECT_EQ(media->subtitleStringAtTime(milliseconds(550)), std::nullopt);
  EXPECT_EQ(media->subtitleAtTime(milliseconds(550)), nullptr);
  EXPECT_EQ(media->last_pts(), AV_NOPTS_VALUE);
}

// Bitmaps: a media with a subpicture stream beside its own streams.

constexpr int64_t kTicks = 90000;  // per second

class LMFFMediaBitmap : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    media_ = openedMedia(fixture(GetParam()));
    AVFormatContext* context = media_->formatContext();
    AVStream* stream = avformat_new_stream(context, nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    stream->codecpar->codec_id = AV_CODEC_ID_DVD_SUBTITLE;
    stream->time_base = {1, kTicks};
    media_->open();
    ASSERT_TRUE(media_->hasSubtitle());
    start_ = av_rescale_q(media_->start_time(), kMicroseconds, {1, kTicks});
  }

  /// Routes a subpicture that is shown from one second on for 90 × 1024 / 90 = 1024 ms.
  void route() { route(kTicks, 9, 90); }

  /// Routes one that is shown from a tick on; without an end it is shown until the next.
  void route(int64_t tick, int width, int end) {
    const PacketPtr packet =
        packetOf(subpictureBytes(
                     {.x = 2, .y = 4, .width = width, .height = 5, .paletteIndex = 1, .end = end}),
                 start_ + tick);
    packet->stream_index = static_cast<int>(media_->streams().size()) - 1;
    media_->forwardPacket(packet.get());
  }

  /// Routes the pictures of the file, which another reader reads, until the one shown at a tick is
  /// the current one.
  void routePicturesUpTo(int64_t tick) {
    const auto reader = openedMedia(fixture(GetParam()));
    const auto pictures = media_->videoStream();
    const PacketPtr packet = makePacket();
    const auto isThere = [&] {
      const AVFrame& frame = *pictures->frame();
      return frame.data[0] && av_compare_ts(frame.pts, toAV(pictures->timebase()),
                                            start_ + tick - kTicks / 25, {1, kTicks}) > 0;
    };
    while (!isThere()) {
      ASSERT_GE(av_read_frame(reader->formatContext(), packet.get()), 0);
      if (packet->stream_index == pictures->stream()->index) media_->forwardPacket(packet.get());
      av_packet_unref(packet.get());
    }
  }

  /// The width of what is shown, 0 where nothing is.
  double widthAt(int64_t tick) {
    const auto image = shownAt(tick);
    return image ? image->extent().size.width : 0;
  }

  /// What is shown so many ticks after the media's start; the time is asked for in microseconds
  /// that fall onto that tick.
  std::shared_ptr<const Image> shownAt(int64_t tick) {
    return media_->subtitleAtTime(av_rescale_q(start_ + tick, {1, kTicks}, kMicroseconds) -
                                  media_->start_time());
  }

  std::shared_ptr<LMFFMedia> media_;
  int64_t start_ = 0;
};

constexpr int64_t kLength = kTicks * 1024 / 1000;

TEST_P(LMFFMediaBitmap, NoneIsShownBeforeOneWasRead) { EXPECT_EQ(shownAt(kTicks + 1), nullptr); }

TEST_P(LMFFMediaBitmap, NoneIsShownAtItsVeryStart) {
  route();
  EXPECT_EQ(shownAt(kTicks), nullptr);
  EXPECT_EQ(shownAt(kTicks - 1), nullptr);
}

TEST_P(LMFFMediaBitmap, IsShownOneTickLater) {
  route();
  ASSERT_NE(shownAt(kTicks + 1), nullptr);
  EXPECT_EQ(shownAt(kTicks + 1)->extent().size, (Size{9, 5}));
}

TEST_P(LMFFMediaBitmap, IsShownUntilOneTickBeforeItsEnd) {
  route();
  EXPECT_NE(shownAt(kTicks + kLength - 1), nullptr);
}

TEST_P(LMFFMediaBitmap, NoneIsShownAtItsVeryEnd) {
  route();
  EXPECT_EQ(shownAt(kTicks + kLength), nullptr);
  EXPECT_EQ(shownAt(kTicks + kLength + 1), nullptr);
}

TEST_P(LMFFMediaBitmap, AskingNeverReads) {
  route();
  const int64_t position = media_->last_pts();
  shownAt(kTicks / 2);
  shownAt(10 * kTicks);
  EXPECT_EQ(media_->last_pts(), position);
}

TEST_P(LMFFMediaBitmap, NoneIsShownAfterASeek) {
  route();
  media_->subtitleStream()->seek(start_);
  EXPECT_EQ(shownAt(kTicks + 1), nullptr);
}

TEST_P(LMFFMediaBitmap, EachIsShownAtItsTimeThoughAllWereRead) {
  route(kTicks, 9, 90);
  route(3 * kTicks, 10, 90);
  route(4 * kTicks, 11, 0);
  route(6 * kTicks, 12, 90);
  for (int64_t tick = 0; tick < 8 * kTicks; tick += kTicks / 90) {
    double expected = 0;
    if (tick > kTicks && tick < kTicks + kLength) expected = 9;
    if (tick > 3 * kTicks) expected = 10;  // the next one comes before its end
    if (tick > 4 * kTicks) expected = 11;  // open-ended
    if (tick > 6 * kTicks) expected = tick < 6 * kTicks + kLength ? 12 : 0;
    ASSERT_EQ(widthAt(tick), expected) << tick;
  }
}

TEST_P(LMFFMediaBitmap, OneThatIsReadAgainReplacesWhatFollowedIt) {
  route(kTicks, 9, 0);
  route(2 * kTicks, 10, 0);
  route(3 * kTicks, 11, 0);
  route(2 * kTicks, 12, 0);
  route(4 * kTicks, 13, 0);
  EXPECT_EQ(widthAt(kTicks + 1), 9);
  EXPECT_EQ(widthAt(2 * kTicks + 1), 12);
  EXPECT_EQ(widthAt(3 * kTicks + 1), 12);
}

TEST_P(LMFFMediaBitmap, ThoseBeforeTheCurrentPictureAreForgotten) {
  route(0, 9, 0);
  route(kTicks / 2, 10, 0);
  route(kTicks, 11, 0);
  routePicturesUpTo(kTicks * 3 / 2);
  route(2 * kTicks, 12, 0);
  EXPECT_EQ(widthAt(kTicks / 4), 0);
  EXPECT_EQ(widthAt(kTicks * 3 / 4), 0);
  EXPECT_EQ(widthAt(kTicks * 3 / 2), 11);
}

TEST_P(LMFFMediaBitmap, NoEarlierOneIsShownAfterASeek) {
  route(0, 9, 0);
  route(kTicks, 10, 0);
  media_->subtitleStream()->seek(start_);
  EXPECT_EQ(widthAt(kTicks / 2), 0);
  EXPECT_EQ(widthAt(kTicks * 2), 0);
}

std::string nameOfPictures(const testing::TestParamInfo<const char*>& file) {
  return std::string(file.param).ends_with("ts") ? "from_ten_seconds" : "from_zero";
}

INSTANTIATE_TEST_SUITE_P(Files, LMFFMediaBitmap, testing::Values("av25.mp4", "av25.ts"),
                         nameOfPictures);

}  // namespace
}  // namespace kestrel::test
