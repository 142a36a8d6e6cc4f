// What named effects make of pictures, of real clips and in pictures of several sizes.

#include <gtest/gtest.h>
#include <kestrel/EffectManager.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/Pictures.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

using BitmapPointer = std::shared_ptr<const BitmapImage>;

double lumaOf(const uint8_t* p) { return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2]; }

/// Calls `run(pixel, other)` for the pixels of two pictures of one size.
template <typename Run>
void forPixels(const BitmapImage& a, const BitmapImage& b, const Run& run) {
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x)
      run(a.row(y) + ptrdiff_t{4} * x, b.row(y) + ptrdiff_t{4} * x);
  }
}

/// What a look does to the brightness of a picture.
struct Effect {
  double mean = 0;   ///< luma, of the source's
  double black = 0;  ///< share of the pixels that are black now and were not
  double white = 0;
};

Effect between(const BitmapImage& source, const BitmapImage& shown) {
  const auto isBlack = [](const uint8_t* p) { return std::max({p[0], p[1], p[2]}) <= 2; };
  const auto isWhite = [](const uint8_t* p) { return std::min({p[0], p[1], p[2]}) >= 253; };
  Effect effect;
  double before = 0;
  forPixels(source, shown, [&](const uint8_t* was, const uint8_t* is) {
    before += lumaOf(was);
    effect.mean += lumaOf(is);
    effect.black += isBlack(is) && !isBlack(was);
    effect.white += isWhite(is) && !isWhite(was);
  });
  const double pixels = static_cast<double>(source.width()) * source.height();
  return {effect.mean / before, effect.black / pixels, effect.white / pixels};
}

class LooksOfClips : public testing::TestWithParam<const char*> {};

// Animation, old film, plans on a desk, a garden, a room by day and by night, people, a grey sea,
// colour bars, black and white squares, and what is dark: a bird's cage, a stage, HDR, a film at
// night.
TEST_P(LooksOfClips, KeepTheirBrightnessAndCutNothingOff) {
  KESTREL_NEED_MEDIA(GetParam());
  Pictures pictures({.input = mediaFile(GetParam()).string()});
  const Size own = pictures.size();
  pictures.setOutputSize({320, std::round(320 * own.height / own.width)});
  const int64_t middle = pictures.duration().value_or(0) / 2;
  const BitmapPointer source = pictures.pictureAt(middle);
  for (const char* const name : {"Exposure", "Blackout B&W", "Glow", "Gloom"}) {
    pictures.setEffect(name);
    const Effect effect = between(*source, *pictures.pictureAt(middle));
    EXPECT_GE(effect.mean, 0.5) << name;
    EXPECT_LE(effect.mean, 1.6) << name;
    EXPECT_LT(effect.black, 0.2) << name;
    EXPECT_LT(effect.white, 0.2) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    OfAllKinds, LooksOfClips,
    testing::Values("bunny-720p24-vp8-vorbis.webm", "chaplin-360p25-h264-mp3.mp4",
                    "interlaced-360p25-h264-paff.mp4", "interlaced-480-mpeg2.mpg", "mpeg2-mp3.ts",
                    "fire-720p-vfr-h264-aac.mp4", "wmv8-wma2.wmv",
                    "phone-hlg-1080p30-hevc10-turned.mov", "smpte-1080p-h264-aac.mp4",
                    "edit-list-three.mov", "cockatoo-720p20-h264-mp3.mp4", "real-rv20.rm",
                    "discontinuity-h264-nellymoser.flv", "hdr10-720p60-prores.mxf",
                    "three-subtitles-h264-dts.mkv", "mpeg4-four-mono-tracks.mxf"));

/// The first pictures of a clip of 320x180, converted without loss in this width.
fs::path converted(const TempDir& folder, const std::string& effect, int width,
                   const std::string& subtitles = {}) {
  ConversionSettings settings{.input = fixture("av25.mp4").string(),
                              .output = (folder / (std::to_string(width) + ".mkv")).string()};
  settings.width = width;
  settings.videoCodec = "ffv1";
  settings.end = Moment{80'000};
  settings.look.effect = effect;
  settings.look.subtitles = subtitles;
  settings.replaces = true;
  EXPECT_TRUE(Conversion(settings).run().isWhole());
  return settings.output;
}

BitmapPointer firstPicture(const fs::path& file, const std::string& effect = {},
                           const std::string& subtitles = {}) {
  // Fine lines are no combs.
  Pictures pictures({.input = file.string(),
                     .look = {.subtitles = subtitles},
                     .deinterlacing = Deinterlacing::kOff});
  if (!effect.empty()) pictures.setEffect(effect);
  pictures.setOutputSize({160, 90});
  return pictures.pictureAt(0);
}

double meanDifference(const BitmapImage& a, const BitmapImage& b) {
  double sum = 0;
  forPixels(a, b,
            [&](const uint8_t* p, const uint8_t* q) { sum += std::abs(lumaOf(p) - lumaOf(q)); });
  return sum / (static_cast<double>(a.width()) * a.height());
}

TEST(EffectPictures, ASmallPictureIsTheConvertedOneScaledDown) {
  const TempDir folder;
  for (const auto& name : EffectManager::allFilterNames()) {
    const auto small = firstPicture(fixture("av25.mp4"), name);
    const auto whole = firstPicture(converted(folder, name, 320));
    EXPECT_LE(meanDifference(*small, *whole), 1) << name;
  }
}

TEST(EffectPictures, SubtitlesAreScaledDownWithThePicture) {
  const TempDir folder;
  const std::string subtitles = (folder / "text.srt").string();
  std::ofstream(subtitles)
      << "1\n00:00:00,000 --> 00:00:09,000\nLarge enough\nto be seen\nin every look\n";
  for (const auto& name : EffectManager::allFilterNames()) {
    const auto small = firstPicture(fixture("av25.mp4"), name, subtitles);
    const auto whole = firstPicture(converted(folder, name, 320, subtitles));
    EXPECT_LE(meanDifference(*small, *whole), 1) << name;
    EXPECT_GT(meanDifference(*small, *firstPicture(fixture("av25.mp4"), name)), 1) << name;
  }
}

TEST(EffectPictures, LooksAreTheSameInAnySize) {
  const TempDir folder;
  for (const char* const name :
       {"Blur", "SpotLight", "Glow", "Gloom", "Bloom", "Pixellate", "Line Screen", "Sharpen"}) {
    const auto large = firstPicture(converted(folder, name, 640));
    const auto medium = firstPicture(converted(folder, name, 320));
    EXPECT_LE(meanDifference(*large, *medium), 3) << name;
  }
}

}  // namespace
}  // namespace kestrel::test
