#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/Bars.h"
#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Names = std::set<std::string>;

class Thumb : public testing::Test {
 protected:
  RunResult thumb(const Arguments& arguments) const {
    return run(joined({kestrelBinary(), "thumb"}, arguments), {.workingDirectory = folder_.path()});
  }

  /// What a run that must succeed without a word writes.
  fs::path made(const std::string& input, const std::string& output,
                const Arguments& options = {}) const {
    const RunResult result = thumb(joined({fixture(input).string(), output}, options));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "");
    return folder_ / output;
  }

  /// The number that a picture of a numbered clip carries.
  int numberAt(const std::string& time) const {
    return shownNumbers(made("numbered25.mp4", "out.png", {"--force", "--time", time})).at(0);
  }

  const TempDir folder_;
};

std::pair<int, int> sizeOf(const fs::path& picture) {
  const auto stream = streamOf(picture, "video");
  return {stream.at("width"), stream.at("height")};
}

/// The first picture of a file through ffmpeg's filters, R, G, B.
std::string rgb(const fs::path& file, const std::string& filter = "null", double time = 0) {
  const Arguments seek = time > 0 ? Arguments{"-ss", std::to_string(time)} : Arguments{};
  return ffmpeg(
      joined(seek, {"-i", file.string(), "-frames:v", "1", "-vf",
                    filter + ",scale=sws_flags=accurate_rnd+full_chroma_int+bilinear,format=rgb24",
                    "-f", "rawvideo", "-"}));
}

/// How near two pictures are, seen from so far that it does not matter how each program blurs
/// colours between pixels; dB.
double likeness(const fs::path& a, const fs::path& b, const std::string& filter = "null",
                double time = 0) {
  const std::string small = "format=rgb24,scale=iw/4:ih/4:flags=area";
  return psnr(rgb(a, small), rgb(b, filter + "," + small, time));
}

TEST_F(Thumb, ShowsThePictureOfATime) {
  EXPECT_EQ(numberAt("2.52"), 63);
  EXPECT_EQ(numberAt("0"), 0);
  EXPECT_EQ(numberAt("0:04.99"), 124);
  EXPECT_EQ(numberAt("00:00:01"), 25);
}

TEST_F(Thumb, ShowsThePictureOfAShareOfTheLength) {
  EXPECT_EQ(numberAt("50%"), 62);
  EXPECT_EQ(numberAt("0%"), 0);
  EXPECT_EQ(numberAt("100%"), 124);
}

TEST_F(Thumb, TakesATenthOfTheLengthByItself) {
  EXPECT_EQ(shownNumbers(made("numbered25.mp4", "out.png")).at(0), 12);
}

TEST_F(Thumb, IsThePictureThatFFmpegDecodes) {
  // Picture 30, colours converted by each in its own way.
  const auto picture = made("av25.mp4", "out.png", {"--time", "1.2"});
  EXPECT_GT(likeness(picture, fixture("av25.mp4"), "null", 1.2), 28);
}

TEST_F(Thumb, PicturesThatTellOfTheirEncoderOnlyOnceAreRightEverywhere) {
  KESTREL_NEED_MEDIA("cockatoo-720p20-h264-mp3.mp4");
  const auto clip = mediaFile("cockatoo-720p20-h264-mp3.mp4");
  ASSERT_EQ(thumb({clip.string(), "out.png", "--time", "7"}).status, 0);
  // ffmpeg gets there from the beginning: picture 140 at 20 a second.
  EXPECT_GT(likeness(folder_ / "out.png", clip, "select='eq(n,140)'"), 40);
}

TEST_F(Thumb, AJPEGLooksLikeThePNG) {
  const auto png = made("av25.mp4", "out.png", {"--time", "1.2"});
  for (const char* name : {"out.jpg", "out.jpeg", "out.JPG"}) {
    const auto jpeg = made("av25.mp4", name, {"--time", "1.2"});
    EXPECT_EQ(streamOf(jpeg, "video").at("codec_name"), "mjpeg");
    EXPECT_GT(psnr(rgb(jpeg), rgb(png)), 33);
  }
}

TEST_F(Thumb, WebPAndAVIFTakeAQuality) {
  const auto png = made("av25.mp4", "out.png", {"--time", "1.2"});
  const auto webp = made("av25.mp4", "out.webp", {"--time", "1.2"});
  EXPECT_EQ(streamOf(webp, "video").at("codec_name"), "webp");
  // Chroma has half the samples: no encoder of the format comes closer.
  const auto best = folder_ / "best.webp";
  ffmpeg({"-i", png.string(), "-c:v", "libwebp", "-quality", "100", best.string()});
  EXPECT_GT(psnr(rgb(webp), rgb(png)), psnr(rgb(best), rgb(png)) - 0.1);
  for (const std::string extension : {".jpg", ".webp", ".avif"}) {
    const auto usual = made("av25.mp4", "usual" + extension, {"--time", "1.2"});
    const auto small = made("av25.mp4", "small" + extension, {"--time", "1.2", "--quality", "20"});
    EXPECT_LT(2 * fs::file_size(small), fs::file_size(usual)) << extension;
  }
}

TEST_F(Thumb, TheBestPictureIsNotBlack) {
  const auto lightOf = [&](const fs::path& picture) {
    const std::string bytes = rgb(picture);
    double sum = 0;
    for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
    return sum / static_cast<double>(bytes.size());
  };
  const char* clip = "black-then-bars.mp4";
  EXPECT_LT(lightOf(made(clip, "a.png", {"--time", "0.5"})), 2);
  EXPECT_GT(lightOf(made(clip, "b.png", {"--time", "0.5", "--best"})), 50);
  EXPECT_GT(lightOf(made(clip, "c.png", {"--best"})), 50);
  // The middle of the one part of the movie is just light; of two the first is black all over.
  const auto sprites = [&](const char* name, const Arguments& options) {
    return lightOf(made(clip, name, joined({"--sprites", "--every", "1.6"}, options)));
  };
  EXPECT_GT(sprites("d.png", {"--best"}), 1.5 * sprites("e.png", {}));
}

TEST_F(Thumb, ColoursAreRight) {
  for (const char* name :
       {"bars-601.mp4", "bars-709.mp4", "bars-709-full.mp4", "bars-601-full.mp4",
        "bars-untagged-sd.mkv", "bars-untagged-hd.mkv", "bars-10bit.mkv", "bars-444.mkv"}) {
    const auto png = made(name, "out.png", {"--force", "--time", "0"});
    EXPECT_LE(worstDifference(barsSeenThrough(png, "bt709", "pc"), barColors()), 3) << name;
    const auto jpeg = made(name, "out.jpg", {"--force", "--time", "0"});
    EXPECT_LE(worstDifference(barsAsTagged(jpeg), barColors()), 4) << name;
  }
}

TEST_F(Thumb, TransparencyShowsBlack) {
  const auto clip = folder_ / "glass.mkv";
  ffmpeg({"-f", "lavfi", "-i", "color=white@0.5:size=64x64:duration=0.2,format=rgba", "-c:v",
          "ffv1", "-pix_fmt", "bgra", clip.string()});
  ASSERT_EQ(thumb({"glass.mkv", "out.png"}).status, 0);
  const std::string pixel = rgb(folder_ / "out.png", "crop=1:1:30:30");
  EXPECT_NEAR(static_cast<uint8_t>(pixel[0]), 128, 2);
}

TEST_F(Thumb, HasThePicturesOwnSize) {
  EXPECT_EQ(sizeOf(made("av25.mp4", "a.png")), std::pair(320, 180));
  EXPECT_EQ(sizeOf(made("odd-size.mkv", "b.png")), std::pair(85, 47));
}

TEST_F(Thumb, PixelsThatAreNotSquareAreMadeSo) {
  // 176 × 16 / 11
  const auto picture = made("wide-pixels.mp4", "out.png", {"--time", "0"});
  EXPECT_EQ(sizeOf(picture), std::pair(256, 144));
  EXPECT_GT(likeness(picture, fixture("wide-pixels.mp4"), "scale=256:144"), 28);
}

TEST_F(Thumb, WhatWasFilmedSidewaysStandsUpright) {
  const auto picture = made("av-rotated.mp4", "out.png", {"--time", "0"});
  EXPECT_EQ(sizeOf(picture), std::pair(180, 320));
  // ffmpeg turns by itself, too.
  EXPECT_GT(likeness(picture, fixture("av-rotated.mp4")), 28);
}

TEST_F(Thumb, FitsASizeAndKeepsItsShape) {
  const auto size = [&](const std::string& text) {
    return sizeOf(made("av25.mp4", "out.png", {"--force", "--size", text}));
  };
  EXPECT_EQ(size("160x160"), std::pair(160, 90));
  EXPECT_EQ(size("1000x45"), std::pair(80, 45));
  EXPECT_EQ(size("160x-"), std::pair(160, 90));
  EXPECT_EQ(size("-x60"), std::pair(107, 60));
  EXPECT_EQ(size("640x-"), std::pair(640, 360));
}

TEST_F(Thumb, ASizeMayBeLinesOrAShare) {
  EXPECT_EQ(sizeOf(made("av25.mp4", "a.png", {"--size", "90p"})), std::pair(160, 90));
  EXPECT_EQ(sizeOf(made("av25.mp4", "b.png", {"--size", "50%"})), std::pair(160, 90));
  // On its side for a picture that is higher than wide.
  EXPECT_EQ(sizeOf(made("av25.mp4", "c.png", {"--rotate", "90", "--size", "90p"})),
            std::pair(90, 160));
}

TEST_F(Thumb, AZoomFillsTheSizeWithBars) {
  const auto picture = made("av25.mp4", "out.png", {"--size", "100x100", "--zoom", "fit"});
  EXPECT_EQ(sizeOf(picture), std::pair(100, 100));
  const std::string grey = pictureBytes(picture, "scale=100:100,format=gray");
  EXPECT_EQ(std::ranges::count(grey.substr(0, 100 * 20), '\0'), 2000);
}

TEST_F(Thumb, TakesTheLookOptions) {
  const auto plain = made("av25.mp4", "plain.png");
  const auto mirrored = made("av25.mp4", "mirrored.png", {"--hflip"});
  EXPECT_GT(psnr(rgb(mirrored), rgb(plain, "hflip")), 60);
  const auto cropped = made("av25.mp4", "cropped.png", {"--crop", "10,20,100x50"});
  EXPECT_EQ(sizeOf(cropped), std::pair(100, 50));
  EXPECT_GT(psnr(rgb(cropped), rgb(plain, "crop=100:50:10:20")), 40);
  const auto negative = made("av25.mp4", "negative.png", {"--effect", "Color Invert"});
  EXPECT_GT(psnr(rgb(negative), rgb(plain, "negate")), 45);
}

TEST_F(Thumb, ShowsASubtitleFromTheTimeAtWhichItBegins) {
  const auto text = folder_ / "one.srt";
  std::ofstream(text) << "1\n00:00:01,000 --> 00:00:02,000\nHello\n";
  const auto shown = [&](const std::string& time, const Arguments& options) {
    return rgb(made("av25.mp4", "out.png", joined({"--force", "--time", time}, options)));
  };
  const Arguments withText{"--subtitles", text.string()};
  EXPECT_NE(shown("1", withText), shown("1", {}));
  EXPECT_EQ(shown("0.96", withText), shown("0.96", {}));
}

TEST_F(Thumb, LeavesBlackBarsOutWhereAsked) {
  const auto picture = made("boxed-top-bottom.mp4", "out.png", {"--auto-crop"});
  EXPECT_EQ(sizeOf(picture), std::pair(320, 136));
}

TEST_F(Thumb, AnExistingTargetNeedsForce) {
  writeBytes(folder_ / "out.png", "precious");
  const std::string input = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(thumb({input, "out.png"}), 1, "'out.png' exists"));
  EXPECT_EQ(readBytes(folder_ / "out.png"), "precious");
  EXPECT_EQ(thumb({input, "out.png", "--force"}).status, 0);
  EXPECT_EQ(sizeOf(folder_ / "out.png"), std::pair(320, 180));
  EXPECT_EQ(namesIn(folder_.path()), Names{"out.png"});
}

TEST_F(Thumb, WrongUsageIsToldInOneSentence) {
  const std::string input = fixture("av25.mp4").string();
  const std::vector<std::pair<Arguments, std::string>> mistakes{
      {{"out.gif"}, "'out.gif'"},
      {{"out"}, "'out'"},
      {{"out.png", "--time", "noon"}, "--time: 'noon'"},
      {{"out.png", "--time", "150%"}, "--time: '150%'"},
      {{"out.png", "--time", "x%"}, "--time: 'x%'"},
      {{"out.png", "--time", "0:03"}, "behind the end"},
      {{"out.png", "--size", "wide"}, "--size: 'wide'"},
      {{"out.png", "--quality", "90"}, "--quality: a PNG loses nothing"},
      {{"out.webp", "--quality", "101"}, "--quality: '101'"},
      {{"out.png", "--sheet", "4"}, "--sheet: '4'"},
      {{"out.png", "--sheet", "0x5"}, "--sheet: '0x5'"},
      {{"out.png", "--sheet", "4x999"}, "--sheet: '4x999'"},
      {{"out.png", "--sheet", "2x2", "--sprites"}, "give one of them"},
      {{"out.png", "--sheet", "2x2", "--time", "1"}, "--time"},
      {{"out.png", "--every", "1"}, "--every needs --sprites"},
      {{"out.png", "--sprites", "--every", "0"}, "--every"},
      {{"out.png", "--effect", "Bloum"}, "'Bloom'"},
      {{"out.png", "--crop", "0,0,999x10"}, "--crop"},
      {{"out.png", "--crop", "all"}, "--crop: 'all'"},
      {{"out.png", "--size", "0x10"}, "--size: '0x10'"},
      {{"out.png", "--subtitle-font", "No Such Typeface 30"}, "'No Such Typeface'"},
      {{"out.png", "--subtitle-track", "0"}, "subtitle track 0"},
  };
  for (const auto& [arguments, message] : mistakes)
    EXPECT_TRUE(endsWithSentence(thumb(joined({input}, arguments)), 2, message)) << message;
  EXPECT_EQ(namesIn(folder_.path()), Names{});
}

TEST_F(Thumb, BadInputIsToldInOneSentence) {
  EXPECT_TRUE(endsWithSentence(thumb({"missing.mp4", "out.png"}), 1,
                               "cannot open 'missing.mp4': No such file or directory"));
  writeBytes(folder_ / "noise.mp4", std::string(5000, '\xA5'));
  EXPECT_TRUE(endsWithSentence(thumb({"noise.mp4", "out.png"}), 1, "noise.mp4"));
  const std::string sound = fixture("pcm-stereo-192000-f64.wav").string();
  EXPECT_TRUE(endsWithSentence(thumb({sound, "out.png"}), 1, "has no pictures"));
  EXPECT_TRUE(endsWithSentence(thumb({fixture("av25.mp4").string(), "missing/out.png"}), 1,
                               "missing/out.png"));
  const std::string movie = fixture("av25.mp4").string();
  for (const char* option : {"--watermark", "--subtitles"})
    for (const char* file : {"missing.any", "noise.mp4"})
      EXPECT_TRUE(endsWithSentence(thumb({movie, "out.png", option, file}), 1, file)) << option;
  EXPECT_EQ(namesIn(folder_.path()), Names{"noise.mp4"});
}

TEST_F(Thumb, AFullDiskIsToldOf) {
  fs::create_symlink("/dev/full", folder_ / "out.png");
  EXPECT_TRUE(endsWithSentence(thumb({fixture("av25.mp4").string(), "out.png"}), 1,
                               "cannot write 'out.png': No space left on device"));
}

TEST_F(Thumb, AnInputThatEndsEarlyGivesItsLastPictureAndSaysSo) {
  const std::string whole = readBytes(fixture("numbered25.mkv"));
  writeBytes(folder_ / "half.mkv", whole.substr(0, whole.size() / 2));
  const RunResult result = thumb({"half.mkv", "out.png", "--time", "4.9"});
  EXPECT_TRUE(endsWithSentence(result, 3, "'half.mkv' ended early, at "));
  EXPECT_GT(shownNumbers(folder_ / "out.png").at(0), 40);
  EXPECT_EQ(thumb({"half.mkv", "begin.png", "--time", "0.5"}).status, 0);
}

TEST_F(Thumb, AStillIsThereAsLongAsItsSound) {
  KESTREL_NEED_MEDIA("dvd-still-subpictures-ac3.vob");
  const std::string clip = mediaFile("dvd-still-subpictures-ac3.vob").string();
  const fs::path first = folder_ / "first.png";
  for (const char* time : {"0", "3", "50%", "100%"}) {
    const RunResult result = thumb({clip, "out.png", "--force", "--time", time});
    EXPECT_EQ(result.status, 0) << time << result.err;
    if (!fs::exists(first)) fs::copy(folder_ / "out.png", first);
    EXPECT_EQ(rgb(folder_ / "out.png"), rgb(first)) << time;
  }
}

TEST_F(Thumb, AStillWhoseSoundEndsEarlySaysSo) {
  ffmpeg({"-f", "lavfi", "-i", "color=red:size=64x64:duration=0.04", "-f", "lavfi", "-i",
          "sine=duration=20", "-c:v", "ffv1", "-c:a", "flac", (folder_ / "whole.mkv").string()});
  EXPECT_EQ(thumb({"whole.mkv", "out.png", "--time", "15"}).status, 0);
  const std::string whole = readBytes(folder_ / "whole.mkv");
  writeBytes(folder_ / "half.mkv", whole.substr(0, whole.size() / 2));
  EXPECT_TRUE(endsWithSentence(thumb({"half.mkv", "half.png", "--time", "15"}), 3,
                               "'half.mkv' ended early, at "));
}

TEST_F(Thumb, ReadsWhatComesThroughAPipe) {
  const RunResult result = run({"sh", "-c", "cat \"$1\" | \"$0\" thumb /dev/stdin out.png --time 2",
                                kestrelBinary(), fixture("numbered25.mkv").string()},
                               {.workingDirectory = folder_.path()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(shownNumbers(folder_ / "out.png").at(0), 50);
}

TEST_F(Thumb, ASinglePictureIsAMovieToo) {
  ffmpeg({"-i", fixture("av25.mp4").string(), "-frames:v", "1", (folder_ / "in.png").string()});
  EXPECT_EQ(thumb({"in.png", "out.jpg", "--size", "100x-"}).status, 0);
  EXPECT_EQ(sizeOf(folder_ / "out.jpg"), std::pair(100, 56));
}

TEST_F(Thumb, PictureFilesOfAnyKindAreMovies) {
  for (const char* name : {"in.jpg", "in.tga", "in.bmp", "in.png"}) {
    ffmpeg(
        {"-f", "lavfi", "-i", "color=red:size=64x48", "-frames:v", "1", (folder_ / name).string()});
    for (const Arguments& time : {Arguments{}, {"--time", "0"}, {"--time", "100%"}}) {
      SCOPED_TRACE(name + testing::PrintToString(time));
      const RunResult result = thumb(joined({name, "out.png", "--force"}, time));
      EXPECT_EQ(result.status, 0) << result.err;
      EXPECT_GT(static_cast<uint8_t>(rgb(folder_ / "out.png").at(0)), 250);
    }
  }
}

TEST_F(Thumb, ACoverIsWhatThereIsToSeeOfASong) {
  for (const char* codec : {"png", "mjpeg"}) {
    ffmpeg({"-f",
            "lavfi",
            "-i",
            "sine=duration=2",
            "-f",
            "lavfi",
            "-i",
            "color=red:size=64x48:rate=1:duration=1",
            "-frames:v",
            "1",
            "-map",
            "0",
            "-map",
            "1",
            "-c:v",
            codec,
            "-disposition:v",
            "attached_pic",
            "-y",
            (folder_ / "song.mp3").string()});
    const RunResult result = thumb({"song.mp3", "out.png", "--force"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(sizeOf(folder_ / "out.png"), std::pair(64, 48));
    EXPECT_GT(static_cast<uint8_t>(rgb(folder_ / "out.png").at(0)), 250);
  }
}

/// The numbers that the pictures of a sheet carry, row by row, where pictures are 128 × 32 in
/// columns 132 pixels apart, the first 4 pixels from the left.
std::vector<int> numbersOnSheet(const fs::path& file, int columns) {
  const auto [width, height] = sizeOf(file);
  const std::string grey = pictureBytes(file, "format=gray");
  const auto numberAt = [&, width = width](int column, int y) {
    int number = 0;
    for (int bit = 0; bit < 16; ++bit) {
      const int x = 4 + column * 132 + bit * 8 + 4;
      if (static_cast<uint8_t>(grey[static_cast<size_t>(y * width + x)]) > 127) number |= 1 << bit;
    }
    return number;
  };
  std::vector<int> numbers;
  // A picture's rows all show the same; between two pictures some rows are dark.
  int run_length = 0;
  for (int y = 1; y < height; ++y) {
    const bool isSame = numberAt(0, y) != 0 && numberAt(0, y) == numberAt(0, y - 1);
    run_length = isSame ? run_length + 1 : 0;
    if (run_length != 20) continue;
    for (int column = 0; column < columns; ++column) numbers.push_back(numberAt(column, y));
  }
  return numbers;
}

TEST_F(Thumb, ASheetShowsPicturesFromAllOverTheMovie) {
  // The middles of six equal parts of five seconds: 0.417 s is in picture 10, and so on; 2.917 s is
  // in picture 72, which lasts until 2.92 s.
  const auto sheet = made("numbered25.mp4", "sheet.png", {"--sheet", "2x3"});
  EXPECT_EQ(numbersOnSheet(sheet, 2), (std::vector<int>{10, 31, 52, 72, 93, 114}));
}

TEST_F(Thumb, ASheetMayBeAJPEGAndItsPicturesSmaller) {
  const auto large = made("av25.mp4", "large.jpg", {"--sheet", "3x2"});
  const auto small = made("av25.mp4", "small.jpg", {"--sheet", "3x2", "--size", "100x-"});
  EXPECT_GT(sizeOf(large).first, 3 * 320);
  EXPECT_GT(sizeOf(small).first, 3 * 100);
  EXPECT_LT(sizeOf(small).first, 3 * 110);
}

TEST_F(Thumb, SpritesComeWithATextThatSaysWhichIsWhen) {
  const auto sheet = made("numbered25.mp4", "sprites.png", {"--sprites"});
  EXPECT_EQ(namesIn(folder_.path()), (Names{"sprites.png", "sprites.vtt"}));
  EXPECT_EQ(readBytes(folder_ / "sprites.vtt"),
            "WEBVTT\n"
            "\n00:00:00.000 --> 00:00:01.000\nsprites.png#xywh=0,0,128,32\n"
            "\n00:00:01.000 --> 00:00:02.000\nsprites.png#xywh=128,0,128,32\n"
            "\n00:00:02.000 --> 00:00:03.000\nsprites.png#xywh=256,0,128,32\n"
            "\n00:00:03.000 --> 00:00:04.000\nsprites.png#xywh=384,0,128,32\n"
            "\n00:00:04.000 --> 00:00:05.000\nsprites.png#xywh=512,0,128,32\n");
  EXPECT_EQ(sizeOf(sheet), std::pair(640, 32));
  std::vector<int> numbers;
  for (int i = 0; i < 5; ++i) {
    const std::string bars = pictureBytes(sheet, "crop=128:32:" + std::to_string(i * 128) +
                                                     ":0,scale=16:1:flags=area,"
                                                     "format=gray");
    int number = 0;
    for (size_t bit = 0; bit < 16; ++bit)
      if (static_cast<uint8_t>(bars[bit]) > 127) number |= 1 << bit;
    numbers.push_back(number);
  }
  EXPECT_EQ(numbers, (std::vector<int>{12, 37, 62, 87, 112}));
}

TEST_F(Thumb, SpritesHaveTheStepAndSizeAskedFor) {
  made("av25.mp4", "a.jpg", {"--sprites", "--every", "0.5", "--size", "64x-"});
  EXPECT_EQ(sizeOf(folder_ / "a.jpg"), std::pair(256, 36));
  EXPECT_THAT(readBytes(folder_ / "a.vtt"),
              HasSubstr("00:00:01.500 --> 00:00:02.000\na.jpg#xywh=192,0,64,36\n"));
}

TEST_F(Thumb, SpritesReplaceNeitherOfTheirFilesUnasked) {
  writeBytes(folder_ / "a.vtt", "precious");
  const std::string input = fixture("av25.mp4").string();
  EXPECT_TRUE(endsWithSentence(thumb({input, "a.jpg", "--sprites"}), 1, "'a.vtt' exists"));
  EXPECT_EQ(namesIn(folder_.path()), Names{"a.vtt"});
  EXPECT_EQ(thumb({input, "a.jpg", "--sprites", "--force"}).status, 0);
  EXPECT_EQ(namesIn(folder_.path()), (Names{"a.jpg", "a.vtt"}));
}

}  // namespace
}  // namespace kestrel::test
