#include <kestrel/convert/ContactSheet.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/files/Surface.h"

using namespace kestrel;

namespace {

using kestrel::BitmapContext;
using kestrel::BitmapImage;
using Color = std::array<uint8_t, 3>;

constexpr Color kRed{255, 0, 0};
constexpr Color kGreen{0, 255, 0};
constexpr Color kBlue{0, 0, 255};

std::unique_ptr<BitmapContext> plain(int width, int height, const Color& color) {
  auto surface = std::make_unique<BitmapContext>(width, height);
  surface->fillRect({{}, {static_cast<double>(width), static_cast<double>(height)}},
                    color[0] / 255.0, color[1] / 255.0, color[2] / 255.0);
  return surface;
}

/// The box that the pixels of a colour fill; all zeros where they fill none.
struct Box {
  int left = 0, top = 0, width = 0, height = 0;
};

Box boxOf(const BitmapContext& surface, const Color& color) {
  std::vector<int> xs, ys;
  for (int y = 0; y < surface.height(); ++y)
    for (int x = 0; x < surface.width(); ++x)
      if (std::equal(color.begin(), color.end(),
                     surface.data() + y * surface.bytesPerRow() + x * 4)) {
        xs.push_back(x);
        ys.push_back(y);
      }
  if (xs.empty()) return {};
  const auto [left, right] = std::ranges::minmax(xs);
  const auto [top, bottom] = std::ranges::minmax(ys);
  const Box box{left, top, right - left + 1, bottom - top + 1};
  return static_cast<size_t>(box.width) * static_cast<size_t>(box.height) == xs.size() ? box
                                                                                       : Box{};
}

/// How many pixels of some rows are brighter than the ground.
int brightPixels(const BitmapContext& surface, int top, int bottom) {
  int count = 0;
  for (int y = top; y < bottom; ++y)
    for (int x = 0; x < surface.width(); ++x)
      count += surface.data()[y * surface.bytesPerRow() + x * 4] > 100;
  return count;
}

ContactSheet::Layout layoutOf(int columns, int rows) {
  return {.columns = columns,
          .rows = rows,
          .pictureWidth = 80,
          .pictureHeight = 45,
          .title = "movie.mp4",
          .facts = "0:10"};
}

TEST(ContactSheet, PlacesPicturesInRowsFromTheUpperLeft) {
  ContactSheet sheet(layoutOf(2, 2));
  for (const Color& color : {kRed, kGreen, kBlue}) sheet.add(*shownBy(*plain(80, 45, color)), "");
  const Box red = boxOf(sheet.surface(), kRed);
  const Box green = boxOf(sheet.surface(), kGreen);
  const Box blue = boxOf(sheet.surface(), kBlue);
  for (const Box& box : {red, green, blue}) {
    EXPECT_EQ(box.width, 80);
    EXPECT_EQ(box.height, 45);
  }
  EXPECT_EQ(red.top, green.top);
  EXPECT_EQ(red.left, blue.left);
  EXPECT_GT(green.left, red.left + 80);
  EXPECT_GT(blue.top, red.top + 45);
  EXPECT_EQ(sheet.surface().width(), green.left + 80 + red.left);
}

TEST(ContactSheet, WritesACaptionBelowEachPicture) {
  ContactSheet with(layoutOf(1, 1));
  with.add(*shownBy(*plain(80, 45, kGreen)), "0:05");
  ContactSheet without(layoutOf(1, 1));
  without.add(*shownBy(*plain(80, 45, kGreen)), "");
  const Box box = boxOf(with.surface(), kGreen);
  const int bottom = box.top + box.height;
  EXPECT_GT(brightPixels(with.surface(), bottom, with.surface().height()), 10);
  EXPECT_EQ(brightPixels(without.surface(), bottom, without.surface().height()), 0);
}

TEST(ContactSheet, WritesTitleAndFactsAboveThePictures) {
  ContactSheet::Layout layout = layoutOf(3, 1);
  const auto bright = [](const ContactSheet::Layout& wanted) {
    ContactSheet sheet(wanted);
    sheet.add(*shownBy(*plain(80, 45, kRed)), "");
    return brightPixels(sheet.surface(), 0, boxOf(sheet.surface(), kRed).top);
  };
  const int all = bright(layout);
  layout.facts = "";
  const int title = bright(layout);
  layout.title = "";
  EXPECT_GT(all, title);
  EXPECT_GT(title, 30);
  EXPECT_EQ(bright(layout), 0);
}

TEST(ContactSheet, ALongTitleStaysOnTheSheet) {
  ContactSheet::Layout layout = layoutOf(1, 1);
  layout.title = std::string(1000, 'W');
  const ContactSheet sheet(layout);
  EXPECT_EQ(sheet.surface().width(), ContactSheet(layoutOf(1, 1)).surface().width());
  EXPECT_EQ(sheet.surface().height(), ContactSheet(layoutOf(1, 1)).surface().height());
}

TEST(ContactSheet, PicturesBeyondTheLastPlaceAreLeftOut) {
  ContactSheet sheet(layoutOf(1, 1));
  sheet.add(*shownBy(*plain(80, 45, kRed)), "");
  sheet.add(*shownBy(*plain(80, 45, kBlue)), "");
  EXPECT_EQ(boxOf(sheet.surface(), kRed).width, 80);
  EXPECT_EQ(boxOf(sheet.surface(), kBlue).width, 0);
}

TEST(ContactSheet, ASheetIsAsWideAsItIsMeantToBe) {
  for (const int columns : {1, 4, 10}) {
    ContactSheet::Layout layout = layoutOf(columns, 1);
    layout.pictureWidth = ContactSheet::pictureWidthFor(columns, 1600);
    EXPECT_NEAR(ContactSheet(layout).surface().width(), 1600, 1600 * 0.02) << columns;
  }
}

TEST(ContactSheet, ASheetBeyondAllSizeIsRefused) {
  ContactSheet::Layout layout = layoutOf(100, 100);
  layout.pictureWidth = 1920;
  EXPECT_THROW(ContactSheet{layout}, Failure);
}

}  // namespace
