#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LibMedia.h>

#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LMFFMovieSelection : public testing::Test {
 protected:
  static std::string language(const char* code) { return LibMedia::displayStringForLanguage(code); }

  static std::vector<bool> enabledIn(const LMFFMedia& media) {
    std::vector<bool> enabled;
    for (const auto& stream : media.streams()) enabled.push_back(stream->enable());
    return enabled;
  }

  LMFFMovie movie_;
};

TEST_F(LMFFMovieSelection, SoundTracksAreNamedByTheFirstMediaThatHasAny) {
  movie_.openMedias(sourceOf(fixture("av-tracks.mkv"))->createMedias());
  ASSERT_FALSE(movie_.medias()[0]->hasAudio());
  EXPECT_THAT(movie_.audioStreams(), ElementsAre(language("eng"), language("fre")));
}

TEST_F(LMFFMovieSelection, SoundTracksAreThoseOfTheFirstMediaWhereItHasAny) {
  movie_.openMedias({openedMedia(fixture("av-tracks.mkv"), IndexSet{2}),
                     openedMedia(fixture("av-tracks.mkv"), IndexSet{1})});
  EXPECT_THAT(movie_.audioStreams(), ElementsAre(language("fre")));
}

TEST_F(LMFFMovieSelection, DiscsSoundTracksAreThoseOfTheFirstMediaInAnyCase) {
  auto source = std::make_shared<DiscLikeSource>();
  source->setFullpath(fixture("two-sounds.ts"));
  auto pictures = std::make_shared<LMFFMedia>();
  pictures->setSource(source);
  pictures->setSelectStreams(IndexSet{0});
  movie_.openMedias({pictures, openedMedia(fixture("av-tracks.mkv"))});
  ASSERT_FALSE(pictures->hasAudio());
  EXPECT_THAT(movie_.audioStreams(), ElementsAre("First", "Second"));
}

TEST_F(LMFFMovieSelection, MovieWithoutSoundHasNoTracks) {
  movie_.openMedias({openedMedia(fixture("raw.avi"))});
  EXPECT_THAT(movie_.audioStreams(), IsEmpty());
}

TEST_F(LMFFMovieSelection, SubtitleTracksAreThoseOfTheFirstMedia) {
  movie_.openMedias({openedMedia(fixture("av-tracks.mkv")), openedMedia(fixture("text.mkv"))});
  EXPECT_THAT(movie_.subtitleStreams(), ElementsAre(language("eng")));
  movie_.openMedias({openedMedia(fixture("raw.avi")), openedMedia(fixture("av-tracks.mkv"))});
  EXPECT_THAT(movie_.subtitleStreams(), IsEmpty());
}

TEST_F(LMFFMovieSelection, ReachesEveryMediaWithSoundOrWithout) {
  const auto pictures = openedMedia(fixture("raw.avi"));
  const auto first = openedMedia(fixture("av-tracks.mkv"));
  const auto second = openedMedia(fixture("av-tracks.mkv"));
  movie_.openMedias({pictures, first, second});
  movie_.setSelectAudioStreams(IndexSet{1});
  for (const auto& media : movie_.medias()) EXPECT_EQ(media->selectAudios(), IndexSet{1});
  EXPECT_THAT(enabledIn(*first), ElementsAre(true, false, true, true));
  EXPECT_THAT(enabledIn(*second), ElementsAre(true, false, true, true));
  EXPECT_THAT(enabledIn(*pictures), ElementsAre(true));
}

TEST_F(LMFFMovieSelection, OfSubtitlesReachesEveryMediaToo) {
  const auto first = openedMedia(fixture("raw.avi"));
  const auto second = openedMedia(fixture("av-tracks.mkv"));
  movie_.openMedias({first, second});
  movie_.setSelectSubtitleStreams(IndexSet{});
  EXPECT_EQ(first->selectSubtitles(), IndexSet{});
  EXPECT_THAT(enabledIn(*second), ElementsAre(true, true, true, false));
}

TEST_F(LMFFMovieSelection, IsThatOfTheFirstMedia) {
  const auto first = openedMedia(fixture("av-tracks.mkv"));
  const auto second = openedMedia(fixture("av-tracks.mkv"));
  movie_.openMedias({first, second});
  EXPECT_EQ(movie_.selectAudioStreams(), std::nullopt);
  first->setSelectAudios(IndexSet{0});
  second->setSelectAudios(IndexSet{1});
  first->setSelectSubtitles(IndexSet{3});
  EXPECT_EQ(movie_.selectAudioStreams(), IndexSet{0});
  EXPECT_EQ(movie_.selectSubtitleStreams(), IndexSet{3});
}

TEST_F(LMFFMovieSelection, AbsentOneMeansAllTracksAgain) {
  const auto media = openedMedia(fixture("av-tracks.mkv"));
  movie_.openMedias({media});
  movie_.setSelectAudioStreams(IndexSet{0});
  movie_.setSelectAudioStreams(std::nullopt);
  EXPECT_THAT(enabledIn(*media), testing::Each(true));
}

TEST_F(LMFFMovieSelection, ChosenTrackIsTheOneThatSounds) {
  std::vector<std::vector<float>> sounds;
  for (const uint32_t track : {0, 1}) {
    movie_.openMedias(sourceOf(fixture("av-tracks.mkv"))->createMedias());
    movie_.setSelectAudioStreams(IndexSet{track});
    movie_.update_current_time_to(0);
    sounds.emplace_back(2 * 20'000);
    movie_.readSample(sounds.back().data(), 20'000);
    movie_.close();
  }
  // 440 Hz crosses zero 880 times a second, 880 Hz twice as often.
  const auto crossings = [](const std::vector<float>& sound) {
    int count = 0;
    for (size_t i = 4000; i + 2 < sound.size(); i += 2) count += sound[i] * sound[i + 2] < 0;
    return count;
  };
  EXPECT_NEAR(crossings(sounds[0]), 880 * 18'000 / 44'100, 4);
  EXPECT_NEAR(crossings(sounds[1]), 1760 * 18'000 / 44'100, 4);
}

}  // namespace
}  // namespace kestrel::test
