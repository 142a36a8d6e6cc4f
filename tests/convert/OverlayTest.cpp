#include "convert/look/Overlay.h"

#include <gmock/gmock.h>
#include <kestrel/BitmapContext.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/PictureFile.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "convert/files/Surface.h"
#include "convert/probe/Input.h"
#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class WatermarkTest : public testing::Test {
 protected:
  /// A red picture, 4 × 2.
  std::string red() const {
    const auto path = (folder_ / "red.png").string();
    BitmapContext surface(4, 2);
    surface.fillRect({{0, 0}, {4, 2}}, 1, 0, 0);
    writePicture(path, *shownBy(surface), true);
    return path;
  }

  const TempDir folder_;
};

// Recipes count from the lower left.
TEST_F(WatermarkTest, LiesWhereItsUpperLeftCornerIsSaidToBe) {
  const auto image = loadWatermark({.path = red(), .x = 10, .y = 20}, 100);
  EXPECT_EQ(image->extent(), (Rect{{10, 78}, {4, 2}}));
}

TEST_F(WatermarkTest, IsScaledAtItsCorner) {
  const auto image = loadWatermark({.path = red(), .x = 10, .y = 20, .scale = 3}, 100);
  EXPECT_EQ(image->extent(), (Rect{{10, 74}, {12, 6}}));
}

TEST_F(WatermarkTest, IsFadedAsAWhole) {
  for (const auto& [opacity, alpha] : {std::pair{1.0, 255}, {0.5, 128}, {0.25, 64}, {0.0, 0}}) {
    const auto image = loadWatermark({.path = red(), .opacity = opacity}, 2);
    const auto picture = ImageContext().bitmapImage(image, {{0, 0}, {4, 2}});
    EXPECT_NEAR(picture->row(1)[3 * 4 + 3], alpha, 1) << opacity;
  }
}

TEST_F(WatermarkTest, ThatIsNoPictureIsRefused) {
  const auto refusal = [](const std::string& path) {
    const Failure failure = failureOf([&] { loadWatermark({.path = path}, 100); });
    EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
    EXPECT_EQ(failure.subject(), path);
    return std::string(failure.what());
  };
  const auto text = (folder_ / "text.png").string();
  std::ofstream(text) << "no picture";
  EXPECT_EQ(refusal(text), "cannot read '" + text + "': it is no picture");
  EXPECT_THAT(refusal((folder_ / "none.png").string()), EndsWith("': No such file or directory"));
  EXPECT_THAT(refusal(folder_.path().string()), EndsWith("': Is a directory"));
  std::filesystem::resize_file(text, (64 << 20) + 1);
  EXPECT_THAT(refusal(text), EndsWith("': it is too large"));
}

/// An opened movie, and what is laid over it at a time in seconds.
class SubtitlesTest : public testing::Test {
 protected:
  void open(const std::string& path, std::optional<int> title = {}) {
    movie_.setExportMovie(true);
    movie_.openMedias(openInput(path, title, {})->createMedias());
  }

  std::string textAt(double seconds) {
    const auto media = movie_.subtitle();
    if (!media) return "no subtitles";
    return media->subtitleMarkupAtTime(static_cast<int64_t>(seconds * 1e6)).value_or("");
  }

  Failure refusalOf(const TrackChoice& track) {
    return failureOf([&] { openSubtitleTrack(movie_, track); });
  }

  LMFFMovie movie_;
};

TEST_F(SubtitlesTest, ComeFromAFile) {
  open(fixture("video-only.mp4").string());
  openSubtitles(movie_, fixture("subtitles.srt").string());
  EXPECT_EQ(textAt(0.5), "First line");
}

TEST_F(SubtitlesTest, AFileWithoutAnyIsRefused) {
  open(fixture("video-only.mp4").string());
  for (const auto& [name, why] : {std::pair{"video-only.mp4", "it holds no subtitles"},
                                  {"none.srt", "No such file or directory"}}) {
    const auto path = (fixture("video-only.mp4").parent_path() / name).string();
    const Failure failure = failureOf([&] { openSubtitles(movie_, path); });
    EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
    EXPECT_EQ(failure.subject(), path);
    EXPECT_THAT(failure.what(), EndsWith(std::string("': ") + why));
  }
}

TEST_F(SubtitlesTest, OfTheInputAreChosenByNumberOrLanguage) {
  const std::string english = "First line";
  const std::string french = "A sign that stays";
  for (const auto& [track, text] : {std::pair{TrackChoice(), english},
                                    {TrackChoice::of(IndexSet{0}), english},
                                    {TrackChoice::of(IndexSet{1}), french},
                                    {TrackChoice::in("en"), english},
                                    {TrackChoice::in("fra"), french},
                                    {TrackChoice::in("fre"), french}}) {
    movie_.close();
    open(fixture("two-texts.mkv").string());
    openSubtitleTrack(movie_, track);
    EXPECT_EQ(textAt(0.3), text);
  }
}

TEST_F(SubtitlesTest, ATrackThatIsNotThereIsRefused) {
  open(fixture("two-texts.mkv").string());
  for (const auto& [track, sentence] :
       {std::pair{TrackChoice::of(IndexSet{2}), "there is no subtitle track 2: the input has 2"},
        {TrackChoice::in("de"),
         "no subtitle track is in the language 'de': there are 0 in 'eng', "
         "1 in 'fre'"}}) {
    const Failure failure = refusalOf(track);
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
    EXPECT_EQ(failure.subject(), "subtitleTrack");
    EXPECT_STREQ(failure.what(), sentence);
  }
}

TEST_F(SubtitlesTest, AnInputWithoutAnyHasNoTrack) {
  open(fixture("video-only.mp4").string());
  EXPECT_THAT(refusalOf(TrackChoice::in("en")).what(), HasSubstr("the input has none"));
  EXPECT_STREQ(refusalOf(TrackChoice::of(IndexSet{0})).what(),
               "there is no subtitle track 0: the input has 0");
}

TEST_F(SubtitlesTest, WithoutPicturesThereIsNothingToLayThemOver) {
  open(fixture("audio-only.m4a").string());
  EXPECT_NO_THROW(openSubtitleTrack(movie_, TrackChoice::in("en")));
  EXPECT_EQ(movie_.subtitle(), nullptr);
}

// A disc's demuxer finds subpictures only where the first is, so they are known by their ids.
TEST_F(SubtitlesTest, OfADiscAreReadByThemselves) {
  for (const auto& [track, number] : {std::pair{TrackChoice::of(IndexSet{1}), 1U},
                                      {TrackChoice::in("fr"), 1U},
                                      {TrackChoice::in("eng"), 0U}}) {
    movie_.close();
    open((discFixture("pal") / "disc").string(), 1);
    openSubtitleTrack(movie_, track);
    ASSERT_NE(movie_.subtitle(), nullptr);
    EXPECT_NE(movie_.subtitle(), movie_.videoMedia());
    EXPECT_EQ(movie_.subtitle()->selectSubtitles(), IndexSet{number});
    EXPECT_EQ(movie_.subtitle()->selectAudios(), IndexSet{});
  }
}

}  // namespace
}  // namespace kestrel::test
