#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LibMedia.h>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// av-tracks.mkv: pictures (0), English sound (1), French sound (2), English subtitles (3).

std::vector<bool> enabledIn(const LMFFMedia& media) {
  std::vector<bool> enabled;
  for (const auto& stream : media.streams()) enabled.push_back(stream->enable());
  return enabled;
}

std::vector<bool> openIn(const LMFFMedia& media) {
  std::vector<bool> open;
  for (const auto& stream : media.streams()) open.push_back(stream->isOpen());
  return open;
}

void expectAnswersNothing(LMFFMedia& media) {
  EXPECT_FALSE(media.isOpen());
  EXPECT_EQ(media.formatContext(), nullptr);
  EXPECT_THAT(media.streams(), IsEmpty());
  EXPECT_THAT(media.audios(), IsEmpty());
  EXPECT_EQ(media.videoStream(), nullptr);
  EXPECT_THAT(media.audioNames(), IsEmpty());
  EXPECT_THAT(media.subtitleNames(), IsEmpty());
  EXPECT_FALSE(media.hasAudio() || media.hasVideo() || media.hasSubtitle());
  EXPECT_EQ(media.videoFormat(), LMFFVideoFormat{});
  EXPECT_EQ(media.framerate(), 0.0F);
  EXPECT_EQ(media.videoBitrate(), 0);
  EXPECT_EQ(media.audioBitrate(), 0);
  EXPECT_EQ(media.fileBitrate(), 0);
  EXPECT_EQ(media.duration(), 0);
  EXPECT_EQ(media.start_time(), 0);
  EXPECT_EQ(media.mediaStreamForStreamIndex(0), nullptr);
}

void expectReadsNothing(LMFFMedia& media) {
  EXPECT_FALSE(media.forwardNextPacket());
  EXPECT_FALSE(media.forwardStream(nullptr));
  EXPECT_EQ(media.readNextPacketInStream(nullptr), nullptr);
  EXPECT_EQ(media.readNextVideoPacket(), nullptr);
  EXPECT_EQ(media.readNextAudioPacket(), nullptr);
  EXPECT_EQ(media.videoFrameAtTime(0), nullptr);
  EXPECT_EQ(media.subtitleAtTime(0), nullptr);
  EXPECT_EQ(media.subtitleStringAtTime(0), std::nullopt);
  media.thumbnailAtTime(0, [](AVFrame*) { FAIL(); });
  media.seek(kSecond);
  std::vector<float> sound(20, 0.25F);
  EXPECT_TRUE(media.readSample(sound.data(), 10));
  EXPECT_THAT(sound, testing::Each(0.25F));
}

TEST(LMFFMedia, WithoutASourceAnswersNothing) {
  LMFFMedia media;
  media.open();
  expectAnswersNothing(media);
  expectReadsNothing(media);
}

TEST(LMFFMedia, OverAnInputThatCannotBeOpenedAnswersNothing) {
  const auto media = openedMedia("no-such-file.mp4");
  expectAnswersNothing(*media);
  expectReadsNothing(*media);
}

TEST(LMFFMedia, StartsOnItsOwnAtTheBeginning) {
  const LMFFMedia media;
  EXPECT_EQ(media.movie(), nullptr);
  EXPECT_EQ(media.movie_position(), 0);
  EXPECT_EQ(media.last_pts(), AV_NOPTS_VALUE);
  EXPECT_FALSE(media.isCurrentSynced());
  EXPECT_EQ(media.selectStreams(), std::nullopt);
  EXPECT_EQ(media.selectAudios(), std::nullopt);
  EXPECT_EQ(media.selectSubtitles(), std::nullopt);
}

// Opening.

TEST(LMFFMedia, OpenMakesAStreamForEachOfTheContainers) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  ASSERT_THAT(media->streams(), SizeIs(4));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(media->streams()[i]->stream(), media->formatContext()->streams[i]);
    EXPECT_EQ(media->streams()[i]->media(), media.get());
  }
  EXPECT_THAT(openIn(*media), testing::Each(true));
  EXPECT_THAT(enabledIn(*media), testing::Each(true));
}

TEST(LMFFMedia, SecondOpenKeepsTheStreams) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  const auto streams = media->streams();
  media->open();
  EXPECT_EQ(media->streams(), streams);
}

TEST(LMFFMedia, SecondOpenAddsWhatHasAppearedSince) {
  const auto media = openedMedia(fixture("av25.mp4"));
  const auto streams = media->streams();
  AVStream* added = avformat_new_stream(media->formatContext(), nullptr);
  media->open();
  ASSERT_THAT(media->streams(), SizeIs(3));
  EXPECT_EQ(media->streams()[0], streams[0]);
  EXPECT_EQ(media->streams()[2]->stream(), added);
  EXPECT_FALSE(media->streams()[2]->enable());
}

TEST(LMFFMedia, AskingForAnIndexThatHasAppearedOpensOnceMore) {
  const auto media = openedMedia(fixture("av25.mp4"));
  AVStream* added = avformat_new_stream(media->formatContext(), nullptr);
  const auto stream = media->mediaStreamForStreamIndex(2);
  ASSERT_TRUE(stream);
  EXPECT_EQ(stream->stream(), added);
}

TEST(LMFFMedia, IndexBeyondTheContainersStreamsHasNone) {
  const auto media = openedMedia(fixture("av25.mp4"));
  EXPECT_EQ(media->mediaStreamForStreamIndex(1), media->streams()[1]);
  EXPECT_EQ(media->mediaStreamForStreamIndex(2), nullptr);
  EXPECT_EQ(media->mediaStreamForStreamIndex(UINT32_MAX), nullptr);
}

TEST(LMFFMedia, StreamWithoutADecoderIsNotEnabled) {
  const auto media = openedMedia(fixture("cover.m4a"));
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false));
  EXPECT_FALSE(media->hasVideo());
}

TEST(LMFFMedia, SourcesColoursReachTheSubtitlesOnly) {
  auto source = std::make_shared<DiscLikeSource>();
  source->setFullpath(fixture("av-tracks.mkv"));
  LMFFMedia media;
  media.setSource(source);
  media.open();
  const auto startOf = [&](size_t index) {
    const AVCodecContext* context = media.streams()[index]->codecContext();
    const auto* bytes = reinterpret_cast<const char*>(context->extradata);
    return std::string(bytes, bytes + std::min(context->extradata_size, 8));
  };
  EXPECT_EQ(startOf(3), "palette:");
  for (const size_t other : {0, 1, 2}) EXPECT_NE(startOf(other), "palette:");
}

// Selection.

TEST(LMFFMedia, OnlySelectedStreamsAreOpened) {
  const auto media = openedMedia(fixture("av-tracks.mkv"), IndexSet{0, 2});
  EXPECT_THAT(openIn(*media), ElementsAre(true, false, true, false));
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false, true, false));
}

TEST(LMFFMedia, ChangedSelectionOpensAndCloses) {
  const auto media = openedMedia(fixture("av-tracks.mkv"), IndexSet{0, 2});
  media->setSelectStreams(IndexSet{1});
  EXPECT_THAT(openIn(*media), ElementsAre(true, false, true, false));
  media->updateSelectStreams();
  EXPECT_THAT(openIn(*media), ElementsAre(false, true, false, false));
  EXPECT_THAT(enabledIn(*media), ElementsAre(false, true, false, false));
  media->setSelectStreams(std::nullopt);
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), testing::Each(true));
}

TEST(LMFFMedia, AudioTrackIsSelectedByItsPlaceAmongTheAudioStreams) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setSelectAudios(IndexSet{1});
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false, true, true));
  EXPECT_EQ(media->audioStream(), media->streams()[2]);
}

TEST(LMFFMedia, DeselectedTracksDecoderStaysOpen) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setSelectAudios(IndexSet{});
  media->setSelectSubtitles(IndexSet{});
  media->updateSelectStreams();
  EXPECT_THAT(openIn(*media), testing::Each(true));
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false, false, false));
}

TEST(LMFFMedia, OnlyOpenAudioStreamsAreCounted) {
  const auto media = openedMedia(fixture("av-tracks.mkv"), IndexSet{0, 2, 3});
  media->setSelectAudios(IndexSet{0});
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false, true, true));
}

TEST(LMFFMedia, SubtitleTracksAreSelectedAlike) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setSelectSubtitles(IndexSet{1});
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, true, true, false));
  media->setSelectSubtitles(IndexSet{0});
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, true, true, true));
}

TEST(LMFFMedia, AbsentSelectionEnablesAllTracksAgain) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setSelectAudios(IndexSet{1});
  media->updateSelectStreams();
  media->setSelectAudios(std::nullopt);
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), testing::Each(true));
}

TEST(LMFFMedia, SelectionMadeBeforeOpeningHolds) {
  LMFFMedia media;
  media.setSource(sourceOf(fixture("av-tracks.mkv")));
  media.setSelectAudios(IndexSet{0});
  media.open();
  EXPECT_THAT(enabledIn(media), ElementsAre(true, true, false, true));
}

TEST(LMFFMedia, DiscsTrackIsSelectedByTheLowFourBitsOfItsId) {
  auto source = std::make_shared<DiscLikeSource>();
  source->setFullpath(fixture("two-sounds.ts"));  // ids 0x100 pictures, 0x101 and 0x10A sound
  LMFFMedia media;
  media.setSource(source);
  media.open();
  ASSERT_EQ(media.streams()[1]->stream()->id, 0x101);
  ASSERT_EQ(media.streams()[2]->stream()->id, 0x10A);
  media.setSelectAudios(IndexSet{10});
  media.updateSelectStreams();
  EXPECT_THAT(enabledIn(media), ElementsAre(true, false, true));
  media.setSelectAudios(IndexSet{0, 1});
  media.updateSelectStreams();
  EXPECT_THAT(enabledIn(media), ElementsAre(true, true, false));
}

TEST(LMFFMedia, FilesTrackIsSelectedByItsPlaceWhateverItsId) {
  const auto media = openedMedia(fixture("two-sounds.ts"));
  media->setSelectAudios(IndexSet{1, 10});
  media->updateSelectStreams();
  EXPECT_THAT(enabledIn(*media), ElementsAre(true, false, true));
}

// Lists and names.

TEST(LMFFMedia, ListsHoldTheEnabledStreamsOfAType) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  const auto streams = media->streams();
  EXPECT_THAT(media->videos(), ElementsAre(streams[0]));
  EXPECT_THAT(media->audios(), ElementsAre(streams[1], streams[2]));
  EXPECT_THAT(media->subtitles(), ElementsAre(streams[3]));
  streams[1]->setEnable(false);
  EXPECT_THAT(media->audios(), ElementsAre(streams[2]));
}

TEST(LMFFMedia, TheStreamOfATypeIsTheLastEnabledOne) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  const auto streams = media->streams();
  EXPECT_EQ(media->audioStream(), streams[2]);
  EXPECT_EQ(media->videoStream(), streams[0]);
  EXPECT_EQ(media->subtitleStream(), streams[3]);
  streams[2]->setEnable(false);
  EXPECT_EQ(media->audioStream(), streams[1]);
}

TEST(LMFFMedia, NamesAreTheLanguagesOfTheOpenStreams) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  media->setSelectAudios(IndexSet{0});
  media->updateSelectStreams();
  EXPECT_THAT(media->audioNames(), ElementsAre(LibMedia::displayStringForLanguage("eng"),
                                               LibMedia::displayStringForLanguage("fre")));
  EXPECT_THAT(media->subtitleNames(), ElementsAre(LibMedia::displayStringForLanguage("eng")));
  EXPECT_THAT(openedMedia(fixture("av-tracks.mkv"), IndexSet{0, 2})->audioNames(),
              ElementsAre(LibMedia::displayStringForLanguage("fre")));
}

TEST(LMFFMedia, NamesThatTheSourceSuppliesGoBeforeLanguages) {
  auto source = std::make_shared<DiscLikeSource>();
  source->setFullpath(fixture("av-tracks.mkv"));
  LMFFMedia media;
  media.setSource(source);
  EXPECT_THAT(media.audioNames(), ElementsAre("First", "Second"));
  EXPECT_THAT(media.subtitleNames(), IsEmpty());
}

TEST(LMFFMedia, HasWhatIsEnabled) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  EXPECT_TRUE(media->hasAudio() && media->hasVideo() && media->hasSubtitle());
  for (const auto& stream : media->streams()) stream->setEnable(false);
  EXPECT_FALSE(media->hasAudio() || media->hasVideo() || media->hasSubtitle());
}

TEST(LMFFMedia, HasNoVideoWhileItsMovieDisablesIt) {
  const auto media = openedMedia(fixture("av25.mp4"));
  LMFFMovie movie;
  media->setMovie(&movie);
  EXPECT_TRUE(media->hasVideo());
  movie.setDisableVideo(true);
  EXPECT_FALSE(media->hasVideo());
  EXPECT_TRUE(media->hasAudio());
  EXPECT_NE(media->videoStream(), nullptr);
}

TEST(LMFFMediaCopy, IsTheSubclasssToMake) {
  class Labelled : public LMFFMedia {
   public:
    std::string label;
    std::shared_ptr<LMFFMedia> copy() const override {
      auto other = std::make_shared<Labelled>();
      copyTo(*other);
      other->label = label;
      return other;
    }
  };
  Labelled media;
  media.label = "first";
  media.setSource(sourceOf(fixture("av25.mp4")));
  media.setMovie_position(kSecond);
  const LMFFMedia& base = media;
  const auto copy = std::dynamic_pointer_cast<Labelled>(base.copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->label, "first");
  EXPECT_EQ(copy->movie_position(), kSecond);
  EXPECT_NE(copy->source(), media.source());
}

}  // namespace
}  // namespace kestrel::test
