#include <gtest/gtest.h>
#include <kestrel/MemorySource.h>

#include <array>
#include <vector>

namespace kestrel {
namespace {

std::vector<uint8_t> readFrom(MemorySource& source, int64_t offset, int32_t size) {
  std::vector<uint8_t> bytes(16);
  source.setRead_offset(offset);
  bytes.resize(static_cast<size_t>(source.read(bytes.data(), size)));
  return bytes;
}

TEST(MemorySource, ServesItsBytes) {
  using Bytes = std::vector<uint8_t>;
  const auto source = MemorySource::fromText("abcdef");
  EXPECT_EQ(source->filesize(), 6);
  EXPECT_EQ(readFrom(*source, 0, 4), (Bytes{'a', 'b', 'c', 'd'}));
  EXPECT_EQ(readFrom(*source, 4, 16), (Bytes{'e', 'f'}));
  EXPECT_EQ(readFrom(*source, 6, 16), Bytes{});
  EXPECT_EQ(readFrom(*source, INT64_MAX, 16), Bytes{});
  EXPECT_EQ(readFrom(*source, -1, 2), (Bytes{'a', 'b'}));
  EXPECT_EQ(readFrom(*source, 0, -1), Bytes{});
}

TEST(MemorySource, CopiesShareItsBytesAndHaveItsName) {
  const auto source = MemorySource::fromText("abc");
  source->setFullpath("/films/a.srt");
  const auto copy = std::dynamic_pointer_cast<MemorySource>(source->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->bytes(), source->bytes());
  EXPECT_EQ(copy->name(), "a");
}

TEST(MemorySource, OfNothingIsEmpty) {
  MemorySource source(nullptr);
  EXPECT_EQ(source.filesize(), 0);
  source.open();
  EXPECT_FALSE(source.isOpen());
}

TEST(MemorySource, OpensWhatItHolds) {
  const auto source = MemorySource::fromText("1\n00:00:00,000 --> 00:00:01,000\nText\n");
  source->open();
  EXPECT_TRUE(source->isOpen());
  EXPECT_TRUE(source->isSeekable());
}

}  // namespace
}  // namespace kestrel
