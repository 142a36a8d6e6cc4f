// What lies over a picture in planes changes only the samples that it touches.

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>

#include <random>

#include "tests/platform/image/TestPictures.h"
#include "tests/platform/image/TestPlanes.h"

namespace kestrel {
namespace {

using test::formatOf;
using test::over;
using test::Planes;

using ImagePointer = std::shared_ptr<const Image>;

Rect boundsOf(const YUVFormat& format) {
  return {{0, 0}, {1.0 * format.width, 1.0 * format.height}};
}

struct Layout {
  const char* name;
  YUVFormat format;
};

const Layout kLayouts[] = {{"420", formatOf(61, 47, 1, 1)},
                           {"422", formatOf(61, 47, 1, 0)},
                           {"444", formatOf(61, 47, 0, 0)},
                           {"420ten", formatOf(61, 47, 1, 1, 10)}};

/// Pixels, from the upper left one.
struct Pixels {
  int left, top, right, bottom;
};

class PartedPictureTest : public testing::TestWithParam<Layout> {
 protected:
  const YUVFormat& format() const { return GetParam().format; }

  /// Samples of every value, those included that no colour has.
  Planes anything(uint32_t seed) const {
    Planes planes(format());
    std::mt19937 random(seed);
    for (size_t p = 0; p < 3; ++p)
      planes.fill(p,
                  [&](int, int) { return static_cast<int>(random() >> (32 - format().bitDepth)); });
    return planes;
  }

  /// Whether a sample shares a block of chroma with one of the areas.
  bool isTouched(size_t p, int x, int y, const std::vector<Pixels>& areas) const {
    const int sideX = 1 << format().chromaShiftX;
    const int sideY = 1 << format().chromaShiftY;
    const int left = (p > 0 ? x * sideX : x) / sideX * sideX;
    const int top = (p > 0 ? y * sideY : y) / sideY * sideY;
    return std::ranges::any_of(areas, [&](const Pixels& area) {
      return left + sideX > area.left && left < area.right && top + sideY > area.top &&
             top < area.bottom;
    });
  }

  void expectChangedOnlyIn(Planes& before, Planes& after, const std::vector<Pixels>& areas) const {
    for (size_t p = 0; p < 3; ++p) {
      for (int y = 0; y < before.height(p); ++y) {
        for (int x = 0; x < before.width(p); ++x) {
          if (isTouched(p, x, y, areas)) continue;
          ASSERT_EQ(after.get(p, x, y), before.get(p, x, y))
              << "plane " << p << " at " << x << " " << y;
        }
      }
    }
  }
};

TEST_P(PartedPictureTest, OverlaysChangeOnlyTheirRectangles) {
  Planes source = anything(1);
  Planes target(format());
  const ImagePointer mark = Image::fromBitmap(test::noise(9, 7, 2, Image::Alpha::kStraight));
  const ImagePointer line = Image::fromColor(Color::white())->cropped({{33, 5}, {11, 3}});
  const ImagePointer picture =
      over(Image::fromPlanes(source.picture()), Image::fromColor(Color::black()));
  const ImagePointer image = over(line, over(mark->translated(13, 20), picture));
  ASSERT_TRUE(ImageContext().render(image->cropped(boundsOf(format())), boundsOf(format()),
                                    target.target()));
  // Rows count from the top of 47.
  expectChangedOnlyIn(source, target, {{13, 20, 22, 27}, {33, 39, 44, 42}});
  EXPECT_EQ(target.get(0, 35, 40), format().bitDepth == 8 ? 235 : 940);
  int changed = 0;
  for (int y = 20; y < 27; ++y) {
    for (int x = 13; x < 22; ++x) changed += target.get(0, x, y) != source.get(0, x, y);
  }
  EXPECT_GT(changed, 40);
}

TEST_P(PartedPictureTest, BarsLeaveThePictureAsItIs) {
  Planes source = anything(4);
  YUVFormat larger = format();
  larger.width += 22;
  larger.height += 18;
  Planes target(larger);
  const ImagePointer image = over(Image::fromPlanes(source.picture())->translated(10, 10),
                                  Image::fromColor(Color::black()));
  ASSERT_TRUE(
      ImageContext().render(image->cropped(boundsOf(larger)), boundsOf(larger), target.target()));
  for (size_t p = 0; p < 3; ++p) {
    const int shiftX = p > 0 ? format().chromaShiftX : 0;
    const int shiftY = p > 0 ? format().chromaShiftY : 0;
    // The last column and row share their chroma with the bars.
    for (int y = 0; y < 46 >> shiftY; ++y) {
      for (int x = 0; x < 60 >> shiftX; ++x) {
        ASSERT_EQ(target.get(p, x + (10 >> shiftX), y + (8 >> shiftY)), source.get(p, x, y))
            << "plane " << p << " at " << x << " " << y;
      }
    }
  }
  EXPECT_EQ(target.get(0, 3, 3), format().bitDepth == 8 ? 16 : 64);
  EXPECT_EQ(target.get(1, 1, 1), format().bitDepth == 8 ? 128 : 512);
}

TEST_P(PartedPictureTest, FiveGenerationsOfColoursThatStayLoseNothing) {
  // Colours that red, green and blue have: half way between black and white, with little colour.
  Planes source(format());
  std::mt19937 random(9);
  const unsigned levels = 1u << (format().bitDepth - 8);
  source.fill(0,
              [&](int, int) { return static_cast<int>(95 * levels + random() % (60 * levels)); });
  for (const size_t p : {1, 2})
    source.fill(
        p, [&](int, int) { return static_cast<int>(118 * levels + random() % (20 * levels)); });
  // Something that does not show lies over all of it, so that all of it is mixed anew.
  const ImagePointer nothing = Image::fromBitmap(test::makeBitmap(61, 47, [](int, int) {
    return test::Pixel{0, 0, 0, 0};
  }));
  Planes before = source;
  for (int generation = 0; generation < 5; ++generation) {
    Planes after(format());
    ASSERT_TRUE(ImageContext().render(over(nothing, Image::fromPlanes(before.picture())),
                                      boundsOf(format()), after.target()));
    before = after;
  }
  expectChangedOnlyIn(source, before, {});
}

INSTANTIATE_TEST_SUITE_P(Layouts, PartedPictureTest, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return std::string(layout.param.name); });

}  // namespace
}  // namespace kestrel
