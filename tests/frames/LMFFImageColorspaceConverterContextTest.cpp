#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFImageColorspaceConverter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "tests/frames/Pictures.h"

namespace kestrel {
namespace {

using test::rgbPicture;
using test::SizedConverter;
using test::Triple;

TEST(LMFFImageColorspaceConverterContext, BytesArePackedPixelsOfTheOutputsSize) {
  std::vector<uint8_t> pixels;
  for (int i = 0; i < 33 * 5; i++) pixels.insert(pixels.end(), {uint8_t(i), uint8_t(i / 33), 3});
  const std::vector<uint8_t> before = pixels;
  SizedConverter converter(AV_PIX_FMT_RGBA, 33, 5);
  converter.convertBytes(pixels.data(), AV_PIX_FMT_RGB24);
  EXPECT_EQ(converter.color(0, 0), (Triple{0, 0, 3}));
  EXPECT_EQ(converter.color(32, 4), (Triple{164, 4, 3}));
  EXPECT_EQ(pixels, before);
}

TEST(LMFFImageColorspaceConverterContext, PlanesOfBytesFollowEachOther) {
  std::vector<uint8_t> pixels(32 * 16, 120);
  pixels.insert(pixels.end(), 16 * 8, 90);
  pixels.insert(pixels.end(), 16 * 8, 200);
  SizedConverter converter(AV_PIX_FMT_YUV420P, 32, 16);
  converter.convertBytes(pixels.data(), AV_PIX_FMT_YUV420P);
  EXPECT_EQ(converter.color(31, 15), (Triple{120, 90, 200}));
  pixels.assign(pixels.size(), 0);
  EXPECT_EQ(converter.color(31, 15), (Triple{120, 90, 200}));
}

TEST(LMFFImageColorspaceConverterContext, BytesHaveTheSizeThatIsWantedNow) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 64, 32);
  converter.convertFrame(rgbPicture(64, 32, {0, 0, 0}).get());
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 16, 8});
  const std::vector<uint8_t> pixels(16 * 8 * 4, 200);
  converter.convertBytes(pixels.data(), AV_PIX_FMT_RGBA);
  EXPECT_EQ(converter.output().width, 64);
  EXPECT_EQ(converter.color(63, 31), (Triple{200, 200, 200}));
}

TEST(LMFFImageColorspaceConverterContext, NullBytesLeaveThePreviousPicture) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 16, 8);
  converter.convertFrame(rgbPicture(16, 8, {10, 20, 30}).get());
  converter.convertBytes(nullptr, AV_PIX_FMT_RGBA);
  EXPECT_EQ(converter.color(), (Triple{10, 20, 30}));
}

TEST(LMFFImageColorspaceConverterContext, NewContextHasTheOutputsSizeAndPackedOpaquePixels) {
  const SizedConverter converter(AV_PIX_FMT_YUV420P, 50, 30);
  const std::unique_ptr<BitmapContext> context = converter.createCGContext();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->width(), 50);
  EXPECT_EQ(context->height(), 30);
  EXPECT_EQ(context->bitsPerPixel(), 32);
  EXPECT_EQ(context->bytesPerRow(), 200);
  EXPECT_EQ(context->format(), BitmapContext::Format::kRGBX);
  EXPECT_EQ(converter.cgcontext(), nullptr);
}

TEST(LMFFImageColorspaceConverterContext, ThereIsNoContextWithoutASize) {
  LMFFImageColorspaceConverter converter;
  EXPECT_EQ(converter.createCGContext(), nullptr);
  converter.createContext();
  EXPECT_EQ(converter.cgcontext(), nullptr);
}

TEST(LMFFImageColorspaceConverterContext, OwnContextIsMadeOnceAndNeverResized) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 50, 30);
  converter.createContext();
  const BitmapContext* const context = converter.cgcontext();
  ASSERT_NE(context, nullptr);
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 20, 10});
  converter.createContext();
  EXPECT_EQ(converter.cgcontext(), context);
  EXPECT_EQ(context->width(), 50);
}

TEST(LMFFImageColorspaceConverterContext, ContextIsConvertedTopRowFirst) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 48, 32);
  const std::unique_ptr<BitmapContext> context = converter.createCGContext();
  context->fillRect({{0, 0}, {48, 32}}, 0, 0, 0);
  context->fillRect({{0, 16}, {48, 16}}, 1, 1, 1);  // the upper half
  converter.convertContext(context.get());
  EXPECT_EQ(converter.color(24, 2), (Triple{235, 128, 128}));
  EXPECT_EQ(converter.color(24, 29), (Triple{16, 128, 128}));
}

TEST(LMFFImageColorspaceConverterContext, NullContextIsIgnored) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 48, 32);
  converter.convertContext(nullptr);
  const BitmapContext nothing(0, 0);
  converter.convertContext(&nothing);
  EXPECT_TRUE(converter.isOutputEmpty());
}

TEST(LMFFImageColorspaceConverterContext,
     ContextOfAnotherDepthIsIgnoredWithoutAMatchingOwnContext) {
  BitmapContext shallow(48, 32, BitmapContext::Format::kRGBX, 16);
  SizedConverter converter(AV_PIX_FMT_RGBA, 48, 32);
  converter.convertContext(&shallow);
  EXPECT_TRUE(converter.isOutputEmpty());
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 10, 10});
  converter.createContext();
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 48, 32});
  converter.convertContext(&shallow);
  EXPECT_TRUE(converter.isOutputEmpty());
}

TEST(LMFFImageColorspaceConverterContext,
     ContextOfAnotherDepthIsConvertedWhenTheOwnContextFitsOneWay) {
  for (const auto& [width, height] : {std::pair{48, 10}, {10, 32}}) {
    BitmapContext shallow(48, 32, BitmapContext::Format::kRGBX, 16);
    std::memset(shallow.data(), 77, static_cast<size_t>(shallow.bytesPerRow()) * 32);
    SizedConverter converter(AV_PIX_FMT_RGBA, width, height);
    converter.createContext();
    converter.setOutputFormat({AV_PIX_FMT_RGBA, 48, 32});
    converter.convertContext(&shallow);
    ASSERT_FALSE(converter.isOutputEmpty());
    EXPECT_EQ(converter.color(47, 31), (Triple{77, 77, 77}));
  }
}

TEST(LMFFImageColorspaceConverterContext, ContextWithTooLittleMemoryIsIgnored) {
  const BitmapContext small(8, 8);
  SizedConverter converter(AV_PIX_FMT_RGBA, 48, 32);
  converter.convertContext(&small);
  EXPECT_TRUE(converter.isOutputEmpty());
}

}  // namespace
}  // namespace kestrel
