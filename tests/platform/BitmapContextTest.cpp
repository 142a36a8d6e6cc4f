#include <gtest/gtest.h>
#include <kestrel/BitmapContext.h>

#include <array>
#include <climits>
#include <limits>
#include <vector>

namespace kestrel {
namespace {

using Format = BitmapContext::Format;
using Blend = BitmapContext::Blend;
using Pixel = std::array<int, 4>;

constexpr Pixel kClear{0, 0, 0, 0};
constexpr Pixel kBlack{0, 0, 0, 255};
constexpr Pixel kWhite{255, 255, 255, 255};
constexpr Pixel kRed{255, 0, 0, 255};
constexpr Pixel kBlue{0, 0, 255, 255};

/// The pixel `x` from the left and `y` rows from the top.
Pixel at(const BitmapContext& context, int x, int y) {
  const uint8_t* p = context.data() + y * context.bytesPerRow() + x * 4;
  return {p[0], p[1], p[2], p[3]};
}

Rect whole(const BitmapContext& context) {
  return {{}, {static_cast<double>(context.width()), static_cast<double>(context.height())}};
}

/// A picture of the given pixels, row by row from the top.
std::shared_ptr<const BitmapImage> makeImage(int width, const std::vector<Pixel>& pixels) {
  std::shared_ptr<uint8_t[]> memory(new uint8_t[pixels.size() * 4]);
  for (size_t i = 0; i < pixels.size() * 4; ++i) {
    memory[i] = static_cast<uint8_t>(pixels[i / 4][i % 4]);
  }
  return BitmapImage::sharing(memory, width, static_cast<int>(pixels.size()) / width, width * 4);
}

/// A row of grey pixels.
std::shared_ptr<const BitmapImage> makeGreys(const std::vector<int>& greys) {
  std::vector<Pixel> pixels;
  for (int grey : greys) pixels.push_back({grey, grey, grey, 255});
  return makeImage(static_cast<int>(greys.size()), pixels);
}

std::vector<int> redsOfTopRow(const BitmapContext& context) {
  std::vector<int> reds;
  for (int x = 0; x < context.width(); ++x) reds.push_back(at(context, x, 0)[0]);
  return reds;
}

TEST(BitmapContextTest, SurfaceWithoutAlphaStartsOpaqueBlack) {
  const BitmapContext context(2, 2);
  EXPECT_EQ(context.format(), Format::kRGBX);
  EXPECT_EQ(at(context, 0, 0), kBlack);
  EXPECT_EQ(at(context, 1, 1), kBlack);
}

TEST(BitmapContextTest, SurfaceWithAlphaStartsTransparent) {
  const BitmapContext context(2, 2, Format::kRGBA);
  EXPECT_EQ(at(context, 0, 0), kClear);
  EXPECT_EQ(at(context, 1, 1), kClear);
}

TEST(BitmapContextTest, RowsAreTightlyPacked) {
  const BitmapContext context(7, 3);
  EXPECT_EQ(context.width(), 7);
  EXPECT_EQ(context.height(), 3);
  EXPECT_EQ(context.bitsPerPixel(), 32);
  EXPECT_EQ(context.bytesPerRow(), 28);
}

TEST(BitmapContextTest, ImpossibleSizesGiveASurfaceWithoutPixels) {
  for (const auto& [width, height] : {std::pair(0, 5), {5, 0}, {-1, 5}, {INT_MAX, INT_MAX}}) {
    BitmapContext context(width, height);
    EXPECT_EQ(context.width(), 0);
    EXPECT_EQ(context.height(), 0);
    EXPECT_EQ(context.data(), nullptr);
    context.clear();
    context.fillRect({{0, 0}, {5, 5}}, 1, 1, 1);
    context.drawImage(*makeImage(1, {kRed}), {{0, 0}, {5, 5}});
  }
}

TEST(BitmapContextTest, AnotherDepthIsDeclaredAndNotDrawnOn) {
  BitmapContext context(4, 2, Format::kRGBX, 16);
  EXPECT_EQ(context.bitsPerPixel(), 16);
  EXPECT_EQ(context.bytesPerRow(), 16);
  context.data()[0] = 77;
  context.fillRect(whole(context), 1, 1, 1);
  context.drawImage(*makeImage(1, {kWhite}), whole(context));
  EXPECT_EQ(at(context, 0, 0), (Pixel{77, 0, 0, 0}));
  EXPECT_EQ(at(context, 3, 1), kClear);

  context.clear();
  EXPECT_EQ(at(context, 0, 0), kClear);
}

TEST(BitmapContextTest, DeeperSurfaceHasRoomForItsPixels) {
  const BitmapContext context(3, 2, Format::kRGBX, 64);
  EXPECT_EQ(context.bytesPerRow(), 24);
  EXPECT_EQ(context.data()[47], 0);
}

TEST(BitmapContextTest, ClearForgetsWhatWasDrawn) {
  BitmapContext opaque(1, 1);
  BitmapContext transparent(1, 1, Format::kRGBA);
  for (BitmapContext* context : {&opaque, &transparent}) {
    context->fillRect(whole(*context), 1, 0.5, 0.25, 0.75);
    context->clear();
  }
  EXPECT_EQ(at(opaque, 0, 0), kBlack);
  EXPECT_EQ(at(transparent, 0, 0), kClear);
}

TEST(BitmapContextTest, OriginIsTheLowerLeftCorner) {
  BitmapContext context(3, 2);
  context.fillRect({{0, 0}, {1, 1}}, 1, 0, 0);
  EXPECT_EQ(at(context, 0, 1), kRed);
  EXPECT_EQ(at(context, 0, 0), kBlack);
  EXPECT_EQ(at(context, 1, 1), kBlack);
}

TEST(BitmapContextTest, FillWritesComponentsInMemoryOrder) {
  BitmapContext context(1, 1, Format::kRGBA);
  context.fillRect(whole(context), 1, 0.4, 0.2, 1);
  EXPECT_EQ(at(context, 0, 0), (Pixel{255, 102, 51, 255}));
}

TEST(BitmapContextTest, FillClampsItsComponents) {
  BitmapContext context(1, 1);
  context.fillRect(whole(context), 7, -3, std::numeric_limits<double>::quiet_NaN(), 2);
  EXPECT_EQ(at(context, 0, 0), kRed);
}

TEST(BitmapContextTest, TranslucentFillIsLaidOverWhatIsThere) {
  BitmapContext context(1, 1);
  context.fillRect(whole(context), 0, 0, 1);
  context.fillRect(whole(context), 1, 0, 0, 0.2);
  EXPECT_EQ(at(context, 0, 0), (Pixel{51, 0, 204, 255}));
}

TEST(BitmapContextTest, TranslucentFillKeepsItsColourOnATransparentSurface) {
  BitmapContext context(1, 1, Format::kRGBA);
  context.fillRect(whole(context), 1, 0.4, 0, 0.2);
  EXPECT_EQ(at(context, 0, 0), (Pixel{255, 102, 0, 51}));
}

TEST(BitmapContextTest, TwoTranslucentFillsCombineTheirAlphas) {
  BitmapContext context(1, 1, Format::kRGBA);
  context.fillRect(whole(context), 0, 0, 1, 0.6);
  context.fillRect(whole(context), 1, 0, 0, 0.5);
  // Alpha 0.5 + 0.6 · 0.5 = 0.8; red 0.5 / 0.8 = 0.625; blue 0.3 / 0.8 = 0.375.
  EXPECT_EQ(at(context, 0, 0), (Pixel{159, 0, 96, 204}));
}

TEST(BitmapContextTest, FillCoversCutPixelsInPart) {
  BitmapContext context(3, 1);
  context.fillRect({{0.8, 0}, {1.6, 1}}, 1, 1, 1);
  EXPECT_EQ(redsOfTopRow(context), (std::vector{51, 255, 102}));
}

TEST(BitmapContextTest, FillIsClippedToTheSurface) {
  BitmapContext context(2, 2);
  context.fillRect({{-1e9, 1}, {1e9 + 1, 1e9}}, 1, 0, 0);
  EXPECT_EQ(at(context, 0, 0), kRed);
  EXPECT_EQ(at(context, 1, 0), kBlack);
  EXPECT_EQ(at(context, 0, 1), kBlack);
}

TEST(BitmapContextTest, EmptyAndInfiniteRectanglesDrawNothing) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
  BitmapContext context(2, 2);
  const auto image = makeImage(1, {kRed});
  for (const Rect& rect :
       {Rect{{0, 0}, {0, 2}}, Rect{{1, 1}, {-1, 1}}, Rect{{0.5, 0.5}, {5e-324, 1}},
        Rect{{0, 0}, {kInfinity, 2}}, Rect{{-kInfinity, 0}, {kInfinity, 2}},
        Rect{{kNothing, 0}, {2, 2}}, Rect{{0, 0}, {2, kNothing}}, Rect{{5, 5}, {2, 2}}}) {
    context.fillRect(rect, 1, 0, 0);
    context.drawImage(*image, rect);
    context.drawImage(*image, rect, Blend::kCopy);
  }
  for (int i = 0; i < 4; ++i) EXPECT_EQ(at(context, i % 2, i / 2), kBlack);
}

TEST(BitmapContextTest, PictureInItsOwnSizeArrivesByteForByte) {
  const std::vector<Pixel> pixels = {{1, 2, 3, 4},      {250, 120, 7, 0}, {9, 8, 7, 255},
                                     {33, 66, 99, 128}, {255, 254, 1, 1}, {0, 0, 0, 0}};
  BitmapContext context(3, 2, Format::kRGBA);
  context.fillRect(whole(context), 1, 1, 1);
  context.drawImage(*makeImage(3, pixels), whole(context), Blend::kCopy);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(at(context, i % 3, i / 3), pixels[i]) << i;
}

TEST(BitmapContextTest, OpaquePictureInItsOwnSizeArrivesExactlyOverAnother) {
  std::vector<Pixel> pixels;
  for (int i = 0; i < 256; ++i) pixels.push_back({i, 255 - i, (i * 7) % 256, 255});
  BitmapContext context(16, 16);
  context.fillRect(whole(context), 0, 1, 0);
  context.drawImage(*makeImage(16, pixels), whole(context));
  for (int i = 0; i < 256; ++i) EXPECT_EQ(at(context, i % 16, i / 16), pixels[i]) << i;
}

TEST(BitmapContextTest, TranslucentPictureArrivesExactlyOnATransparentSurface) {
  std::vector<Pixel> pixels;
  for (int i = 0; i < 256; ++i) pixels.push_back({(i * 3) % 256, 255 - i, 17, std::max(i, 1)});
  BitmapContext context(16, 16, Format::kRGBA);
  context.drawImage(*makeImage(16, pixels), whole(context));
  for (int i = 0; i < 256; ++i) EXPECT_EQ(at(context, i % 16, i / 16), pixels[i]) << i;
}

TEST(BitmapContextTest, PictureIsClippedAtEveryEdge) {
  std::vector<Pixel> pixels;
  for (int i = 0; i < 16; ++i) pixels.push_back({i, 0, 0, 255});
  const auto image = makeImage(4, pixels);
  for (const Blend blend : {Blend::kSourceOver, Blend::kCopy}) {
    // The surface shows the picture's rows 1 and 2 from the top, and its columns 1 and 2.
    BitmapContext context(2, 2, Format::kRGBA);
    context.drawImage(*image, {{-1, -1}, {4, 4}}, blend);
    EXPECT_EQ(at(context, 0, 0), (Pixel{5, 0, 0, 255}));
    EXPECT_EQ(at(context, 1, 0), (Pixel{6, 0, 0, 255}));
    EXPECT_EQ(at(context, 0, 1), (Pixel{9, 0, 0, 255}));
    EXPECT_EQ(at(context, 1, 1), (Pixel{10, 0, 0, 255}));
  }
}

TEST(BitmapContextTest, PictureIsPlacedFromTheLowerLeftCorner) {
  for (const Blend blend : {Blend::kSourceOver, Blend::kCopy}) {
    BitmapContext context(3, 3, Format::kRGBA);
    context.drawImage(*makeImage(1, {kRed, kBlue}), {{2, 0}, {1, 2}}, blend);
    EXPECT_EQ(at(context, 2, 0), kClear);
    EXPECT_EQ(at(context, 2, 1), kRed);
    EXPECT_EQ(at(context, 2, 2), kBlue);
    EXPECT_EQ(at(context, 1, 2), kClear);
  }
}

TEST(BitmapContextTest, EnlargingInterpolatesBetweenPixelCentres) {
  BitmapContext context(4, 1);
  context.drawImage(*makeGreys({40, 200}), whole(context));
  EXPECT_EQ(redsOfTopRow(context), (std::vector{40, 80, 160, 200}));
}

TEST(BitmapContextTest, EnlargingInterpolatesVerticallyToo) {
  BitmapContext context(1, 4);
  context.drawImage(*makeImage(1, {{40, 0, 0, 255}, {200, 0, 0, 255}}), whole(context));
  const std::vector<int> expected = {40, 80, 160, 200};
  for (int y = 0; y < 4; ++y) EXPECT_EQ(at(context, 0, y)[0], expected[y]) << y;
}

TEST(BitmapContextTest, ShrinkingAveragesTheCoveredArea) {
  BitmapContext context(2, 1);
  context.drawImage(*makeGreys({0, 60, 100, 180, 240, 250}), whole(context));
  // (0 + 60 + 100) / 3 and (180 + 240 + 250) / 3
  EXPECT_EQ(redsOfTopRow(context), (std::vector{53, 223}));
}

TEST(BitmapContextTest, ShrinkingSharesPixelsThatLieAcrossABorder) {
  BitmapContext context(2, 1);
  context.drawImage(*makeGreys({30, 90, 240}), whole(context));
  // (30 + 90/2) / 1.5 and (90/2 + 240) / 1.5
  EXPECT_EQ(redsOfTopRow(context), (std::vector{50, 190}));
}

TEST(BitmapContextTest, ShrinkingMatchesABruteForceAverage) {
  constexpr int kFromWidth = 7, kFromHeight = 5, kToWidth = 3, kToHeight = 2;
  std::vector<Pixel> pixels;
  for (int i = 0; i < kFromWidth * kFromHeight; ++i) {
    pixels.push_back({(i * 53) % 256, (i * 101) % 256, (i * 197) % 256, 255});
  }
  BitmapContext context(kToWidth, kToHeight);
  context.drawImage(*makeImage(kFromWidth, pixels), whole(context));

  // On a grid fine enough for both sizes each pixel is a whole block of points.
  for (int y = 0; y < kToHeight; ++y) {
    for (int x = 0; x < kToWidth; ++x) {
      for (int c = 0; c < 3; ++c) {
        int sum = 0;
        for (int j = y * kFromHeight; j < (y + 1) * kFromHeight; ++j) {
          for (int i = x * kFromWidth; i < (x + 1) * kFromWidth; ++i) {
            sum += pixels[(j / kToHeight) * kFromWidth + i / kToWidth][c];
          }
        }
        const double expected = static_cast<double>(sum) / (kFromWidth * kFromHeight);
        EXPECT_NEAR(at(context, x, y)[c], expected, 0.5001) << x << ' ' << y << ' ' << c;
      }
    }
  }
}

TEST(BitmapContextTest, DirectionsAreResampledIndependently) {
  BitmapContext context(1, 4);
  context.drawImage(*makeImage(2, {{0, 0, 0, 255}, {80, 0, 0, 255}, {160, 0, 0, 255}, kRed}),
                    whole(context));
  // Averages 40 and 207.5 of the rows, then a quarter and three quarters of the way.
  const std::vector<int> expected = {40, 82, 166, 208};
  for (int y = 0; y < 4; ++y) EXPECT_EQ(at(context, 0, y)[0], expected[y]) << y;
}

TEST(BitmapContextTest, TransparentPixelsDoNotDarkenTheirNeighbours) {
  BitmapContext shrunk(1, 1, Format::kRGBA);
  shrunk.drawImage(*makeImage(2, {kRed, kClear}), whole(shrunk));
  EXPECT_EQ(at(shrunk, 0, 0), (Pixel{255, 0, 0, 128}));

  BitmapContext enlarged(4, 1, Format::kRGBA);
  enlarged.drawImage(*makeImage(2, {kRed, kClear}), whole(enlarged));
  EXPECT_EQ(at(enlarged, 1, 0), (Pixel{255, 0, 0, 191}));
  EXPECT_EQ(at(enlarged, 2, 0), (Pixel{255, 0, 0, 64}));
}

TEST(BitmapContextTest, StretchedPictureFillsItsRectangleWithoutARim) {
  for (const Size& size : {Size{5, 3}, Size{11, 7}, Size{2, 9}}) {
    BitmapContext context(static_cast<int>(size.width), static_cast<int>(size.height),
                          Format::kRGBA);
    context.drawImage(*makeImage(4, std::vector<Pixel>(12, kWhite)), whole(context));
    for (int y = 0; y < context.height(); ++y) {
      for (int x = 0; x < context.width(); ++x) EXPECT_EQ(at(context, x, y), kWhite);
    }
  }
}

TEST(BitmapContextTest, PictureCoversCutPixelsInPart) {
  BitmapContext context(3, 1, Format::kRGBA);
  context.drawImage(*makeImage(1, {kRed}), {{0.8, 0}, {1.6, 1}});
  EXPECT_EQ(at(context, 0, 0), (Pixel{255, 0, 0, 51}));
  EXPECT_EQ(at(context, 1, 0), kRed);
  EXPECT_EQ(at(context, 2, 0), (Pixel{255, 0, 0, 102}));
}

TEST(BitmapContextTest, SourceOverShowsWhatIsBelowTransparentParts) {
  BitmapContext context(2, 1);
  context.fillRect(whole(context), 0, 0, 1);
  context.drawImage(*makeImage(2, {{255, 255, 255, 0}, {255, 0, 0, 51}}), whole(context));
  EXPECT_EQ(at(context, 0, 0), kBlue);
  EXPECT_EQ(at(context, 1, 0), (Pixel{51, 0, 204, 255}));
}

TEST(BitmapContextTest, CopyReplacesWhatIsThere) {
  BitmapContext context(4, 1, Format::kRGBA);
  context.fillRect(whole(context), 0, 0, 1);
  context.drawImage(*makeImage(2, {kClear, {255, 0, 0, 51}}), whole(context), Blend::kCopy);
  EXPECT_EQ(at(context, 0, 0), kClear);
  EXPECT_EQ(at(context, 3, 0), (Pixel{255, 0, 0, 51}));
}

TEST(BitmapContextTest, CopyOnASurfaceWithoutAlphaLooksAsOverBlack) {
  BitmapContext context(2, 1);
  context.fillRect(whole(context), 0, 0, 1);
  context.drawImage(*makeImage(2, {kClear, {255, 0, 0, 51}}), whole(context), Blend::kCopy);
  EXPECT_EQ(at(context, 0, 0), kBlack);
  EXPECT_EQ(at(context, 1, 0), (Pixel{51, 0, 0, 255}));
}

TEST(BitmapContextTest, CopyLeavesTheUncoveredPartOfCutPixels) {
  BitmapContext context(2, 1);
  context.fillRect(whole(context), 0, 0, 1);
  context.drawImage(*makeImage(1, {kRed}), {{0, 0}, {1.2, 1}}, Blend::kCopy);
  EXPECT_EQ(at(context, 0, 0), kRed);
  EXPECT_EQ(at(context, 1, 0), (Pixel{51, 0, 204, 255}));
}

TEST(BitmapContextTest, HugeTargetShowsOnlyItsPartOfThePicture) {
  const auto image = makeImage(2, {kRed, kBlue, {100, 0, 0, 255}, {200, 0, 0, 255}});
  BitmapContext context(2, 2);
  context.drawImage(*image, {{-1e12, 0}, {2e12, 1e12}});
  // The surface lies at the very bottom, in the middle, half way from one pixel to the next.
  EXPECT_EQ(at(context, 0, 1), (Pixel{150, 0, 0, 255}));
}

TEST(BitmapContextTest, RowPaddingOfAPictureIsNotDrawn) {
  const std::vector<uint8_t> memory = {255, 0, 0, 255, 9, 9, 9, 9, 0, 0, 255, 255, 9, 9, 9, 9};
  for (const Blend blend : {Blend::kSourceOver, Blend::kCopy}) {
    BitmapContext context(1, 2, Format::kRGBA);
    context.drawImage(*BitmapImage::borrowing(memory.data(), 1, 2, 8), whole(context), blend);
    EXPECT_EQ(at(context, 0, 0), kRed);
    EXPECT_EQ(at(context, 0, 1), kBlue);
  }
}

}  // namespace
}  // namespace kestrel
