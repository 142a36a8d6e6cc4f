#include <gmock/gmock.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/LibMedia.h>
#include <kestrel/OperationQueue.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavutil/log.h>
#include <fstream>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Media = std::shared_ptr<LMFFMedia>;

std::vector<Media> mediasOf(const char* name) { return sourceOf(fixture(name))->createMedias(); }

Media at(Media media, int64_t position) {
  media->setMovie_position(position);
  return media;
}

/// A media over nothing.
Media missing() { return openedMedia("no-such-file.mp4"); }

class LMFFMovieTest : public testing::Test {
 protected:
  void open(const char* name) { movie_.openMedias(mediasOf(name)); }

  LMFFMovie movie_;
};

// Set-up.

TEST_F(LMFFMovieTest, SetUpActsOnce) {
  LMFFMovie::initialize();
  EXPECT_EQ(av_log_get_level(), 8);
  av_log_set_level(AV_LOG_ERROR);
  LMFFMovie::initialize();
  LMFFMovie();
  EXPECT_EQ(av_log_get_level(), AV_LOG_ERROR);
  av_log_set_level(AV_LOG_FATAL);
}

TEST_F(LMFFMovieTest, SetUpMayRunOnSeveralThreads) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([] { LMFFMovie::initialize(); });
}

TEST_F(LMFFMovieTest, StartsWithAQueueAnEffectStreamAndFullVolume) {
  ASSERT_TRUE(movie_.decodeQueue());
  EXPECT_EQ(movie_.decodeQueue()->maxConcurrentOperationCount(), 1);
  EXPECT_TRUE(movie_.videoEffectStream());
  EXPECT_EQ(movie_.volume(), 1.0);
  EXPECT_EQ(movie_.audioOutputGraph(), nullptr);
  EXPECT_THAT(movie_.medias(), IsEmpty());
  EXPECT_EQ(movie_.subtitle(), nullptr);
  EXPECT_FALSE(movie_.disableVideo() || movie_.exportMovie());
  EXPECT_FALSE(movie_.copy_video_stream() || movie_.copy_audio_stream());
}

void expectNothingIn(const LMFFMovie& movie) {
  EXPECT_FALSE(movie.hasAudio() || movie.hasVideo() || movie.hasSubtitle());
  EXPECT_EQ(movie.duration(), 0);
  EXPECT_EQ(movie.framerate(), 0.0F);
  EXPECT_EQ(movie.videoBitrate(), 0);
  EXPECT_EQ(movie.audioBitrate(), 0);
  EXPECT_EQ(movie.fileBitrate(), 0);
  EXPECT_EQ(movie.videoCodec(), 0);
  EXPECT_EQ(movie.audioCodec(), 0);
  EXPECT_EQ(movie.videoMedia(), nullptr);
  EXPECT_EQ(movie.currentVideoMedia(), nullptr);
  EXPECT_EQ(movie.currentAudioMedia(), nullptr);
  EXPECT_EQ(movie.videoMediaAtTime(0), nullptr);
  EXPECT_EQ(movie.currentVideoMediaMaxTime(), 0);
  EXPECT_THAT(movie.audios(), IsEmpty());
  EXPECT_THAT(movie.videos(), IsEmpty());
  EXPECT_THAT(movie.audioStreams(), IsEmpty());
  EXPECT_THAT(movie.subtitleStreams(), IsEmpty());
  EXPECT_EQ(movie.selectAudioStreams(), std::nullopt);
  EXPECT_EQ(movie.selectSubtitleStreams(), std::nullopt);
}

TEST_F(LMFFMovieTest, WithoutMediasAnswersNothing) {
  expectNothingIn(movie_);
  movie_.openMedias({});
  expectNothingIn(movie_);
}

// Opening.

TEST_F(LMFFMovieTest, OpensItsMediasAndIsTheirMovie) {
  auto first = std::make_shared<LMFFMedia>();
  first->setSource(sourceOf(fixture("av25.mp4")));
  const auto second = openedMedia(fixture("audio-only.m4a"));
  movie_.openMedias({first, second});
  EXPECT_THAT(movie_.medias(), ElementsAre(first, second));
  EXPECT_TRUE(first->isOpen());
  EXPECT_EQ(first->movie(), &movie_);
  EXPECT_EQ(second->movie(), &movie_);
}

TEST_F(LMFFMovieTest, MediaThatCannotBeOpenedStaysAndContributesNothing) {
  const auto bad = missing();
  const auto good = openedMedia(fixture("av25.mp4"));
  movie_.openMedias({bad, good});
  EXPECT_THAT(movie_.medias(), ElementsAre(bad, good));
  EXPECT_THAT(movie_.audios(), ElementsAre(good));
  EXPECT_THAT(movie_.videos(), ElementsAre(good));
  EXPECT_EQ(movie_.duration(), good->duration());
}

TEST_F(LMFFMovieTest, MovieOfNothingButSuchAMediaAnswersNothing) {
  movie_.openMedias({missing()});
  expectNothingIn(movie_);
}

TEST_F(LMFFMovieTest, LastsUntilTheLastMediaEnds) {
  const auto first = at(openedMedia(fixture("av25.mp4")), 7 * kSecond);
  const auto second = at(openedMedia(fixture("audio-only.m4a")), kSecond);
  movie_.openMedias({first, second});
  EXPECT_EQ(movie_.duration(), 7 * kSecond + first->duration());
  first->setMovie_position(0);
  movie_.getMaxMediaDuration();
  EXPECT_EQ(movie_.duration(), kSecond + second->duration());
}

TEST_F(LMFFMovieTest, AudioOutputIsMadeOnceAndAsksTheMovie) {
  open("av25.mp4");
  const auto graph = movie_.audioOutputGraph();
  ASSERT_TRUE(graph);
  EXPECT_NE(graph->delegate(), nullptr);
  movie_.openAudioOutput();
  EXPECT_EQ(movie_.audioOutputGraph(), graph);
  open("audio-only.m4a");
  EXPECT_EQ(movie_.audioOutputGraph(), graph);
}

TEST_F(LMFFMovieTest, AudioOutputThatIsThereIsKept) {
  const auto own = std::make_shared<LMOutputAudioGraph>();
  movie_.setAudioOutputGraph(own);
  open("av25.mp4");
  EXPECT_EQ(movie_.audioOutputGraph(), own);
}

TEST_F(LMFFMovieTest, EffectStreamShowsTheFirstVideoMediaWhole) {
  const auto sound = openedMedia(fixture("audio-only.m4a"));
  const auto first = openedMedia(fixture("raw.avi"));
  movie_.openMedias({sound, first, openedMedia(fixture("av25.mp4"))});
  const auto stream = movie_.videoEffectStream();
  EXPECT_EQ(stream->media(), first);
  EXPECT_EQ(movie_.videoMedia(), first);
  EXPECT_EQ(stream->outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 64, 36}));
  EXPECT_EQ(stream->cropRect(), (Rect{{0, 0}, {64, 36}}));
  stream->writeFrame(first->videoFrameAtTime(0));
  EXPECT_NE(stream->currentImage(), nullptr);  // there is a converter
}

TEST_F(LMFFMovieTest, EffectStreamWithoutVideoHasNoMediaAndCropsToNothing) {
  open("av25.mp4");
  open("audio-only.m4a");
  const auto stream = movie_.videoEffectStream();
  EXPECT_EQ(stream->media(), nullptr);
  EXPECT_EQ(stream->cropRect(), Rect{});
  EXPECT_EQ(stream->outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 0, 0}));
}

TEST_F(LMFFMovieTest, OutputFormatIsTheDefaultAndCannotBeChanged) {
  movie_.configOutputFormat({1, 4, 8000});
  EXPECT_EQ(movie_.defaultOutputFormat(), lm_get_default_audio_format());
}

// The external subtitle.

TEST_F(LMFFMovieTest, SubtitleFileBecomesTheSubtitle) {
  EXPECT_TRUE(movie_.openSubtitle(fixture("subtitles.srt")));
  ASSERT_TRUE(movie_.subtitle());
  EXPECT_TRUE(movie_.hasSubtitle());
  EXPECT_EQ(movie_.subtitle()->subtitleStringAtTime(milliseconds(500)), "First line");
}

TEST_F(LMFFMovieTest, FileWithoutSubtitlesLeavesNone) {
  EXPECT_FALSE(movie_.openSubtitle(fixture("av25.mp4")));
  EXPECT_EQ(movie_.subtitle(), nullptr);
  EXPECT_FALSE(movie_.hasSubtitle());
}

TEST_F(LMFFMovieTest, FileWithoutSubtitlesLeavesNoneEvenIfOneWasSet) {
  ASSERT_TRUE(movie_.openSubtitle(fixture("subtitles.srt")));
  EXPECT_FALSE(movie_.openSubtitle(fixture("av25.mp4")));
  EXPECT_EQ(movie_.subtitle(), nullptr);
  ASSERT_TRUE(movie_.openSubtitle(fixture("subtitles.srt")));
  EXPECT_FALSE(movie_.openSubtitle("no-such-file.srt"));
  EXPECT_EQ(movie_.subtitle(), nullptr);
}

TEST_F(LMFFMovieTest, SubtitleIsReplacedByTheNext) {
  movie_.openSubtitle(fixture("subtitles.srt"));
  const std::weak_ptr<LMFFMedia> first = movie_.subtitle();
  EXPECT_TRUE(movie_.openSubtitle(fixture("late-subtitle.srt")));
  EXPECT_TRUE(first.expired());
  EXPECT_EQ(movie_.subtitle()->subtitleStringAtTime(milliseconds(25'500)), "Late line");
}

// Medias.

TEST_F(LMFFMovieTest, FilteredMediasKeepTheirOrder) {
  const auto a = openedMedia(fixture("av25.mp4"));
  const auto b = openedMedia(fixture("audio-only.m4a"));
  const auto c = openedMedia(fixture("raw.avi"));
  movie_.openMedias({a, b, c});
  EXPECT_THAT(movie_.filterMedias([&](const Media& media) { return media != b; }),
              ElementsAre(a, c));
  EXPECT_THAT(movie_.medias({c, b, a}, [&](const Media& media) { return media != b; }),
              ElementsAre(c, a));
  EXPECT_THAT(movie_.filterMedias([](const Media&) { return false; }), IsEmpty());
}

TEST_F(LMFFMovieTest, FileWithPicturesAndSoundIsTwoMedias) {
  open("av25.mp4");
  ASSERT_EQ(movie_.medias().size(), 2u);
  EXPECT_THAT(movie_.videos(), ElementsAre(movie_.medias()[0]));
  EXPECT_THAT(movie_.audios(), ElementsAre(movie_.medias()[1]));
  EXPECT_EQ(movie_.audioBitrate(), movie_.medias()[1]->audioBitrate());
  EXPECT_EQ(movie_.audioCodec(), AV_CODEC_ID_AAC);
}

TEST_F(LMFFMovieTest, SourceThatCannotBeCopiedIsOneMediaOfBoth) {
  class Uncopied : public MemorySource {
   public:
    using MemorySource::MemorySource;
    std::shared_ptr<LMMediaSource> copy() const override { return LMCustomSource::copy(); }
  };
  const auto source = std::make_shared<Uncopied>(bytesOf(fixture("av25.mp4")));
  const auto medias = source->createMedias();
  ASSERT_EQ(medias.size(), 1u);
  EXPECT_TRUE(medias[0]->hasVideo());
  EXPECT_TRUE(medias[0]->hasAudio());
  movie_.openMedias(medias);
  std::array<float, 2 * 4410> samples{};
  EXPECT_TRUE(movie_.readSample(samples.data(), 4410));
  EXPECT_GT(std::ranges::max(samples), 0.01F);
}

TEST_F(LMFFMovieTest, CurrentMediasAreTheFirstOfTheirKindThatAreSynced) {
  const auto a = openedMedia(fixture("av25.mp4"));
  const auto b = openedMedia(fixture("av25.mp4"));
  const auto c = openedMedia(fixture("audio-only.m4a"));
  movie_.openMedias({c, a, b});
  EXPECT_EQ(movie_.currentVideoMedia(), nullptr);
  b->setIsCurrentSynced(true);
  c->setIsCurrentSynced(true);
  EXPECT_EQ(movie_.currentVideoMedia(), b);
  EXPECT_EQ(movie_.currentAudioMedia(), c);
  a->setIsCurrentSynced(true);
  EXPECT_EQ(movie_.currentVideoMedia(), a);
}

TEST_F(LMFFMovieTest, CurrentVideoMediasEnd) {
  const auto media = at(openedMedia(fixture("av25.mp4")), 3 * kSecond);
  movie_.openMedias({media});
  EXPECT_EQ(movie_.currentVideoMediaMaxTime(), 0);
  media->setIsCurrentSynced(true);
  EXPECT_EQ(movie_.currentVideoMediaMaxTime(), 3 * kSecond + media->duration());
}

TEST_F(LMFFMovieTest, VideoMediaAtATimeIsTheFirstThatCoversIt) {
  const auto a = at(openedMedia(fixture("video-only.mp4")), kSecond);
  const int64_t end = kSecond + a->duration();
  const auto b = at(openedMedia(fixture("video-only.mp4")), end);
  const auto sound = openedMedia(fixture("audio-only.m4a"));
  movie_.openMedias({sound, a, b});
  EXPECT_EQ(movie_.videoMediaAtTime(kSecond - 1), nullptr);
  EXPECT_EQ(movie_.videoMediaAtTime(kSecond), a);
  EXPECT_EQ(movie_.videoMediaAtTime(end - 1), a);
  EXPECT_EQ(movie_.videoMediaAtTime(end), b);
  EXPECT_EQ(movie_.videoMediaAtTime(end + b->duration() - 1), b);
  EXPECT_EQ(movie_.videoMediaAtTime(end + b->duration()), nullptr);
}

TEST_F(LMFFMovieTest, DisabledVideoIsNone) {
  open("av25.mp4");
  EXPECT_TRUE(movie_.hasVideo());
  movie_.setDisableVideo(true);
  EXPECT_FALSE(movie_.hasVideo());
  EXPECT_TRUE(movie_.hasAudio());
  EXPECT_THAT(movie_.videos(), IsEmpty());
  EXPECT_EQ(movie_.videoMediaAtTime(0), nullptr);
  EXPECT_EQ(movie_.videoCodec(), 0);
}

TEST_F(LMFFMovieTest, HasTheSubtitlesOfItsMedias) {
  movie_.openMedias({openedMedia(fixture("av25.mp4"))});
  EXPECT_FALSE(movie_.hasSubtitle());
  movie_.openMedias({openedMedia(fixture("av25.mp4")), openedMedia(fixture("text.mkv"))});
  EXPECT_TRUE(movie_.hasSubtitle());
}

// Facts.

TEST_F(LMFFMovieTest, FactsAreThoseOfTheirMedia) {
  const auto a = openedMedia(fixture("av25.mp4"));
  const auto b = openedMedia(fixture("mjpeg.avi"));
  const auto c = openedMedia(fixture("tone.mp3"));
  const auto d = openedMedia(fixture("raw.avi"));
  movie_.openMedias({a, b, c, d});
  EXPECT_EQ(movie_.framerate(), 25.0F);
  EXPECT_EQ(movie_.videoBitrate(), a->videoBitrate());   // the one that is shown
  EXPECT_EQ(movie_.videoCodec(), AV_CODEC_ID_RAWVIDEO);  // the last with pictures
  EXPECT_EQ(movie_.audioCodec(), AV_CODEC_ID_MP3);       // the last with sound
  EXPECT_EQ(movie_.audioBitrate(), c->audioBitrate());   // likewise
  EXPECT_EQ(movie_.fileBitrate(), d->fileBitrate());     // the last
}

// Closing.

TEST_F(LMFFMovieTest, CloseReleasesMediasOutputAndSubtitle) {
  open("av25.mp4");
  movie_.openSubtitle(fixture("subtitles.srt"));
  const std::weak_ptr<LMFFMedia> media = movie_.medias()[0];
  const std::weak_ptr<LMFFMedia> subtitle = movie_.subtitle();
  const std::weak_ptr<LMOutputAudioGraph> graph = movie_.audioOutputGraph();
  const auto queue = movie_.decodeQueue();
  const auto effects = movie_.videoEffectStream();
  movie_.close();
  effects->setMedia(nullptr);
  EXPECT_TRUE(media.expired());
  EXPECT_TRUE(subtitle.expired());
  EXPECT_TRUE(graph.expired());
  EXPECT_THAT(movie_.medias(), IsEmpty());
  EXPECT_EQ(movie_.decodeQueue(), queue);
  EXPECT_EQ(movie_.videoEffectStream(), effects);
}

TEST_F(LMFFMovieTest, ClosedMovieCanBeOpenedAgain) {
  open("av25.mp4");
  movie_.close();
  open("audio-only.m4a");
  EXPECT_TRUE(movie_.hasAudio());
  EXPECT_FALSE(movie_.hasVideo());
  EXPECT_TRUE(movie_.audioOutputGraph());
}

TEST_F(LMFFMovieTest, MediasThatAreReplacedHaveNoMovieAnyMore) {
  const auto first = openedMedia(fixture("av25.mp4"));
  const auto second = openedMedia(fixture("av25.mp4"));
  const auto moved = openedMedia(fixture("av25.mp4"));
  LMFFMovie other;
  LMFFMovie movie;
  movie.openMedias({first, moved});
  other.openMedias({moved});
  movie.openMedias({second});
  EXPECT_EQ(first->movie(), nullptr);
  EXPECT_EQ(second->movie(), &movie);
  EXPECT_EQ(moved->movie(), &other);
}

TEST_F(LMFFMovieTest, FinishesItsWorkBeforeItIsGone) {
  std::shared_ptr<OperationQueue> queue;
  std::atomic<bool> isBlocked = true;
  std::thread opener;
  {
    LMFFMovie movie;
    movie.openMedias({openedMedia(fixture("av25.mp4"))});
    queue = movie.decodeQueue();
    queue->addOperation([&] { isBlocked.wait(true); });
    movie.seek(1'000'000);  // waits behind that, and uses the movie
    opener = std::thread([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      isBlocked = false;
      isBlocked.notify_all();
    });
  }
  EXPECT_FALSE(isBlocked);
  opener.join();
}

TEST_F(LMFFMovieTest, WithoutAQueueDecodesWhereItIsAsked) {
  LMFFMovie movie;
  movie.openMedias({openedMedia(fixture("av25.mp4"))});
  movie.setDecodeQueue(nullptr);
  movie.seek(1'000'000);
  EXPECT_EQ(movie.currentTime(), 1'000'000);
  const auto here = std::this_thread::get_id();
  bool hasRun = false;
  movie.decodeImageAtTime(0, true, [&](const std::shared_ptr<LMFFImage>& image) {
    hasRun = true;
    EXPECT_EQ(std::this_thread::get_id(), here);
    EXPECT_TRUE(image && image->getFrame());
  });
  EXPECT_TRUE(hasRun);
}

TEST_F(LMFFMovieTest, MediasMayOutliveTheirMovie) {
  const auto media = openedMedia(fixture("av25.mp4"));
  std::shared_ptr<LMOutputAudioGraph> graph;
  {
    LMFFMovie movie;
    movie.openMedias({media});
    graph = movie.audioOutputGraph();
  }
  EXPECT_EQ(media->movie(), nullptr);
  EXPECT_TRUE(media->hasVideo());
  EXPECT_NE(media->videoFrameAtTime(0), nullptr);
  EXPECT_EQ(graph->delegate(), nullptr);
}

TEST(LMFFMovieLastError, IsThatOfTheFirstMediaThatFailed) {
  LMFFMovie movie;
  EXPECT_FALSE(movie.lastError());
  movie.openMedias({videoMediaOf(fixture("video-only.mp4"))});
  EXPECT_FALSE(movie.lastError());
  movie.openMedias({videoMediaOf(fixture("video-only.mp4")), openedMedia("no-such-file.mp4")});
  EXPECT_EQ(movie.lastError().message, "No such file or directory");
  EXPECT_EQ(movie.lastError().code, -ENOENT);
  movie.close();
  EXPECT_FALSE(movie.lastError());
}

TEST(LMFFMovieLastError, TellsWhyThereIsNoSubtitle) {
  LMFFMovie movie;
  EXPECT_FALSE(movie.openSubtitle("no-such-file.srt"));
  EXPECT_EQ(movie.lastError().message, "No such file or directory");
  EXPECT_FALSE(movie.openSubtitle(fixture("video-only.mp4")));
  EXPECT_NE(movie.lastError().message, "");
  EXPECT_NE(movie.lastError().message, "No such file or directory");
  EXPECT_TRUE(movie.openSubtitle(fixture("subtitles.srt")));
  EXPECT_FALSE(movie.lastError());
}

TEST_F(LMFFMovieTest, SubtitlesInOldEncodingsAreUnderstood) {
  constexpr char kCue[] = "1\n00:00:00,000 --> 00:00:02,000\n";
  const TempDir folder;
  const auto shown = [&](const std::string& text) {
    const std::string path = (folder / "texts.srt").string();
    std::ofstream(path, std::ios::binary) << kCue << text << "\n";
    EXPECT_TRUE(movie_.openSubtitle(path));
    EXPECT_EQ(movie_.subtitle()->source()->name(), "texts");
    return movie_.subtitle()->subtitleStringAtTime(kSecond);
  };
  EXPECT_EQ(shown("Grüße"), "Grüße");
  EXPECT_EQ(shown("Gr\xFC\xDF"
                  "e aus K\xF6ln"),
            "Grüße aus Köln");
}

TEST_F(LMFFMovieTest, NoMediaIsLeftOut) {
  movie_.openMedias({nullptr, openedMedia(fixture("av25.mp4")), nullptr});
  EXPECT_EQ(movie_.medias().size(), 1U);
  EXPECT_TRUE(movie_.hasVideo());
}

}  // namespace
}  // namespace kestrel::test
