#include "convert/settings/Require.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <kestrel/LMFFMovie.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Player.h>
#include <kestrel/convert/Sprites.h>
#include "convert/compose/ComposeRules.h"
#include "convert/join/JoinRules.h"
#include "convert/look/LookTable.h"
#include "convert/pictures/PictureRules.h"
#include "convert/plan/SettingsRules.h"
#include "convert/wave/WaveRules.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double kEndless = std::numeric_limits<double>::infinity();
constexpr int64_t kSecond = 1'000'000;

/// What a piece of work throws: the subject of a failure of the settings, or else what it is.
std::string refusalOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kSettings)
      return std::string("another kind: ") + failure.what();
    return failure.subject().empty() ? "no subject" : failure.subject();
  } catch (const std::exception& error) {
    return std::string("no failure: ") + error.what();
  }
  return "";
}

/// One setting changed, and the name under which it is refused.
template <typename Settings>
struct Mistake {
  std::string subject;
  std::function<void(Settings&)> make;
};

template <typename Settings>
void expectRefused(const Settings& sane, const std::vector<Mistake<Settings>>& mistakes) {
  EXPECT_EQ(refusalOf([&] { require(sane); }), "");
  for (size_t i = 0; i < mistakes.size(); ++i) {
    Settings settings = sane;
    mistakes[i].make(settings);
    EXPECT_EQ(refusalOf([&] { require(settings); }), mistakes[i].subject) << "row " << i;
  }
}

using Look = LookSettings;
using Conversions = ConversionSettings;

TEST(Require, OfALook) {
  expectRefused<Look>(
      {}, {
              {"crop",
               [](Look& s) {
                 s.crop = Area{-50, -50, 100, 100};
               }},
              {"crop",
               [](Look& s) {
                 s.crop = Area{0, 0, 0, 0};
               }},
              {"crop",
               [](Look& s) {
                 s.crop = Area{10, 10, -5, -5};
               }},
              {"crop",
               [](Look& s) {
                 s.crop = Area{0, 0, 9, 9}, s.autoCrop = true;
               }},
              {"zoom", [](Look& s) { s.zoom = static_cast<Zoom>(99); }},
              {"displayAspect", [](Look& s) { s.displayAspect = -1; }},
              {"displayAspect", [](Look& s) { s.displayAspect = kNone; }},
              {"rotate", [](Look& s) { s.rotate = kNone; }},
              {"rotate", [](Look& s) { s.rotate = kEndless; }},
              {"saturation", [](Look& s) { s.saturation = std::nanf(""); }},
              {"brightness", [](Look& s) { s.brightness = -0.1F; }},
              {"contrast", [](Look& s) { s.contrast = 10.1F; }},
              {"hue", [](Look& s) { s.hue = -1; }},
              {"effect", [](Look& s) { s.effect = "nonsense"; }},
              {"watermark",
               [](Look& s) {
                 s.watermark = {"a.png", kNone, 0, 1, 1};
               }},
              {"watermark",
               [](Look& s) {
                 s.watermark = {"a.png", 0, 0, 0, 1};
               }},
              {"watermark",
               [](Look& s) {
                 s.watermark = {"a.png", 0, 0, 1, 1.5};
               }},
              {"subtitles", [](Look& s) { s.subtitles = "a.srt", s.subtitleTrack.emplace(); }},
              {"subtitleTrack", [](Look& s) { s.subtitleTrack = TrackChoice::of({}); }},
              {"subtitleTrack", [](Look& s) { s.subtitleTrack = TrackChoice::in(""); }},
              {"subtitlePosition", [](Look& s) { s.subtitlePosition = 0.95F; }},
              {"subtitleOutline", [](Look& s) { s.subtitleOutline = -1.F; }},
              {"subtitleFont", [](Look& s) { s.subtitleFont = Font::systemFontOfSize(0); }},
              {"subtitleColor",
               [](Look& s) {
                 s.subtitleColor = Color{kNone, 0, 0, 1};
               }},
          });
}

TEST(Require, OfAConversion) {
  const auto copy = StreamAction::kCopy;
  expectRefused<Conversions>(
      {},
      {
          {"title", [](auto& s) { s.title = -2; }},
          {"title", [](auto& s) { s.title = 0; }},
          {"video", [](auto& s) { s.video = static_cast<StreamAction>(9); }},
          {"audio", [](auto& s) { s.audio = static_cast<StreamAction>(9); }},
          {"rotate", [](auto& s) { s.look.rotate = kNone; }},
          {"deinterlacing", [](auto& s) { s.deinterlacing = static_cast<Deinterlacing>(99); }},
          {"width", [](auto& s) { s.width = -5; }},
          {"width", [](auto& s) { s.width = 65536; }},
          {"height", [](auto& s) { s.height = 0; }},
          {"fps",
           [](auto& s) {
             s.fps = Rational{0, 0};
           }},
          {"fps",
           [](auto& s) {
             s.fps = Rational{30, 0};
           }},
          {"fps",
           [](auto& s) {
             s.fps = Rational{-25, 1};
           }},
          {"fps",
           [](auto& s) {
             s.fps = Rational{2'000'000'000, 1};
           }},
          {"aspect", [](auto& s) { s.aspect = kNone; }},
          {"aspect", [](auto& s) { s.aspect = -1; }},
          {"videoBitrate", [](auto& s) { s.videoBitrate = -1; }},
          {"audioBitrate", [](auto& s) { s.audioBitrate = 0; }},
          {"crf", [](auto& s) { s.crf = kNone; }},
          {"crf", [](auto& s) { s.crf = 20, s.videoBitrate = 1'000'000; }},
          {"audioTracks", [](auto& s) { s.audioTracks = TrackChoice::of({}); }},
          {"audioTracks", [](auto& s) { s.audioTracks = TrackChoice::in(""); }},
          {"sampleRate", [](auto& s) { s.sampleRate = 0; }},
          {"channelLayout", [](auto& s) { s.channelLayout = 0; }},
          {"channelLayout", [](auto& s) { s.channelLayout = -1; }},
          {"volume", [](auto& s) { s.volume = kNone; }},
          {"volume", [](auto& s) { s.volume = -1; }},
          {"volume", [](auto& s) { s.volume = 1000.5; }},
          {"start", [](auto& s) { s.start = -5 * kSecond; }},
          {"start", [](auto& s) { s.start = INT64_MAX; }},
          {"start", [](auto& s) { s.start = 3 * kSecond, s.end = kSecond; }},
          {"duration", [](auto& s) { s.duration = -5; }},
          {"duration", [](auto& s) { s.duration = Moment::ofShare(0); }},
          {"start", [](auto& s) { s.start = Moment::ofShare(1.5); }},
          {"end", [](auto& s) { s.end = Moment::ofShare(kNone); }},
          {"end", [](auto& s) { s.end = kSecond, s.duration = kSecond; }},
          {"chapters",
           [](auto& s) {
             s.chapters = ChapterRange{0, 0};
           }},
          {"chapters",
           [](auto& s) {
             s.chapters = ChapterRange{-500'000, -5};
           }},
          {"chapters",
           [](auto& s) {
             s.chapters = ChapterRange{3, 1};
           }},
          {"start",
           [](auto& s) {
             s.chapters = ChapterRange{1, 1}, s.start = 1;
           }},
          {"end",
           [](auto& s) {
             s.chapters = ChapterRange{1, 1}, s.end = 1;
           }},
          {"duration",
           [](auto& s) {
             s.chapters = ChapterRange{1, 1}, s.duration = 1;
           }},
          {"look",
           [=](auto& s) {
             s.video = copy, s.look.crop = Area{0, 0, 10, 10};
           }},
          {"width", [=](auto& s) { s.video = copy, s.width = 320; }},
          {"encoderPreset", [](auto& s) { s.video = StreamAction::kNone, s.encoderPreset = "x"; }},
          {"volume", [=](auto& s) { s.audio = copy, s.volume = 2; }},
          {"audioCodec", [](auto& s) { s.audio = StreamAction::kNone, s.audioCodec = "aac"; }},
      });
}

TEST(Require, OfAJoin) {
  const auto mistaken = [](auto make) { return [=](JoinSettings& s) { make(s.format); }; };
  expectRefused<JoinSettings>(
      {.inputs = {{"a.mp4"}, {"b.mp4", 5, 0.5}}, .output = "c.mp4"},
      {
          {"inputs", [](auto& s) { s.inputs.clear(); }},
          {"rate", [](auto& s) { s.inputs[1].rate = 0; }},
          {"rate", [](auto& s) { s.inputs[1].rate = kNone; }},
          {"position", [](auto& s) { s.inputs[1].position = kNone; }},
          {"position", [](auto& s) { s.inputs[1].position = 1e9; }},
          {"reencode", [](auto& s) { s.reencode = static_cast<JoinSettings::Reencode>(7); }},
          {"fps", mistaken([](JoinEncoding& s) {
             s.fps = Rational{0, 1};
           })},
          {"width", mistaken([](JoinEncoding& s) { s.width = 0; })},
          {"crf", mistaken([](JoinEncoding& s) { s.crf = kNone; })},
          {"videoBitrate", mistaken([](JoinEncoding& s) { s.videoBitrate = 0; })},
          {"sampleRate", mistaken([](JoinEncoding& s) { s.sampleRate = 1; })},
          {"audioBitrate", mistaken([](JoinEncoding& s) { s.audioBitrate = -1; })},
      });
}

TEST(Require, OfAComposition) {
  expectRefused<CompositionSettings>(
      {.placements = {{"a.mp4"}, {"a.mp4", 1, 2.5}}, .output = "c.mp4"},
      {
          {"placements", [](auto& s) { s.placements.clear(); }},
          {"track", [](auto& s) { s.placements[1].track = -1; }},
          {"position", [](auto& s) { s.placements[1].position = kNone; }},
          {"position", [](auto& s) { s.placements[1].position = -5; }},
          {"position", [](auto& s) { s.placements[1].position = kEndless; }},
      });
}

TEST(Require, OfAWaveform) {
  expectRefused<WaveformFileSettings>(
      {}, {
              {"form", [](auto& s) { s.form = static_cast<WaveformFileSettings::Form>(9); }},
              {"bits", [](auto& s) { s.bits = 7; }},
              {"width", [](auto& s) { s.width = 0; }},
              {"height", [](auto& s) { s.height = -8; }},
              {"width", [](auto& s) { s.width = 16385; }},
              {"width", [](auto& s) { s.width = 16384, s.height = 8193; }},  // one row too many
              {"pointsPerSecond", [](auto& s) { s.waveform.pointsPerSecond = 0; }},
              {"pointsPerSecond", [](auto& s) { s.waveform.pointsPerSecond = -1; }},
              {"pointsPerSecond", [](auto& s) { s.waveform.pointsPerSecond = kNone; }},
              {"pointsPerSecond", [](auto& s) { s.waveform.pointsPerSecond = kEndless; }},
              {"tracks", [](auto& s) { s.waveform.tracks.emplace(); }},
          });
  EXPECT_EQ(refusalOf([] { require(WaveformFileSettings{.width = 16384, .height = 8192}); }), "");
}

TEST(Require, OfAContactSheet) {
  using Layout = ContactSheet::Layout;
  expectRefused<Layout>({}, {
                                {"columns", [](Layout& s) { s.columns = 0; }},
                                {"columns", [](Layout& s) { s.columns = INT_MAX; }},
                                {"rows", [](Layout& s) { s.rows = -1; }},
                                {"pictureWidth", [](Layout& s) { s.pictureWidth = -5; }},
                                {"pictureHeight", [](Layout& s) { s.pictureHeight = 0; }},
                            });
  EXPECT_EQ(refusalOf([] { ContactSheet::pictureWidthFor(0, 100); }), "columns");
}

TEST(Require, OfAThumbnail) {
  using Thumbnail = ThumbnailSettings;
  expectRefused<Thumbnail>({},
                           {
                               {"title", [](Thumbnail& s) { s.title = -2; }},
                               {"hue", [](Thumbnail& s) { s.look.hue = 11; }},
                               {"size", [](Thumbnail& s) { s.size.width = 0; }},
                               {"size", [](Thumbnail& s) { s.size.height = 32769; }},
                               {"time", [](Thumbnail& s) { s.time = -1; }},
                               {"time", [](Thumbnail& s) { s.time = Moment::ofShare(kNone); }},
                               {"time", [](Thumbnail& s) { s.time = Moment::ofShare(1.01); }},
                               {"size", [](Thumbnail& s) { s.size = {.lines = 1}; }},
                               {"size", [](Thumbnail& s) { s.size = {.scale = 0}; }},
                               {"size", [](Thumbnail& s) { s.size = {.width = 9, .scale = 1}; }},
                           });
}

TEST(Require, OfSheets) {
  using Sheet = ContactSheetSettings;
  expectRefused<Sheet>({}, {
                               {"hue", [](Sheet& s) { s.look.hue = 11; }},
                               {"size", [](Sheet& s) { s.size.width = -1; }},
                               {"columns", [](Sheet& s) { s.columns = 0; }},
                               {"rows", [](Sheet& s) { s.rows = -1; }},
                           });
  using Sprites = SpritesSettings;
  expectRefused<Sprites>({}, {
                                 {"hue", [](Sprites& s) { s.look.hue = 11; }},
                                 {"size", [](Sprites& s) { s.size.height = 0; }},
                                 {"every", [](Sprites& s) { s.every = 0; }},
                             });
  expectRefused<EffectSheetSettings>({}, {
                                             {"title", [](auto& s) { s.title = -9; }},
                                             {"time", [](auto& s) { s.time = -1; }},
                                         });
}

TEST(Require, OfSpritePlans) {
  EXPECT_EQ(refusalOf([] { planSprites(10 * kSecond, 0, 100, 100); }), "span");
  EXPECT_EQ(refusalOf([] { planSprites(10 * kSecond, -1, 100, 100); }), "span");
  EXPECT_EQ(refusalOf([] { planSprites(-5, 5, 100, 100); }), "duration");
  EXPECT_EQ(refusalOf([] { planSprites(10 * kSecond, kSecond, 0, 100); }), "width");
  EXPECT_EQ(refusalOf([] { planSprites(10 * kSecond, kSecond, 100, -1); }), "height");
  EXPECT_EQ(refusalOf([] { planSprites(INT64_MAX, 1, 1, 16384); }), "span");
  EXPECT_EQ(usualSpan(-5), kSecond);
  // 292,471 years and some: 153,722,867,280.9 minutes, of which each span has its hundredth part.
  EXPECT_EQ(usualSpan(INT64_MAX), int64_t{1'537'228'673} * 60 * kSecond);
}

/// Every job asks before it opens anything.
TEST(Require, IsAskedByEveryJob) {
  const std::string absent = "/nowhere/absent.mp4";
  EXPECT_EQ(refusalOf([&] { Conversion({.input = absent, .output = "a.mp4", .volume = -1}); }),
            "volume");
  EXPECT_EQ(refusalOf([&] { Pictures({.input = absent, .look = {.rotate = kNone}}); }), "rotate");
  EXPECT_EQ(refusalOf([&] { join({.inputs = {{absent, kNone}}, .output = "a.mp4"}); }), "position");
  EXPECT_EQ(refusalOf([&] { compose({{{absent, 0, -1}}, "a.mp4"}); }), "position");
  EXPECT_EQ(refusalOf([&] {
              compose({.placements = {{absent, -1}}, .archive = "a.plist"});
            }),
            "track");
  EXPECT_EQ(refusalOf([&] { drawWaveform(absent, {.pointsPerSecond = 0}); }), "pointsPerSecond");
  EXPECT_EQ(refusalOf([&] { writeWaveform({.input = absent, .output = "a.json", .bits = 7}); }),
            "bits");
  EXPECT_EQ(refusalOf([&] { ContactSheet({.columns = 0}); }), "columns");
  EXPECT_EQ(refusalOf([&] { writeThumbnail({.input = absent, .time = -2}); }), "time");
  EXPECT_EQ(refusalOf([&] { writeContactSheet({.input = absent, .rows = 0}); }), "rows");
  EXPECT_EQ(refusalOf([&] { writeSprites({.input = absent, .every = 0}); }), "every");
  EXPECT_EQ(refusalOf([&] { writeEffectSheet({.input = absent, .time = -1}); }), "time");
}

TEST(Require, OfWhatIsAskedOfOpenPictures) {
  Pictures pictures({.input = fixture("av25.mp4").string()});
  EXPECT_EQ(refusalOf([&] { pictures.setOutputSize({kNone, kNone}); }), "size");
  EXPECT_EQ(refusalOf([&] { pictures.setOutputSize({-5, 5}); }), "size");
  EXPECT_EQ(refusalOf([&] { pictures.setOutputSize({32769, 5}); }), "size");
  EXPECT_EQ(refusalOf([&] { pictures.setEffect("nonsense"); }), "effect");
  // What was refused has changed nothing, and before 0 there is the first picture.
  const auto first = pictures.pictureAt(0);
  EXPECT_EQ(first->width(), static_cast<int>(pictures.size().width));
  EXPECT_EQ(pictures.pictureAt(INT64_MIN)->width(), first->width());
}

TEST(Require, APlayerKeepsToItsRanges) {
  Player player({.input = fixture("av25.mp4").string()});
  player.setRate(0.5);
  player.setRate(kNone);
  EXPECT_EQ(player.rate(), 0.5);
  player.setRate(9);
  EXPECT_EQ(player.rate(), Player::kFastest);
  player.setVolume(0.5);
  player.setVolume(kNone);
  EXPECT_EQ(player.movie().playVolume(), 0.5);
  player.setVolume(-1);
  EXPECT_EQ(player.movie().playVolume(), 0);
  EXPECT_EQ(player.takePeak(-1), 0);
  EXPECT_EQ(player.takePeak(7), 0);
}

TEST(Require, ACompositionDoesNotReplaceItsInput) {
  const TempDir folder;
  const auto clip = folder / "clip.mp4";
  std::filesystem::copy_file(fixture("av25.mp4"), clip);
  const auto size = std::filesystem::file_size(clip);
  try {
    compose({.placements = {{clip.string()}}, .output = clip.string(), .replaces = true});
    ADD_FAILURE() << "replaced";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), Failure::Kind::kOutput);
    EXPECT_EQ(failure.subject(), clip.string());
  }
  EXPECT_EQ(std::filesystem::file_size(clip), size);
}

}  // namespace
}  // namespace kestrel::test
