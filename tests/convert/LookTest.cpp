#include "convert/look/Look.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/convert/Failure.h>

#include <fstream>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// A picture of 640 × 360 as a container tells of it.
VideoInfo pictures(const Orientation& orientation = {}) {
  VideoInfo info;
  info.width = 640;
  info.height = 360;
  info.orientation = orientation;
  return info;
}

/// What a movie is told for an output of a size.
MovieLook lookOf(const LookSettings& settings, const VideoInfo& info = pictures(),
                 Size output = {640, 360}) {
  LMFFMovie movie;
  Look(settings, info).apply(movie, output);
  EXPECT_EQ(movie.outputVideoSize(), output);
  return movie.look();
}

/// Whether pictures may go to the output as they were decoded.
bool staysAsItIs(const Look& look) {
  return !look.isDrawn() && look.turn().isNone() && !look.isTransparent();
}

TEST(Look, WithoutSettingsPicturesStayAsTheyAre) {
  const Look look({}, pictures());
  EXPECT_TRUE(staysAsItIs(look));
  EXPECT_FALSE(look.isFitted());
  EXPECT_EQ(look.size(), (Size{640, 360}));
  EXPECT_EQ(look.pixelAspect(), 1);
  MovieLook expected;
  expected.cropRect = {{0, 0}, {640, 360}};
  expected.zoomType = 1;  // stretched
  const MovieLook told = lookOf({});
  EXPECT_EQ(told.cropRect, expected.cropRect);
  EXPECT_EQ(told.zoomType, expected.zoomType);
  EXPECT_EQ(told.rotate, 0);
  EXPECT_FALSE(told.hflip || told.vflip);
}

TEST(Look, EverySettingMakesWork) {
  const auto isPlain = [](auto change) {
    LookSettings settings;
    change(settings);
    return staysAsItIs(Look(settings, pictures()));
  };
  EXPECT_TRUE(isPlain([](LookSettings&) {}));
  EXPECT_FALSE(isPlain([](auto& s) { s.crop = Area{0, 0, 320, 180}; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.autoCrop = true; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.zoom = Zoom::kFit; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.displayAspect = 2; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.rotate = 3; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.hflip = true; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.vflip = true; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.saturation = 0.6F; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.brightness = 0.6F; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.contrast = 0.6F; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.hue = 0.6F; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.effect = "Sepia"; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.watermark = Watermark{}; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.subtitles = "a.srt"; }));
  EXPECT_FALSE(isPlain([](auto& s) { s.subtitleTrack = TrackChoice{}; }));
}

TEST(Look, TurnedOrTransparentPicturesAreWork) {
  EXPECT_FALSE(staysAsItIs(Look({}, pictures({false, 90}))));
  EXPECT_FALSE(staysAsItIs(Look({}, pictures({true, 0}))));
  VideoInfo info = pictures();
  info.hasAlpha = true;
  EXPECT_FALSE(staysAsItIs(Look({}, info)));
}

TEST(Look, TheInputsTurnComesBeforeTheSettings) {
  struct Row {
    Orientation own;
    double rotate;  // clockwise
    bool hflip, vflip;
    float movieRotate;  // counter-clockwise, after the mirrors
    bool movieHflip;
    Size size;
  };
  for (const Row& row : {Row{{false, 90}, 0, false, false, 90, false, {360, 640}},
                         {{false, -90}, 0, false, false, -90, false, {360, 640}},
                         {{false, 0}, 90, false, false, -90, false, {360, 640}},
                         {{false, 90}, 90, false, false, 0, false, {640, 360}},
                         {{false, 90}, 0, true, false, -90, true, {360, 640}},
                         {{false, 90}, 0, true, true, 90, true, {360, 640}},
                         {{true, 0}, 0, true, false, 0, false, {640, 360}},
                         // A free turn keeps the shape of the upright picture.
                         {{false, 0}, 10, false, false, -10, false, {640, 360}},
                         {{false, 90}, 10, false, false, 80, false, {360, 640}}}) {
    SCOPED_TRACE(testing::Message() << row.own.counterclockwise << ' ' << row.rotate);
    LookSettings settings;
    settings.rotate = row.rotate;
    settings.hflip = row.hflip;
    settings.vflip = row.vflip;
    EXPECT_EQ(Look(settings, pictures(row.own)).size(), row.size);
    const MovieLook told = lookOf(settings, pictures(row.own));
    EXPECT_FLOAT_EQ(told.rotate, row.movieRotate);
    EXPECT_EQ(told.hflip, row.movieHflip);
    EXPECT_EQ(told.vflip, row.vflip);
  }
}

// The movie counts from the lower left corner of the stored picture.
TEST(Look, ACropIsThatOfTheUprightPicture) {
  LookSettings settings;
  settings.crop = Area{10, 20, 100, 50};
  EXPECT_EQ(lookOf(settings).cropRect, (Rect{{10, 290}, {100, 50}}));
  EXPECT_EQ(Look(settings, pictures()).size(), (Size{100, 50}));
  // Turned left by a quarter, the stored picture's right edge becomes the upper one.
  EXPECT_EQ(lookOf(settings, pictures({false, 90})).cropRect, (Rect{{570, 250}, {50, 100}}));
  EXPECT_EQ(Look(settings, pictures({false, 90})).size(), (Size{100, 50}));
  // Upside down.
  EXPECT_EQ(lookOf(settings, pictures({false, 180})).cropRect, (Rect{{530, 20}, {100, 50}}));
}

TEST(Look, ACropBeyondThePictureIsRefused) {
  LookSettings settings;
  settings.crop = Area{0, 0, 361, 640};
  EXPECT_THROW(Look(settings, pictures()), Failure);
  EXPECT_THROW(Look(settings, pictures({false, 90})), Failure);
  settings.crop = Area{0, 0, 360, 640};
  EXPECT_NO_THROW(Look(settings, pictures({false, 90})));
}

TEST(Look, PixelsKeepTheirShapeUnlessBoxesAreDrawn) {
  VideoInfo info = pictures();
  info.pixelAspect = Rational{4, 3};
  EXPECT_NEAR(Look({}, info).pixelAspect(), 4 / 3.0, 1e-9);
  EXPECT_TRUE(staysAsItIs(Look({}, info)));
  info.orientation = {false, 90};
  EXPECT_NEAR(Look({}, info).pixelAspect(), 3 / 4.0, 1e-9);
  info.orientation = {};
  LookSettings settings;
  settings.zoom = Zoom::kFit;
  const Look boxed(settings, info);
  EXPECT_TRUE(boxed.isFitted());
  EXPECT_EQ(boxed.pixelAspect(), 1);
  EXPECT_NEAR(boxed.size().width, 640 * 4 / 3.0, 1e-9);
  settings = {};
  settings.displayAspect = 2;
  EXPECT_NEAR(Look(settings, info).size().width, 720, 1e-9);
}

TEST(Look, ColoursEffectAndTextGoAlong) {
  LookSettings settings;
  settings.saturation = 0.1F;
  settings.brightness = 0.2F;
  settings.contrast = 0.3F;
  settings.hue = 0.4F;
  settings.effect = "Sepia";
  settings.subtitleColor = Color{1, 0, 0, 1};
  settings.subtitlePosition = 0.5F;
  settings.subtitleFont = Font{"DejaVu Sans", 30};
  const MovieLook told = lookOf(settings);
  EXPECT_FLOAT_EQ(told.saturation, 0.1F);
  EXPECT_FLOAT_EQ(told.brightness, 0.2F);
  EXPECT_FLOAT_EQ(told.contrast, 0.3F);
  EXPECT_FLOAT_EQ(told.hue, 0.4F);
  EXPECT_EQ(told.effectName, "Sepia");
  EXPECT_EQ(told.subtitleColor, settings.subtitleColor);
  EXPECT_EQ(told.subtitlePosition, 0.5F);
  EXPECT_EQ(told.subtitleFont, settings.subtitleFont);
  EXPECT_FLOAT_EQ(told.subtitleOutline, 2.1F);  // 7 % of the font's size
  EXPECT_TRUE(told.subtitleMarkup);
}

TEST(Look, TextSuitsTheOutput) {
  const MovieLook told = lookOf({}, pictures(), {1000, 500});
  ASSERT_TRUE(told.subtitleFont);
  EXPECT_DOUBLE_EQ(told.subtitleFont->size, 30);
  EXPECT_FLOAT_EQ(told.subtitleOutline, 2.1F);
  EXPECT_FLOAT_EQ(lookOf({}, pictures(), {200, 100}).subtitleOutline, 1.25F);  // no less
  EXPECT_FLOAT_EQ(told.subtitleMargin, 0.05F);
}

TEST(Look, SubtitlesAreReadInAnyEncoding) {
  const TempDir folder;
  std::ofstream(folder / "latin.srt", std::ios::binary)
      << "1\n00:00:00,000 --> 00:00:02,000\nGr\xFC\xDF"
         "e aus K\xF6ln, sch\xF6n und gr\xFCn\n";
  LMFFMovie movie;
  LookSettings settings;
  settings.subtitles = (folder / "latin.srt").string();
  Look(settings, pictures()).apply(movie, {640, 360});
  EXPECT_EQ(movie.subtitle()->subtitleMarkupAtTime(1000000), "Grüße aus Köln, schön und grün");
}

TEST(Look, FilesThatCannotBeReadAreNamed) {
  const auto refusal = [](const LookSettings& settings) {
    LMFFMovie movie;
    try {
      Look(settings, pictures()).apply(movie, {640, 360});
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.kind(), Failure::Kind::kInput);
      return std::string(failure.what());
    }
    return std::string();
  };
  LookSettings settings;
  settings.subtitles = "missing.srt";
  EXPECT_EQ(refusal(settings), "cannot open 'missing.srt': No such file or directory");
  settings.subtitles = "/";
  EXPECT_EQ(refusal(settings), "cannot open '/': Is a directory");
  settings.subtitles = fixture("tone.mp3").string();
  EXPECT_EQ(refusal(settings), "cannot read '" + settings.subtitles + "': it holds no subtitles");
  settings = {};
  settings.watermark = Watermark{.path = "missing.png"};
  EXPECT_EQ(refusal(settings), "cannot open 'missing.png': No such file or directory");
  settings.watermark = Watermark{.path = fixture("tone.mp3").string()};
  EXPECT_EQ(refusal(settings), "cannot read '" + settings.watermark->path + "': it is no picture");
}

}  // namespace
}  // namespace kestrel::test
