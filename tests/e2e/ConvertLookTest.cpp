#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>

#include "tests/e2e/Look.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;

/// A smooth picture of 320x180 in which every place looks different, its colours all within RGB.
const char* const kSlopes =
    "nullsrc=s=320x180:r=25:d=0.4,geq=lum='70+0.25*X+0.2*Y':cb='118+0.1*X':cr='138-0.2*Y'";

class ConvertLook : public LookTest {
 protected:
  fs::path slopes() { return made("slopes.mkv", kSlopes); }
};

/// The lowest likeness of luma, in dB, of any picture to that of another file seen through a
/// filter.
double likeness(const fs::path& file, const fs::path& reference, const std::string& filter) {
  std::istringstream lines(
      ffmpeg({"-i", file.string(), "-i", reference.string(), "-lavfi",
              "[1:v]" + filter + "[r];[0:v][r]psnr=stats_file=-", "-f", "null", "-"}));
  double lowest = 1000;
  for (std::string line; std::getline(lines, line);) {
    const size_t at = line.find("psnr_y:");
    if (at == std::string::npos) continue;
    const std::string value = line.substr(at + 7);
    if (!value.starts_with("inf")) lowest = std::min(lowest, std::stod(value));
  }
  return lowest;
}

void expectNear(const Rgb& color, const Rgb& wanted, int tolerance) {
  for (size_t i = 0; i < 3; ++i)
    EXPECT_NEAR(color[i], wanted[i], tolerance) << testing::PrintToString(color);
}

// Geometry.

TEST_F(ConvertLook, CropKeepsAnAreaCountedFromTheUpperLeft) {
  const auto source = slopes();
  const auto output = converted(source, {"--crop", "40,20,240x120"});
  EXPECT_EQ(streamOf(output, "video")["width"], 240);
  EXPECT_EQ(streamOf(output, "video")["height"], 120);
  EXPECT_GT(likeness(output, source, "crop=240:120:40:20"), 45);
}

TEST_F(ConvertLook, MirrorsAndQuarterTurns) {
  const auto source = slopes();
  for (const auto& [options, filter] : {std::pair<Arguments, std::string>{{"--hflip"}, "hflip"},
                                        {{"--vflip"}, "vflip"},
                                        {{"--rotate", "90"}, "transpose=clock"},
                                        {{"--rotate", "-90"}, "transpose=cclock"},
                                        {{"--rotate", "180"}, "hflip,vflip"},
                                        {{"--hflip", "--rotate", "90"}, "hflip,transpose=clock"}}) {
    SCOPED_TRACE(filter);
    EXPECT_GT(likeness(converted(source, options), source, filter), 45);
  }
}

TEST_F(ConvertLook, HalfATurnIsBothMirrors) {
  const auto source = slopes();
  const auto turned = converted(source, {"--rotate", "180"}, "turned.mkv");
  const auto mirrored = converted(source, {"--hflip", "--vflip"}, "mirrored.mkv");
  EXPECT_EQ(pictureHash(turned, "format=yuv420p"), pictureHash(mirrored, "format=yuv420p"));
}

TEST_F(ConvertLook, AFreeTurnIsClockwiseAndFitsWithBlackAround) {
  const auto source = made("white.mkv", "color=white:s=320x180:r=25:d=0.2");
  const auto output = converted(source, {"--rotate", "10"});
  const Pixels shown(output, 0, 320);
  expectNear(shown.at(160, 90), {255, 255, 255}, 3);
  for (const auto& [x, y] : {std::pair{1, 1}, {318, 1}, {1, 178}, {318, 178}})
    expectNear(shown.at(x, y), {0, 0, 0}, 3);
  // Clockwise: the upper edge begins high at the left and ends lower at the right.
  const auto topOf = [&](int x) {
    int y = 0;
    while (shown.at(x, y)[1] < 128) ++y;
    return y;
  };
  EXPECT_LT(topOf(100), topOf(220));
}

TEST_F(ConvertLook, AFreeTurnKeepsTheShapeOfTheUprightPicture) {
  const auto lying = made("lying.mp4", "color=white:s=320x180:r=25:d=0.2,format=yuv420p",
                          {"-c:v", "mpeg4", "-q:v", "2"});
  const auto upright = folder_ / "upright.mp4";
  ffmpeg({"-i", lying.string(), "-c", "copy", "-metadata:s:v:0", "rotate=90", upright.string()});
  const auto output = converted(upright, {"--rotate", "3"});
  EXPECT_EQ(streamOf(output, "video")["width"], 180);
  EXPECT_EQ(streamOf(output, "video")["height"], 320);
  // Turned by 3 degrees it fits when it is 0.916 as large: 0.84 of the pixels.
  EXPECT_NEAR(Pixels(output, 0, 180).bright() / (180.0 * 320), 0.84, 0.02);
  // One that was upright stays as wide as it was, even turned by nearly a quarter.
  const auto turned = converted(lying, {"--rotate", "87"}, "turned.mkv");
  EXPECT_EQ(streamOf(turned, "video")["width"], 320);
  // The shape that is asked for is that of the picture as it is seen.
  const auto shaped = streamOf(converted(upright, {"--display-aspect", "4:3"}), "video");
  EXPECT_NEAR(shaped["width"].get<double>() / shaped["height"].get<double>(), 4.0 / 3, 0.01);
}

TEST_F(ConvertLook, TheInputsOwnTurnIsAppliedOnceInEveryContainer) {
  const auto source = fixture("av-rotated.mp4");
  for (const char* name : {"out.mp4", "out.mkv", "out.avi"}) {
    SCOPED_TRACE(name);
    const auto output = converted(source, {"--video-codec", "h264"}, name);
    const auto video = streamOf(output, "video");
    EXPECT_GT(video["height"], video["width"]);
    EXPECT_FALSE(video.contains("side_data_list"));
    EXPECT_GT(likeness(output, source, "null"), 35);  // ffmpeg turns its own input
  }
}

TEST_F(ConvertLook, CropCountsOnTheUprightPicture) {
  const auto source = fixture("av-rotated.mp4");
  const auto upright = streamOf(converted(source, {}, "whole.mkv"), "video");
  const auto output = converted(source, {"--crop", "8,24,64x80"});
  EXPECT_EQ(streamOf(output, "video")["width"], 64);
  EXPECT_EQ(streamOf(output, "video")["height"], 80);
  EXPECT_GT(likeness(output, source, "crop=64:80:8:24"), 35);  // ffmpeg turns its own input
  const std::string beyond = fmt::format("0,0,{}x16", upright["width"].get<int>() + 2);
  EXPECT_TRUE(
      endsWithSentence(convert(source, folder_ / "bad.mkv", {"--crop", beyond}), 2, beyond));
}

TEST_F(ConvertLook, PixelsOfAnyShapeAreFittedAsTheyAreMeant) {
  // 240x180 pixels twice as wide as high show 480x180: 320x120 in 320x180.
  const auto source = made("flat.mkv", "color=white:s=240x180:r=25:d=0.2,setsar=2");
  const Pixels shown(converted(source, {"--size", "320x180", "--zoom", "fit"}), 0, 320);
  for (const int y : {0, 27, 152, 179}) expectNear(shown.at(160, y), {0, 0, 0}, 3);
  for (const int y : {32, 90, 147}) expectNear(shown.at(160, y), {255, 255, 255}, 3);
}

TEST_F(ConvertLook, FitPutsBarsOnTwoSides) {
  const auto source = made("wide.mkv", "color=white:s=240x180:r=25:d=0.2");
  const Pixels shown(converted(source, {"--size", "320x180", "--zoom", "fit"}), 0, 320);
  // 4:3 in 320x180 is 240 wide, from 40 to 280.
  for (const int x : {0, 37}) expectNear(shown.at(x, 90), {0, 0, 0}, 3);
  for (const int x : {42, 160, 277}) expectNear(shown.at(x, 90), {255, 255, 255}, 3);
  for (const int x : {282, 319}) expectNear(shown.at(x, 90), {0, 0, 0}, 3);
}

TEST_F(ConvertLook, ZoomsFillOrBoxTheOutput) {
  const auto source = made("white.mkv", "color=white:s=240x180:r=25:d=0.2");
  const Arguments size{"--size", "320x160"};
  const auto whiteColumns = [&](const std::string& zoom) {
    return Pixels(converted(source, joined(size, {"--zoom", zoom})), 0, 320).brightInRow(80);
  };
  EXPECT_EQ(whiteColumns("stretch"), 320);
  EXPECT_EQ(whiteColumns("fill-width"), 320);
  EXPECT_NEAR(whiteColumns("fit"), 160 * 4 / 3.0, 2);
  EXPECT_NEAR(whiteColumns("4:3"), 160 * 4 / 3.0, 2);
  EXPECT_NEAR(whiteColumns("16:9"), 160 * 16 / 9.0, 2);
}

TEST_F(ConvertLook, DisplayAspectWidensTheSource) {
  const auto source = made("pal.mkv", "color=white:s=360x288:r=25:d=0.2");
  const auto video = streamOf(converted(source, {"--display-aspect", "16:9"}), "video");
  EXPECT_EQ(video["width"], 512);
  EXPECT_EQ(video["height"], 288);
}

TEST_F(ConvertLook, OddSizesWork) {
  const auto source = made("odd.mkv", "testsrc2=s=853x479:r=25:d=0.2", {"-pix_fmt", "yuv444p"});
  const auto video = streamOf(converted(source, {"--rotate", "3", "--hflip"}), "video");
  EXPECT_EQ(video["width"], 852);
  EXPECT_EQ(video["height"], 478);
  for (const char* format : {"yuv420p", "yuv444p"}) {
    SCOPED_TRACE(format);
    const auto slopes = made("slopes.mkv",
                             "nullsrc=s=853x479:r=25:d=0.04,geq=lum='60+0.1*X+0.15*Y':"
                             "cb='118+0.03*X':cr='138-0.06*Y'",
                             {"-pix_fmt", format});
    const auto output = converted(slopes, {"--hflip"});
    EXPECT_GT(likeness(output, slopes, "hflip,scale=852:478:flags=bicubic,format=yuv420p"), 45);
  }
}

// Colours.

TEST_F(ConvertLook, ColourControlsWork) {
  const auto source = made("orange.mkv", "color=0xC08040:s=64x64:r=25:d=0.2");
  const auto shown = [&](const Arguments& options) {
    return Pixels(converted(source, options), 0, 64).at(32, 32);
  };
  const Rgb grey = shown({"--saturation", "0"});
  EXPECT_NEAR(grey[0], grey[1], 3);
  EXPECT_NEAR(grey[1], grey[2], 3);
  expectNear(shown({"--brightness", "0.6"}), {0xC0 + 51, 0x80 + 51, 0x40 + 51}, 4);
  // (c - ½) × 2 + ½ of 255
  expectNear(shown({"--contrast", "0.5"}), {255, 129, 1}, 5);
  const Rgb turned = shown({"--hue", "1"});  // 3.14 radians: orange becomes blue
  EXPECT_GT(turned[2], turned[0] + 50);
}

TEST_F(ConvertLook, EffectsAreThoseOfTheCatalogue) {
  const auto source = made("orange.mkv", "color=0xC08040:s=64x64:r=25:d=0.2");
  const Pixels shown(converted(source, {"--effect", "Color Invert"}), 0, 64);
  expectNear(shown.at(32, 32), {255 - 0xC0, 255 - 0x80, 255 - 0x40}, 4);
}

TEST_F(ConvertLook, TransparentSourcesLieOnBlack) {
  const auto source = folder_ / "clear.mov";
  ffmpeg({"-f", "lavfi", "-i", "color=red@0.5:s=64x64:r=25:d=0.2,format=rgba", "-c:v", "qtrle",
          "-pix_fmt", "argb", source.string()});
  for (const auto& options : {Arguments{}, Arguments{"--hflip"}})
    expectNear(Pixels(converted(source, options), 0, 64).at(32, 32), {128, 0, 0}, 4);
}

TEST_F(ConvertLook, AnAlphaBesideThePicturesCounts) {
  KESTREL_NEED_MEDIA("alpha-vp9-vorbis.webm");
  const auto clip = mediaFile("alpha-vp9-vorbis.webm");
  const auto still = folder_ / "still.png";
  ffmpeg({"-c:v", "libvpx-vp9", "-ss", "1", "-i", clip.string(), "-frames:v", "1", "-pix_fmt",
          "rgba", still.string()});
  const auto onBlack = folder_ / "expected.mkv";
  ffmpeg({"-f", "lavfi", "-i", "color=black:s=200x200:r=25:d=0.04", "-i", still.string(),
          "-filter_complex", "[0:v][1:v]overlay=format=gbrp", "-c:v", "ffv1", "-pix_fmt", "gbrp",
          onBlack.string()});
  const auto output = folder_ / "out.png";
  const RunResult result =
      run({kestrelBinary(), "thumb", clip.string(), output.string(), "--time", "1"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_GT(psnr(pictureBytes(output, "format=rgb24"), pictureBytes(onBlack, "format=rgb24")), 40);
  // Chroma of half the size blurs the rim of what is seen, but brightness does not.
  const auto movie = converted(clip, {"--start", "1", "--duration", "0.03"});
  EXPECT_GT(likeness(movie, onBlack, "scale=out_color_matrix=bt601,format=yuv420p"), 35);
}

TEST_F(ConvertLook, WithoutAnEffectItIsThePlainConversion) {
  const auto source = made("plain.mkv", "testsrc2=s=854x480:r=25:d=0.2");
  const auto plain = converted(source, {}, "converted.mkv");
  const auto looked = converted(source, {"--zoom", "stretch"}, "looked.mkv");
  EXPECT_EQ(pictureHash(looked, "format=yuv420p"), pictureHash(plain, "format=yuv420p"));
}

TEST_F(ConvertLook, MirrorsAndTurnsKeepChromaInItsPlace) {
  // A slope of blue from left to right, two a pixel. A sample of it stands for the left one of two
  // pixels and lies between two rows.
  const auto source =
      made("slope.mkv", "nullsrc=s=64x64:r=25:d=0.04,geq=lum=125:cb='66+4*X':cr=128");
  struct Case {
    Arguments options;
    std::function<double(int x, int y)> column;  // of the source, where a sample's place comes from
  };
  for (const auto& [options, column] :
       {Case{{"--hflip"}, [](int x, int) { return 63.0 - 2 * x; }},
        Case{{"--vflip"}, [](int x, int) { return 2.0 * x; }},
        Case{{"--rotate", "180"}, [](int x, int) { return 63.0 - 2 * x; }},
        Case{{"--rotate", "90"}, [](int, int y) { return 2 * y + 0.5; }},
        Case{{"--rotate", "-90"}, [](int, int y) { return 63 - (2 * y + 0.5); }}}) {
    SCOPED_TRACE(testing::PrintToString(options));
    const std::string blue = pictureBytes(converted(source, options), "extractplanes=u");
    ASSERT_EQ(blue.size(), 32u * 32);
    double sum = 0;
    // The rim is continued by its outermost samples.
    for (int y = 2; y < 30; ++y) {
      for (int x = 2; x < 30; ++x) {
        const int sample =
            static_cast<uint8_t>(blue[static_cast<size_t>(x) + 32 * static_cast<size_t>(y)]);
        const double error = sample - (66 + 2 * column(x, y));
        ASSERT_LE(std::abs(error), 2) << x << ',' << y;
        sum += error;
      }
    }
    EXPECT_NEAR(sum / (28 * 28), 0, 0.4);  // half a pixel would be 1
  }
}

TEST_F(ConvertLook, DeepSlopesHaveEveryStepOfEightBits) {
  // From black to white over the width: three pixels of 1280 to each of the 877 steps of ten bits.
  for (const char* format : {"yuv420p10le", "yuv444p10le"}) {
    SCOPED_TRACE(format);
    const auto source = folder_ / "slope.mkv";
    ffmpeg({"-f", "lavfi", "-i",
            std::string("nullsrc=s=1280x64:r=25:d=0.04,format=") + format +
                ",geq=lum='64+X*876/1279':cb=512:cr=512",
            "-c:v", "ffv1", "-pix_fmt", format, source.string()});
    const auto output = folder_ / "out.mkv";
    ASSERT_TRUE(converts(
        source, output,
        {"--hflip", "--crop", "0,0,1280x64", "--depth", "8", "--video-codec", "ffv1", "--force"}));
    const std::string luma = pictureBytes(output, "extractplanes=y");
    ASSERT_EQ(luma.size(), 1280u * 64);
    // Levels between two of eight bits are mixed of both.
    double furthest = 0;
    for (size_t x = 0; x < 1280; x += 8) {
      double sum = 0;
      for (size_t y = 0; y < 64; ++y) {
        for (size_t i = x; i < x + 8; ++i) {
          const size_t ofTenBits = 64 + (1279 - i) * 876 / 1279;
          const double exact = static_cast<double>(ofTenBits) / 4;
          const double off = static_cast<uint8_t>(luma[1280 * y + i]) - exact;
          EXPECT_LT(std::abs(off), 1.2) << i << ' ' << y;
          sum += off;
        }
      }
      furthest = std::max(furthest, std::abs(sum) / (8 * 64));
    }
    EXPECT_LT(furthest, 0.1);  // rounded to the nearest they are up to 0.3 off
  }
}

TEST_F(ConvertLook, DeepSourcesKeepTheirColours) {
  for (const char* format :
       {"yuv420p10le", "yuv444p", "yuv444p12le", "yuvj420p", "gray", "rgb24"}) {
    SCOPED_TRACE(format);
    const auto source = made("deep.mkv", "color=0x808080:s=64x64:r=25:d=0.2", {"-pix_fmt", format});
    const Pixels shown(converted(source, {"--hflip"}), 0, 64);
    expectNear(shown.at(32, 32), {128, 128, 128}, 3);
  }
}

// Watermark.

TEST_F(ConvertLook, AWatermarkLiesAtItsPlace) {
  const auto source = made("black.mkv", "color=black:s=320x180:r=25:d=0.2");
  const auto mark = folder_ / "10:30 mark.png";  // a colon in a name needs no quoting
  ffmpeg({"-f", "lavfi", "-i", "color=red:s=20x10:d=0.04,format=rgba", "-frames:v", "1",
          "file:" + mark.string()});
  const Pixels plain(converted(source, {"--watermark", mark.string()}), 0, 320);
  expectNear(plain.at(4, 4), {255, 0, 0}, 12);
  const Pixels placed(converted(source, {"--watermark", mark.string() + ":100,40"}), 0, 320);
  expectNear(placed.at(110, 45), {255, 0, 0}, 12);
  for (const auto& [x, y] : {std::pair{96, 45}, {124, 45}, {110, 36}, {110, 54}})
    expectNear(placed.at(x, y), {0, 0, 0}, 12);
  const Pixels faded(converted(source, {"--watermark", mark.string() + ":100,40,2,0.5"}), 0, 320);
  expectNear(faded.at(120, 50), {128, 0, 0}, 12);
  expectNear(faded.at(134, 56), {128, 0, 0}, 12);
}

TEST_F(ConvertLook, AWatermarkHasNoFringe) {
  // White that ends in transparent black, enlarged: on white it cannot be seen.
  const auto source = made("white.mkv", "color=white:s=320x180:r=25:d=0.2");
  const auto mark = folder_ / "mark.png";
  ffmpeg({"-f", "lavfi", "-i",
          "nullsrc=s=31x21:d=0.04,format=rgba,geq=r='255*gt(X,10)':g='255*gt(X,10)':"
          "b='255*gt(X,10)':a='255*gt(X,10)*gt(Y,3)'",
          "-frames:v", "1", mark.string()});
  const auto output = converted(source, {"--watermark", mark.string() + ":100,40,3,0.8"});
  const std::string luma = pictureBytes(output, "extractplanes=y");
  EXPECT_GE(static_cast<int>(static_cast<uint8_t>(*std::ranges::min_element(
                luma, {}, [](char c) { return static_cast<uint8_t>(c); }))),
            233);
}

// Wrong values.

TEST_F(ConvertLook, WhatCannotBeReadIsNamed) {
  const auto source = slopes();
  const auto binary = folder_ / "binary.srt";
  std::ofstream(binary, std::ios::binary) << std::string(5000, '\0');
  for (const auto& [option, file] :
       {std::pair<std::string, std::string>{"--watermark", folder_ / "none.png"},
        {"--watermark", binary.string()},
        {"--subtitles", folder_ / "none.srt"},
        {"--subtitles", binary.string()},
        {"--subtitles", folder_.path().string()},
        {"--subtitles", fixture("av25.mp4").string()}}) {
    const auto output = folder_ / "bad.mp4";
    EXPECT_TRUE(endsWithSentence(convert(source, output, {option, file}), 1, file));
    EXPECT_FALSE(fs::exists(output));
  }
}

// Values by themselves: OptionValuesTest and RequireTest.
TEST_F(ConvertLook, WrongValuesAreWrongUsage) {
  const auto source = slopes();
  for (const auto& [options, name] :
       {std::pair<Arguments, std::string>{{"--crop", "1,2,3"}, "'1,2,3'"},
        {{"--crop", "300,0,100x100"}, "320x180"},
        {{"--crop", "2000000000,0,2000000000x10"}, "320x180"},
        {{"--crop", ""}, "--crop: the value is empty"},
        {{"--crop", "0,0,10x10", "--auto-crop"}, "give one of them"},
        {{"--rotate", "left"}, "'left'"},
        {{"--hue", "11"}, "--hue: '11' is not a number from 0 to 10"},
        {{"--effect", "Blurr"}, "'Blur'"},
        {{"--watermark", "a.png:1,2,0"}, "a.png:1,2,0"},
        {{"--subtitle-track", "0"}, "subtitle track 0"},
        {{"--subtitle-track", "fre"}, "'fre': the input has none"},
        {{"--subtitle-color", "red"}, "--subtitle-color needs --subtitles"}}) {
    SCOPED_TRACE(testing::PrintToString(options));
    const auto output = folder_ / "bad.mp4";
    EXPECT_TRUE(endsWithSentence(convert(source, output, options), 2, name));
    EXPECT_FALSE(fs::exists(output));
  }
}

}  // namespace
}  // namespace kestrel::test
