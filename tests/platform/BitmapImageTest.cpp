#include <gtest/gtest.h>
#include <kestrel/BitmapImage.h>

#include <climits>
#include <cstring>
#include <vector>

namespace kestrel {
namespace {

/// Two rows of one pixel, with four bytes of padding after each.
std::vector<uint8_t> paddedPixels() {
  return {1, 2, 3, 4, 90, 91, 92, 93, 5, 6, 7, 8, 94, 95, 96, 97};
}

TEST(BitmapImageTest, BorrowedPictureShowsTheLendersMemory) {
  std::vector<uint8_t> memory = paddedPixels();
  const auto image = BitmapImage::borrowing(memory.data(), 1, 2, 8);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixels(), memory.data());
  EXPECT_EQ(image->width(), 1);
  EXPECT_EQ(image->height(), 2);
  EXPECT_EQ(image->bytesPerRow(), 8);
  EXPECT_EQ(image->row(1), memory.data() + 8);
  EXPECT_FALSE(image->isOwning());

  memory[0] = 200;
  EXPECT_EQ(image->pixels()[0], 200);
}

TEST(BitmapImageTest, SharedMemoryLivesAsLongAsThePicture) {
  std::shared_ptr<uint8_t[]> memory(new uint8_t[4]{9, 8, 7, 6});
  const std::weak_ptr<uint8_t[]> watch = memory;
  auto image = BitmapImage::sharing(memory, 1, 1, 4);
  memory.reset();
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->isOwning());
  EXPECT_FALSE(watch.expired());
  EXPECT_EQ(image->pixels()[0], 9);

  image.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(BitmapImageTest, CopyOwnsItsPixelsWithoutThePadding) {
  std::vector<uint8_t> memory = paddedPixels();
  const auto copy = BitmapImage::borrowing(memory.data(), 1, 2, 8)->copy();
  ASSERT_TRUE(copy);
  memory.assign(memory.size(), 0);

  EXPECT_TRUE(copy->isOwning());
  EXPECT_EQ(copy->width(), 1);
  EXPECT_EQ(copy->height(), 2);
  EXPECT_EQ(copy->bytesPerRow(), 4);
  const uint8_t expected[] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(std::memcmp(copy->pixels(), expected, sizeof expected), 0);
}

TEST(BitmapImageTest, ImpossibleBuffersGiveNoPicture) {
  const std::vector<uint8_t> memory(64);
  EXPECT_FALSE(BitmapImage::borrowing(nullptr, 2, 2, 8));
  EXPECT_FALSE(BitmapImage::borrowing(memory.data(), 0, 2, 8));
  EXPECT_FALSE(BitmapImage::borrowing(memory.data(), 2, -1, 8));
  EXPECT_FALSE(BitmapImage::borrowing(memory.data(), 2, 2, 7));
  EXPECT_FALSE(BitmapImage::borrowing(memory.data(), INT_MAX, 1, INT_MAX));
  EXPECT_FALSE(BitmapImage::sharing(nullptr, 2, 2, 8));
}

}  // namespace
}  // namespace kestrel
