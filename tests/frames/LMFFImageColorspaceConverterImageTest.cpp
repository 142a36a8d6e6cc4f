#include <gmock/gmock.h>
#include <kestrel/BitmapContext.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFImageColorspaceConverter.h>

#include <memory>
#include <vector>

#include "tests/frames/Pictures.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<const BitmapImage> bitmap(
    int width, int height, const std::function<std::array<int, 4>(int, int)>& color) {
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[static_cast<size_t>(width) * height * 4]);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto value = color(x, y);
      for (size_t i = 0; i < 4; ++i)
        pixels[static_cast<size_t>(y * width + x) * 4 + i] = static_cast<uint8_t>(value[i]);
    }
  }
  return BitmapImage::sharing(std::move(pixels), width, height, width * 4);
}

std::shared_ptr<const BitmapImage> bitmap(int width, int height, std::array<int, 4> color) {
  return bitmap(width, height, [color](int, int) { return color; });
}

std::shared_ptr<const Image> colored(const Color& color, const Rect& rect) {
  return Image::fromColor(color)->cropped(rect);
}

std::vector<int> pixelAt(const BitmapContext& context, int x, int y) {
  const uint8_t* pixel = context.data() + y * context.bytesPerRow() + x * 4;
  return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

std::vector<int> pixelAt(const BitmapImage& image, int x, int y) {
  const uint8_t* pixel = image.row(y) + x * 4;
  return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

void expectNear(const Triple& actual, const Triple& expected, double tolerance) {
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << i;
}

constexpr Color kOrange{0.8, 0.4, 0.2, 1};
constexpr Triple kOrangeBytes{204, 102, 51};

// Drawing on a context.

TEST(LMFFImageColorspaceConverterImage, DrawsBitmapOverTheWholeContext) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(16, 8);
  converter.drawImage(bitmap(4, 2, {10, 20, 30, 255}), &context);
  EXPECT_THAT(pixelAt(context, 0, 0), ElementsAre(10, 20, 30, 255));
  EXPECT_THAT(pixelAt(context, 15, 7), ElementsAre(10, 20, 30, 255));
}

TEST(LMFFImageColorspaceConverterImage, DrawnBitmapReplacesWhatIsThere) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(8, 8, BitmapContext::Format::kRGBA);
  converter.drawImage(bitmap(8, 8, {255, 0, 0, 255}), &context);
  converter.drawImage(bitmap(8, 8, {0, 255, 0, 64}), &context);
  EXPECT_THAT(pixelAt(context, 3, 3), ElementsAre(0, 255, 0, 64));
}

TEST(LMFFImageColorspaceConverterImage, DrawsRecipeFromItsExtentOverTheWholeContext) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(32, 16);
  const auto image = Image::fromBitmap(bitmap(16, 8, [](int x, int) {
                       return x < 8 ? std::array{255, 0, 0, 255} : std::array{0, 0, 255, 255};
                     }))->translated(100, -50);
  converter.drawImage(image, &context);
  EXPECT_THAT(pixelAt(context, 0, 0), ElementsAre(255, 0, 0, 255));
  EXPECT_THAT(pixelAt(context, 31, 15), ElementsAre(0, 0, 255, 255));
}

TEST(LMFFImageColorspaceConverterImage, DrawnRecipeIsLaidOverWhatIsThere) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(8, 8);
  converter.drawImage(colored({0, 0, 1, 1}, {{0, 0}, {1, 1}}), &context);
  converter.drawImage(colored({1, 0, 0, 0.5}, {{0, 0}, {1, 1}}), &context);
  EXPECT_NEAR(pixelAt(context, 3, 3)[0], 128, 1);
  EXPECT_NEAR(pixelAt(context, 3, 3)[2], 127, 1);
}

TEST(LMFFImageColorspaceConverterImage, DrawsColourWithoutBounds) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(8, 8);
  converter.drawImage(Image::fromColor({0, 1, 0, 1}), &context);
  EXPECT_THAT(pixelAt(context, 7, 7), ElementsAre(0, 255, 0, 255));
}

TEST(LMFFImageColorspaceConverterImage, NothingIsDrawnOfNothing) {
  const LMFFImageColorspaceConverter converter;
  BitmapContext context(8, 8);
  converter.drawImage(std::shared_ptr<const Image>(), &context);
  converter.drawImage(std::shared_ptr<const BitmapImage>(), &context);
  converter.drawImage(colored(kOrange, {}), &context);
  EXPECT_THAT(pixelAt(context, 3, 3), ElementsAre(0, 0, 0, 255));
  converter.drawImage(Image::fromColor(kOrange), nullptr);
  converter.drawImage(bitmap(1, 1, {1, 2, 3, 255}), nullptr);
}

// Converting.

TEST(LMFFImageColorspaceConverterImage, WithoutAnOutputSizeNothingIsConverted) {
  LMFFImageColorspaceConverter converter;
  converter.convertImage(Image::fromColor(kOrange));
  converter.convertImage(bitmap(4, 4, {1, 2, 3, 255}));
  converter.convertBitmapImage(bitmap(4, 4, {1, 2, 3, 255}));
  EXPECT_TRUE(converter.isOutputEmpty());
  EXPECT_EQ(converter.cgcontext(), nullptr);
}

TEST(LMFFImageColorspaceConverterImage, RecipeBecomesTheOutputsFormat) {
  for (const auto format : {AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24}) {
    SizedConverter converter(format, 33, 17);
    converter.convertImage(colored(kOrange, {{3, 4}, {10, 10}}));
    expectNear(converter.color(0, 0), kOrangeBytes, 1);
    expectNear(converter.color(32, 16), kOrangeBytes, 1);
  }
}

TEST(LMFFImageColorspaceConverterImage, RecipeIsWrittenIntoPlanesInTheirColours) {
  const struct {
    AVPixelFormat format;
    LMFFVideoColor color;
    YuvModel model;
    int height;
  } cases[] = {
      {AV_PIX_FMT_YUV420P, {}, kBt601, 480},
      {AV_PIX_FMT_YUV420P, {}, kBt709, 720},
      {AV_PIX_FMT_YUV420P, {.matrix = AVCOL_SPC_BT709}, kBt709, 480},
      {AV_PIX_FMT_YUV420P, {.matrix = AVCOL_SPC_BT709, .range = AVCOL_RANGE_JPEG}, kBt709Full, 480},
      {AV_PIX_FMT_YUVJ420P, {}, kBt601Full, 480},
      {AV_PIX_FMT_NV12, {}, kBt601, 480},
      {AV_PIX_FMT_YUV422P, {}, kBt601, 480},
      {AV_PIX_FMT_YUV444P, {}, kBt601, 480},
  };
  for (const auto& each : cases) {
    SizedConverter converter(each.format, 64, each.height);
    converter.setOutputColor(each.color);
    converter.convertImage(Image::fromColor(kOrange));
    expectNear(converter.color(20, 20), each.model.fromRgb(kOrangeBytes), 1);
    const AVFrame& output = converter.output();
    EXPECT_EQ(output.color_range, each.model.isFull ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    EXPECT_EQ(output.colorspace, each.model.red > 0.25 ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709);
    EXPECT_TRUE(hasAlignedRows(output));
  }
}

TEST(LMFFImageColorspaceConverterImage, TenBitOutputHasItsSteps) {
  SizedConverter converter(AV_PIX_FMT_YUV420P10, 64, 480);
  converter.convertImage(Image::fromColor(kOrange));
  YuvModel model = kBt601;
  model.bits = 10;
  expectNear(converter.color(20, 20), model.fromRgb(kOrangeBytes), 2);
}

TEST(LMFFImageColorspaceConverterImage, BothWaysIntoPlanesAgree) {
  const auto image = Image::fromBitmap(bitmap(96, 54, [](int x, int y) {
    return std::array{40 + 2 * x, 50 + 3 * y, 60 + x + y, 255};
  }));
  SizedConverter direct(AV_PIX_FMT_YUV420P, 96, 54);
  direct.convertImage(image);
  SizedConverter drawn(AV_PIX_FMT_YUV420P, 96, 54);
  drawn.createContext();
  ASSERT_TRUE(drawn.cgcontext());  // from now on everything is drawn there
  drawn.convertImage(image);
  for (int y = 0; y < 54; ++y)
    for (int x = 0; x < 96; ++x) expectNear(direct.color(x, y), drawn.color(x, y), 2);
}

TEST(LMFFImageColorspaceConverterImage, TransparentPartsKeepWhatWasDrawnBefore) {
  for (const auto format : {AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGBA}) {
    const bool isYuv = format == AV_PIX_FMT_YUV444P;
    SizedConverter converter(format, 32, 16);
    converter.convertImage(Image::fromColor(kOrange));
    const auto right = Image::emptyInfiniteImage()->cropped({{0, 0}, {32, 16}});
    converter.convertImage(right);
    expectNear(converter.color(10, 10), isYuv ? kBt601.fromRgb(kOrangeBytes) : kOrangeBytes, 1);
  }
}

TEST(LMFFImageColorspaceConverterImage, FirstPictureLiesOnBlack) {
  SizedConverter converter(AV_PIX_FMT_YUV444P, 32, 16);
  converter.convertImage(Image::emptyInfiniteImage()->cropped({{0, 0}, {32, 16}}));
  EXPECT_EQ(converter.color(10, 10), (Triple{16, 128, 128}));
}

TEST(LMFFImageColorspaceConverterImage, ConvertedFramesAreNotUnderWhatIsDrawn) {
  SizedConverter converter(AV_PIX_FMT_YUV444P, 32, 16);
  converter.convertFrame(rgbPicture(32, 16, {255, 255, 255}).get());
  converter.convertImage(Image::emptyInfiniteImage()->cropped({{0, 0}, {32, 16}}));
  EXPECT_EQ(converter.color(10, 10), (Triple{16, 128, 128}));
}

TEST(LMFFImageColorspaceConverterImage, ContextShowsWhatWasDrawnPastIt) {
  SizedConverter converter(AV_PIX_FMT_YUV444P, 32, 16);
  converter.convertImage(Image::fromColor(kOrange));
  const BitmapContext* context = converter.cgcontext();
  ASSERT_TRUE(context);
  const auto pixel = pixelAt(*context, 10, 10);
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(pixel[i], kOrangeBytes[i], 2);
  EXPECT_EQ(pixel[3], 255);
}

TEST(LMFFImageColorspaceConverterImage, HostsDrawingStaysUnderTheNextImage) {
  SizedConverter converter(AV_PIX_FMT_YUV444P, 32, 16);
  converter.createContext();
  converter.cgcontext()->fillRect({{0, 0}, {32, 16}}, 1, 1, 1);
  converter.convertImage(Image::emptyInfiniteImage()->cropped({{0, 0}, {32, 16}}));
  expectNear(converter.color(10, 10), {235, 128, 128}, 1);
}

TEST(LMFFImageColorspaceConverterImage, BitmapsAndRecipesShareTheSurface) {
  SizedConverter converter(AV_PIX_FMT_YUV444P, 32, 16);
  converter.convertImage(Image::fromColor({0, 0, 1, 1}));
  // Half red over blue.
  converter.convertBitmapImage(bitmap(4, 4, {255, 0, 0, 128}));
  expectNear(converter.color(10, 10), kBt601.fromRgb({128, 0, 127}), 2);
  converter.convertImage(bitmap(4, 4, {0, 0, 0, 0}));  // replaces: black
  expectNear(converter.color(10, 10), {16, 128, 128}, 1);
}

TEST(LMFFImageColorspaceConverterImage, OutputThatAnEncoderHoldsIsNotWrittenTo) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 32, 16);
  converter.convertImage(Image::fromColor({1, 1, 1, 1}));
  const FramePtr held(av_frame_clone(converter.outputFrame()));
  for (const double grey : {0.0, 0.5, 0.25}) {
    converter.convertImage(Image::fromColor({grey, grey, grey, 1}));
    EXPECT_EQ(held->data[0][5], 235);
  }
}

TEST(LMFFImageColorspaceConverterImage, OutputKeepsItsFirstSize) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 32, 16);
  converter.convertImage(Image::fromColor(kOrange));
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 8, 8});
  converter.convertImage(Image::fromColor({0, 0, 0, 1}));
  EXPECT_EQ(converter.output().width, 32);
  EXPECT_EQ(converter.output().format, AV_PIX_FMT_YUV420P);
}

TEST(LMFFImageColorspaceConverterImage, NoImageConvertsWhatTheContextShows) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 16, 8);
  converter.convertImage(std::shared_ptr<const Image>());
  EXPECT_FALSE(converter.isOutputEmpty());
  EXPECT_EQ(converter.color(), (Triple{0, 0, 0}));
}

// Red is 32787 of 65535, which 8 bits would make 128 × 257 = 32896.
TEST(LMFFImageColorspaceConverterImage, DeepOutputsKeepTheirDepth) {
  const struct {
    AVPixelFormat format;
    int values;  // of a pixel
    bool isBig;
  } rows[] = {{AV_PIX_FMT_RGB48LE, 3, false},  {AV_PIX_FMT_RGB48BE, 3, true},
              {AV_PIX_FMT_RGBA64LE, 4, false}, {AV_PIX_FMT_RGBA64BE, 4, true},
              {AV_PIX_FMT_GRAY16LE, 1, false}, {AV_PIX_FMT_GRAY16BE, 1, true}};
  for (const auto& row : rows) {
    SizedConverter converter(row.format, 16, 8);
    const double grey = 32787.0 / 65535;
    converter.convertImage(Image::fromColor({grey, grey, grey, 1}));
    const uint8_t* const pixel = converter.output().data[0] + ptrdiff_t{2} * row.values;
    for (int i = 0; i < std::min(row.values, 3); ++i) {
      const int first = pixel[2 * i];
      const int second = pixel[2 * i + 1];
      EXPECT_NEAR(row.isBig ? 256 * first + second : first + 256 * second, 32787, 2)
          << av_get_pix_fmt_name(row.format) << ' ' << i;
    }
  }
}

// A red edge between the first and the second column: by Rec. 601, left of the edge Cr is 240,
// right of it 128. With the left column a sample is (6 x 240 + 2 (240 + 128) - 240 - 128) / 8, and
// in the middle (3 (240 + 128) - 240 - 128) / 4.
TEST(LMFFImageColorspaceConverterImage, ChromaLiesWhereItIsAskedFor) {
  const auto edge = bitmap(8, 8, [](int x, int) {
    return x < 1 ? std::array{255, 0, 0, 255} : std::array{0, 0, 0, 255};
  });
  const auto firstCr = [&](AVChromaLocation place) {
    SizedConverter converter(AV_PIX_FMT_YUV420P, 8, 8);
    converter.setChromaPlace(place, false);
    converter.convertImage(Image::fromBitmap(edge, Image::Alpha::kOpaque));
    EXPECT_EQ(converter.output().chroma_location, place);
    return converter.output().data[2][0];
  };
  EXPECT_NEAR(firstCr(AVCHROMA_LOC_LEFT), 226, 1);
  EXPECT_NEAR(firstCr(AVCHROMA_LOC_TOPLEFT), 226, 1);
  EXPECT_NEAR(firstCr(AVCHROMA_LOC_CENTER), 184, 1);
}

// The output as a bitmap.

TEST(LMFFImageColorspaceConverterImage, EmptyOutputIsNoBitmap) {
  const SizedConverter converter(AV_PIX_FMT_RGBA, 16, 8);
  EXPECT_EQ(converter.outputImage(), nullptr);
}

TEST(LMFFImageColorspaceConverterImage, OutputsPixelsAreBorrowed) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 16, 8);
  converter.convertImage(bitmap(16, 8, {10, 20, 30, 255}));
  const auto image = converter.outputImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixels(), converter.output().data[0]);
  EXPECT_EQ(image->bytesPerRow(), converter.output().linesize[0]);
  EXPECT_EQ(image->width(), 16);
  EXPECT_EQ(image->height(), 8);
  EXPECT_FALSE(image->isOwning());
  EXPECT_THAT(pixelAt(*image, 3, 3), ElementsAre(10, 20, 30, 255));
}

TEST(LMFFImageColorspaceConverterImage, OutputOfSmallerPixelsIsNoBitmap) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 16, 8);
  converter.convertImage(Image::fromColor(kOrange));
  EXPECT_EQ(converter.outputImage(), nullptr);
}

}  // namespace
}  // namespace kestrel::test
