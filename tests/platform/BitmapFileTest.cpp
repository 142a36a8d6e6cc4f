#include <gmock/gmock.h>
#include <kestrel/BitmapFile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using test::TempDir;
using Bytes = std::vector<uint8_t>;
using Pixel = std::array<int, 4>;

/// Runs ffmpeg; answers what it writes to standard output.
std::string ffmpeg(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
  const auto result = test::run(arguments);
  if (result.status != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
  return result.out;
}

void write(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

Bytes read(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::shared_ptr<const BitmapImage> pictureOf(int width, int height, const Bytes& rgba) {
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[rgba.size()]);
  std::ranges::copy(rgba, pixels.get());
  return BitmapImage::sharing(pixels, width, height, static_cast<int>(rgba.size()) / height);
}

Bytes packedRows(const BitmapImage& image) {
  Bytes bytes;
  for (int y = 0; y < image.height(); ++y)
    bytes.insert(bytes.end(), image.row(y), image.row(y) + image.width() * 4);
  return bytes;
}

Pixel at(const BitmapImage& image, int x, int y) {
  const uint8_t* p = image.row(y) + x * 4;
  return {p[0], p[1], p[2], p[3]};
}

int distance(const Pixel& a, const Pixel& b) {
  int most = 0;
  for (size_t i = 0; i < a.size(); ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

/// Every byte another one than its neighbours, alpha included.
Bytes noise(int width, int height, bool hasAlpha) {
  Bytes bytes(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
  uint32_t state = 1;
  for (size_t i = 0; i < bytes.size(); ++i) {
    state = state * 1664525 + 1013904223;
    bytes[i] = i % 4 == 3 && !hasAlpha ? 255 : static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

class BitmapFileTest : public testing::Test {
 protected:
  /// A file of these bytes as ffmpeg decodes it.
  Bytes decodedByFFmpeg(const Bytes& bytes, const std::string& name, const std::string& format) {
    write(folder_ / name, bytes);
    const std::string out = ffmpeg({"-i", (folder_ / name).string(), "-vf",
                                    "scale=sws_flags=accurate_rnd+full_chroma_int,format=" + format,
                                    "-f", "rawvideo", "-"});
    return {out.begin(), out.end()};
  }

  /// A file that ffmpeg makes of one of its sources.
  Bytes madeByFFmpeg(const std::string& name, const std::string& source,
                     const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments{"-f", "lavfi", "-i", source, "-frames:v", "1"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back((folder_ / name).string());
    ffmpeg(arguments);
    return read(folder_ / name);
  }

  /// What ffprobe says of the picture in a file.
  std::string probed(const Bytes& bytes, const std::string& name, const std::string& entries) {
    write(folder_ / name, bytes);
    return test::run({"ffprobe", "-v", "error", "-show_entries", entries, "-of",
                      "default=noprint_wrappers=1:nokey=1", (folder_ / name).string()})
        .out;
  }

  const TempDir folder_;
};

TEST_F(BitmapFileTest, PNGKeepsEveryByteOfColourAndAlpha) {
  const Bytes pixels = noise(37, 23, true);
  const auto file = encodedBitmapImage(*pictureOf(37, 23, pixels), PictureFormat::kPNG);
  ASSERT_TRUE(file);
  EXPECT_EQ(decodedByFFmpeg(*file, "a.png", "rgba"), pixels);
  EXPECT_EQ(probed(*file, "a.png", "stream=pix_fmt"), "rgba\n");
}

TEST_F(BitmapFileTest, OpaquePNGHasNoAlphaAndEveryByteOfColour) {
  const Bytes pixels = noise(37, 23, false);
  const auto file = encodedBitmapImage(*pictureOf(37, 23, pixels), PictureFormat::kPNG);
  ASSERT_TRUE(file);
  EXPECT_EQ(decodedByFFmpeg(*file, "a.png", "rgba"), pixels);
  EXPECT_EQ(probed(*file, "a.png", "stream=pix_fmt"), "rgb24\n");
}

TEST_F(BitmapFileTest, RowsWithSpaceBehindThemAreReadRight) {
  const Bytes wide = noise(8, 3, false);
  const auto part = BitmapImage::borrowing(wide.data(), 5, 3, 8 * 4);
  const auto file = encodedBitmapImage(*part, PictureFormat::kPNG);
  ASSERT_TRUE(file);
  EXPECT_EQ(decodedByFFmpeg(*file, "a.png", "rgba"), packedRows(*part));
}

TEST_F(BitmapFileTest, JPEGSaysThatItsColoursAreTheUsualOnes) {
  const auto file =
      encodedBitmapImage(*pictureOf(16, 16, noise(16, 16, false)), PictureFormat::kJPEG);
  ASSERT_TRUE(file);
  EXPECT_EQ(probed(*file, "a.jpg", "stream=color_range,color_space,sample_aspect_ratio"),
            "1:1\npc\nbt470bg\n");
  // The segment by which viewers know that the components are luma and chroma.
  const std::string text(file->begin(), file->end());
  EXPECT_EQ(text.substr(6, 5), std::string("JFIF\0", 5));
}

/// Four quarters of 32 × 32.
const std::array<Pixel, 4> kQuarters{
    {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}, {250, 250, 250, 255}}};

Bytes quarters() {
  Bytes pixels;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x)
      for (const int value : kQuarters[static_cast<size_t>(y / 32 * 2 + x / 32)])
        pixels.push_back(static_cast<uint8_t>(value));
  return pixels;
}

/// How far the middles of a picture's quarters are from their colours.
int distanceOfQuarters(const BitmapImage& seen) {
  int most = 0;
  for (int quarter = 0; quarter < 4; ++quarter)
    most = std::max(most, distance(at(seen, 16 + quarter % 2 * 32, 16 + quarter / 2 * 32),
                                   kQuarters[static_cast<size_t>(quarter)]));
  return most;
}

/// What an AVIF file holds as its one item, as a stream of AV1.
Bytes streamIn(const Bytes& avif) {
  const auto number = [&](size_t at) {
    return size_t{avif[at]} << 24 | size_t{avif[at + 1]} << 16 | size_t{avif[at + 2]} << 8 |
           avif[at + 3];
  };
  for (size_t at = 0; at + 8 <= avif.size(); at += number(at)) {
    if (std::string(avif.begin() + static_cast<ptrdiff_t>(at) + 4,
                    avif.begin() + static_cast<ptrdiff_t>(at) + 8) != "mdat")
      continue;
    Bytes stream{0x12, 0x00};  // a temporal delimiter, which files of one picture leave out
    stream.insert(stream.end(), avif.begin() + static_cast<ptrdiff_t>(at) + 8,
                  avif.begin() + static_cast<ptrdiff_t>(at + number(at)));
    return stream;
  }
  return {};
}

TEST_F(BitmapFileTest, JPEGKeepsColours) {
  const auto file = encodedBitmapImage(*pictureOf(64, 64, quarters()), PictureFormat::kJPEG);
  ASSERT_TRUE(file);
  EXPECT_LE(distanceOfQuarters(*pictureOf(64, 64, decodedByFFmpeg(*file, "a.jpg", "rgba"))), 3);
}

TEST_F(BitmapFileTest, WebPKeepsColoursAndAlpha) {
  const auto file = encodedBitmapImage(*pictureOf(64, 64, quarters()), PictureFormat::kWebP);
  ASSERT_TRUE(file);
  EXPECT_EQ(probed(*file, "a.webp", "stream=codec_name,pix_fmt"), "webp\nyuv420p\n");
  EXPECT_LE(distanceOfQuarters(*pictureOf(64, 64, decodedByFFmpeg(*file, "a.webp", "rgba"))), 6);
  // Alpha is exact.
  Bytes pixels = quarters();
  for (size_t i = 3; i < pixels.size(); i += 4) pixels[i] = static_cast<uint8_t>(i % 251);
  const auto clear = encodedBitmapImage(*pictureOf(64, 64, pixels), PictureFormat::kWebP);
  ASSERT_TRUE(clear);
  const Bytes seen = decodedByFFmpeg(*clear, "b.webp", "rgba");
  ASSERT_EQ(seen.size(), pixels.size());
  for (size_t i = 3; i < pixels.size(); i += 4) ASSERT_EQ(seen[i], pixels[i]);
}

TEST_F(BitmapFileTest, AVIFKeepsColoursAndSaysWhatTheyAre) {
  const auto file = encodedBitmapImage(*pictureOf(64, 64, quarters()), PictureFormat::kAVIF);
  ASSERT_TRUE(file);
  const Bytes start(file->begin() + 4, file->begin() + 12);
  EXPECT_EQ(std::string(start.begin(), start.end()), "ftypavif");
  // Primaries of BT.709, sRGB's curve, BT.601's matrix, full range.
  const Bytes colours{'n', 'c', 'l', 'x', 0, 1, 0, 13, 0, 5, 0x80};
  EXPECT_NE(std::search(file->begin(), file->end(), colours.begin(), colours.end()), file->end());
  const Bytes stream = streamIn(*file);
  EXPECT_EQ(probed(stream, "a.obu", "stream=codec_name,width,height,pix_fmt,color_range"),
            "av1\n64\n64\nyuv444p\npc\n");
  EXPECT_LE(distanceOfQuarters(*pictureOf(64, 64, decodedByFFmpeg(stream, "a.obu", "rgba"))), 6);
}

TEST_F(BitmapFileTest, LossyFormatsTakeAQuality) {
  const auto picture = pictureOf(64, 64, noise(64, 64, false));
  for (const auto format : {PictureFormat::kJPEG, PictureFormat::kWebP, PictureFormat::kAVIF}) {
    const auto size = [&](std::optional<int> quality) {
      return encodedBitmapImage(*picture, format, quality).value_or(Bytes{}).size();
    };
    EXPECT_LT(size(0), size(30));
    EXPECT_LT(size(30), size(100));
    EXPECT_EQ(size(usualQuality(format)), size({}));
    EXPECT_EQ(size(-5), size(0));
    EXPECT_EQ(size(400), size(100));
  }
  EXPECT_FALSE(usualQuality(PictureFormat::kPNG));
}

TEST_F(BitmapFileTest, JPEGShowsTransparencyOverBlack) {
  Bytes pixels;
  for (int i = 0; i < 16 * 16; ++i) pixels.insert(pixels.end(), {200, 100, 50, 128});
  const auto file = encodedBitmapImage(*pictureOf(16, 16, pixels), PictureFormat::kJPEG);
  ASSERT_TRUE(file);
  const auto seen = pictureOf(16, 16, decodedByFFmpeg(*file, "a.jpg", "rgba"));
  EXPECT_LE(distance(at(*seen, 8, 8), {100, 50, 25, 255}), 3);
}

TEST_F(BitmapFileTest, QualityIsWhatAFilesSizePays) {
  const auto picture = bitmapImageWithData(madeByFFmpeg("a.png", "testsrc2=size=320x180"));
  ASSERT_TRUE(picture);
  const auto size = [&](int quality) {
    return encodedBitmapImage(*picture, PictureFormat::kJPEG, quality).value_or(Bytes{}).size();
  };
  EXPECT_GT(size(1), 0u);
  EXPECT_LT(size(1), size(50));
  EXPECT_LT(size(50), size(80));
  EXPECT_LT(size(80), size(100));
  EXPECT_EQ(size(100), size(1000));
  EXPECT_EQ(size(1), size(-5));
}

TEST_F(BitmapFileTest, JPEGOfHighQualityIsCloseToThePicture) {
  const auto picture = bitmapImageWithData(madeByFFmpeg("a.png", "testsrc2=size=320x180"));
  ASSERT_TRUE(picture);
  const auto file = encodedBitmapImage(*picture, PictureFormat::kJPEG);
  ASSERT_TRUE(file);
  const Bytes seen = decodedByFFmpeg(*file, "b.jpg", "rgba");
  const Bytes wanted = packedRows(*picture);
  ASSERT_EQ(seen.size(), wanted.size());
  double sum = 0;
  for (size_t i = 0; i < seen.size(); ++i) sum += std::pow(int{seen[i]} - int{wanted[i]}, 2);
  const double psnr = 10 * std::log10(255.0 * 255 * static_cast<double>(seen.size()) / sum);
  EXPECT_GT(psnr, 38);
}

TEST_F(BitmapFileTest, APictureTooLargeForTheFormatHasNoFile) {
  const auto wide = pictureOf(70000, 1, Bytes(70000 * 4));
  for (const auto format : {PictureFormat::kJPEG, PictureFormat::kWebP, PictureFormat::kAVIF})
    EXPECT_FALSE(encodedBitmapImage(*wide, format));
}

TEST_F(BitmapFileTest, OnePixelIsAPicture) {
  const auto pixel = pictureOf(1, 1, {10, 200, 30, 255});
  for (const auto format : {PictureFormat::kPNG, PictureFormat::kJPEG, PictureFormat::kWebP}) {
    const auto file = encodedBitmapImage(*pixel, format);
    ASSERT_TRUE(file);
    const auto seen = bitmapImageWithData(*file);
    ASSERT_TRUE(seen);
    EXPECT_EQ(std::pair(seen->width(), seen->height()), std::pair(1, 1));
    EXPECT_LE(distance(at(*seen, 0, 0), {10, 200, 30, 255}), 4);
  }
  const auto file = encodedBitmapImage(*pixel, PictureFormat::kAVIF);
  ASSERT_TRUE(file);
  const Bytes stream = streamIn(*file);
  EXPECT_LE(distance(at(*pictureOf(1, 1, decodedByFFmpeg(stream, "a.obu", "rgba")), 0, 0),
                     {10, 200, 30, 255}),
            4);
}

struct Lossless {
  const char* name;
  const char* source;
  std::vector<std::string> options;
};

class LosslessFiles : public BitmapFileTest, public testing::WithParamInterface<Lossless> {};

TEST_P(LosslessFiles, AreReadToTheByte) {
  const auto& [name, source, options] = GetParam();
  const Bytes file = madeByFFmpeg(name, source, options);
  const auto picture = bitmapImageWithData(file);
  ASSERT_TRUE(picture);
  EXPECT_TRUE(picture->isOwning());
  EXPECT_EQ(packedRows(*picture), decodedByFFmpeg(file, name, "rgba"));
}

constexpr const char* kBars = "smptebars=size=45x31,format=rgb24";
constexpr const char* kGlass = "color=color=orange@0.4:size=45x31,format=rgba";

INSTANTIATE_TEST_SUITE_P(
    BitmapFile, LosslessFiles,
    testing::Values(Lossless{"rgb.png", kBars, {}}, Lossless{"alpha.png", kGlass, {}},
                    Lossless{"grey.png", kBars, {"-pix_fmt", "gray"}},
                    Lossless{"palette.png", kBars, {"-pix_fmt", "pal8"}},
                    Lossless{"black-white.png", kBars, {"-pix_fmt", "monob"}},
                    Lossless{"rgb.bmp", kBars, {"-pix_fmt", "bgr24"}},
                    Lossless{"alpha.bmp", kGlass, {"-pix_fmt", "bgra"}},
                    Lossless{"rgb.gif", kBars, {}}, Lossless{"rgb.tiff", kBars, {}},
                    Lossless{"packed.tiff", kBars, {"-compression_algo", "lzw"}},
                    Lossless{"alpha.tiff", kGlass, {"-pix_fmt", "rgba"}},
                    Lossless{"lossless.webp", kGlass, {"-lossless", "1", "-pix_fmt", "bgra"}}),
    [](const auto& instance) {
      std::string name = instance.param.name;
      std::ranges::replace_if(
          name, [](char c) { return !std::isalnum(c); }, '_');
      return name;
    });

/// What a lossy file shows in the middle of a colour.
TEST_F(BitmapFileTest, LossyFilesAreReadWithTheirColours) {
  const std::string orange = "color=color=0xC86432:size=64x48,format=rgb24";
  const std::vector<std::pair<std::string, std::vector<std::string>>> files{
      {"a.jpg", {"-pix_fmt", "yuvj420p", "-q:v", "2"}},
      {"b.jpg", {"-pix_fmt", "yuvj444p", "-q:v", "2"}},
      {"a.webp", {"-lossless", "0", "-quality", "95", "-pix_fmt", "yuv420p"}}};
  for (const auto& [name, options] : files) {
    const auto picture = bitmapImageWithData(madeByFFmpeg(name, orange, options));
    ASSERT_TRUE(picture) << name;
    EXPECT_EQ(std::pair(picture->width(), picture->height()), std::pair(64, 48)) << name;
    EXPECT_LE(distance(at(*picture, 32, 24), {200, 100, 50, 255}), 3) << name;
  }
}

TEST_F(BitmapFileTest, SixteenBitsBecomeEight) {
  const Bytes file = madeByFFmpeg("deep.png", kBars, {"-pix_fmt", "rgb48be"});
  const auto picture = bitmapImageWithData(file);
  ASSERT_TRUE(picture);
  const Bytes deep = decodedByFFmpeg(file, "deep.png", "rgb48be");
  const Bytes seen = packedRows(*picture);
  ASSERT_EQ(deep.size() / 6, seen.size() / 4);
  for (size_t i = 0; i < seen.size() / 4; ++i)
    for (size_t c = 0; c < 3; ++c)
      ASSERT_NEAR(seen[4 * i + c], deep[6 * i + 2 * c], 1) << i;  // the high byte comes first
}

TEST_F(BitmapFileTest, OfAMovingGIFTheFirstPictureCounts) {
  const Bytes file = madeByFFmpeg("moving.gif",
                                  "color=color=red:size=16x16:rate=2:duration=1,"
                                  "drawbox=color=blue:t=fill:enable='gte(n,1)'",
                                  {"-frames:v", "2"});
  const auto picture = bitmapImageWithData(file);
  ASSERT_TRUE(picture);
  EXPECT_LE(distance(at(*picture, 8, 8), {255, 0, 0, 255}), 8);
}

/// A JPEG with a note of how the camera was held (1 to 8) put behind its first marker.
Bytes withOrientation(const Bytes& jpeg, uint8_t orientation) {
  const Bytes note{0xFF, 0xE1, 0, 34, 'E', 'x',         'i', 'f', 0,    0,    'M', 'M',
                   0,    42,   0, 0,  0,   8,           0,   1,   0x01, 0x12, 0,   3,
                   0,    0,    0, 1,  0,   orientation, 0,   0,   0,    0,    0,   0};
  Bytes file(jpeg.begin(), jpeg.begin() + 2);
  file.insert(file.end(), note.begin(), note.end());
  file.insert(file.end(), jpeg.begin() + 2, jpeg.end());
  return file;
}

class HeldCamera : public BitmapFileTest, public testing::WithParamInterface<int> {};

TEST_P(HeldCamera, ShowsItsPictureUpright) {
  // Red at the upper left, green at the upper right, blue at the lower left, white at the other:
  // what each of the eight orientations makes of these corners is the camera makers' table.
  const Pixel red{255, 0, 0, 255}, green{0, 255, 0, 255}, blue{0, 0, 255, 255},
      white{255, 255, 255, 255};
  const std::array<std::array<Pixel, 4>, 8> corners{{
      {red, green, blue, white},  // as it is
      {green, red, white, blue},  // mirrored
      {white, blue, green, red},  // half a turn
      {blue, white, red, green},  // upside down, mirrored
      {red, blue, green, white},  // transposed
      {blue, red, white, green},  // a quarter turn clockwise
      {white, green, blue, red},  // transposed the other way
      {green, white, red, blue},  // a quarter turn the other way
  }};
  Bytes pixels;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 48; ++x)
      for (const int value : corners[0][static_cast<size_t>(y / 16 * 2 + x / 24)])
        pixels.push_back(static_cast<uint8_t>(value));
  const auto jpeg = encodedBitmapImage(*pictureOf(48, 32, pixels), PictureFormat::kJPEG);
  ASSERT_TRUE(jpeg);
  const int orientation = GetParam();
  const auto seen = bitmapImageWithData(withOrientation(*jpeg, static_cast<uint8_t>(orientation)));
  ASSERT_TRUE(seen);
  const int width = orientation < 5 ? 48 : 32;
  const int height = orientation < 5 ? 32 : 48;
  ASSERT_EQ(std::pair(seen->width(), seen->height()), std::pair(width, height));
  const auto& wanted = corners[static_cast<size_t>(orientation - 1)];
  EXPECT_LE(distance(at(*seen, 4, 4), wanted[0]), 4);
  EXPECT_LE(distance(at(*seen, width - 5, 4), wanted[1]), 4);
  EXPECT_LE(distance(at(*seen, 4, height - 5), wanted[2]), 4);
  EXPECT_LE(distance(at(*seen, width - 5, height - 5), wanted[3]), 4);
}

INSTANTIATE_TEST_SUITE_P(BitmapFile, HeldCamera, testing::Range(1, 9));

TEST_F(BitmapFileTest, WhatIsNoPictureIsNone) {
  EXPECT_FALSE(bitmapImageWithData({}));
  EXPECT_FALSE(bitmapImageWithData(Bytes{0x89}));
  EXPECT_FALSE(bitmapImageWithData(Bytes(1000)));
  EXPECT_FALSE(bitmapImageWithData(Bytes{'R', 'I', 'F', 'F'}));
  const std::string text = "BM is how this text begins, and it is no picture for all that.";
  EXPECT_FALSE(bitmapImageWithData(Bytes(text.begin(), text.end())));
  EXPECT_FALSE(bitmapImageWithData(madeByFFmpeg("clip.mkv", "testsrc=size=32x32:duration=1")));
}

TEST_F(BitmapFileTest, ATruncatedFileIsNoPicture) {
  for (const auto* name : {"a.png", "a.jpg", "a.bmp", "a.webp", "a.tiff"}) {
    Bytes file = madeByFFmpeg(name, "testsrc2=size=160x120");
    file.resize(file.size() / 2);
    EXPECT_FALSE(bitmapImageWithData(file)) << name;
  }
}

/// Every byte of small files in turn is another one: nothing may crash, whatever comes out.
TEST_F(BitmapFileTest, DamagedFilesDoNoHarm) {
  for (const auto* name : {"a.png", "a.jpg", "a.bmp", "a.webp", "a.gif", "a.tiff"}) {
    const Bytes file = madeByFFmpeg(name, "testsrc2=size=24x18");
    for (size_t i = 0; i < std::min<size_t>(file.size(), 400); ++i)
      for (const uint8_t value : {uint8_t{0}, uint8_t{255}}) {
        Bytes damaged = file;
        damaged[i] = value;
        const auto picture = bitmapImageWithData(damaged);
        if (picture) {
          EXPECT_LE(int64_t{picture->width()} * picture->height(), int64_t{1} << 26);
        }
      }
  }
}

TEST_F(BitmapFileTest, AHugePictureIsRefusedByItsHeader) {
  Bytes file = madeByFFmpeg("a.bmp", "color=size=16x16", {"-pix_fmt", "bgr24"});
  // Width and height stand at 18 and 22, four bytes each, the lowest first.
  file[18] = file[22] = 0;
  file[19] = file[23] = 0x40;  // 16384 × 16384
  EXPECT_FALSE(bitmapImageWithData(file));
}

}  // namespace
}  // namespace kestrel
