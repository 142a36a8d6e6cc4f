#include <gmock/gmock.h>
#include <kestrel/PropertyList.h>

#include <random>

#include "tests/platform/archive/RawPropertyList.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// Why the bytes are refused; "" when they are read.
std::string refusal(const std::vector<uint8_t>& bytes) {
  Error error;
  return PropertyList::fromData(bytes, &error) ? "" : error.message;
}

TEST(PropertyListHostileTest, TheRawFormIsReadWhereItIsRight) {
  const RawPropertyList list{{rawArray({1, 2}), rawText("a"), "\x10\x07"}};
  EXPECT_EQ(PropertyList::fromData(list.bytes()), PropertyList(PropertyList::Array{"a", 7}));
}

TEST(PropertyListHostileTest, CyclesAreRefused) {
  EXPECT_THAT(refusal(RawPropertyList{{rawArray({0})}}.bytes()), HasSubstr("deep"));
  EXPECT_THAT(refusal(RawPropertyList{{rawArray({1}), rawArray({0})}}.bytes()), HasSubstr("deep"));
  EXPECT_THAT(refusal(RawPropertyList{{rawDictionary({1, 0}), rawText("k")}}.bytes()),
              HasSubstr("deep"));
}

TEST(PropertyListHostileTest, AMillionNestedArraysAreRefused) {
  constexpr uint32_t kCount = 1000000;
  RawPropertyList list;
  for (uint32_t i = 0; i < kCount; ++i) list.objects.push_back(rawArray({i + 1}));
  list.objects.push_back("\x10\x07");
  EXPECT_THAT(refusal(list.bytes()), HasSubstr("deep"));
}

TEST(PropertyListHostileTest, DepthsUpToTheLimitAreRead) {
  for (const uint32_t depth : {255U, 256U}) {
    RawPropertyList list;
    for (uint32_t i = 0; i < depth; ++i) list.objects.push_back(rawArray({i + 1}));
    list.objects.push_back("\x10\x07");
    EXPECT_EQ(refusal(list.bytes()).empty(), depth == 255) << depth;
  }
}

TEST(PropertyListHostileTest, ArraysThatMultiplyAreRefused) {
  RawPropertyList list;  // 10 to the 60th values, if they were all made
  for (uint32_t i = 0; i < 60; ++i)
    list.objects.push_back(rawArray(std::vector<uint32_t>(10, i + 1)));
  list.objects.push_back("\x10\x07");
  EXPECT_THAT(refusal(list.bytes()), HasSubstr("multiply"));
}

TEST(PropertyListHostileTest, TextsThatMultiplyAreRefused) {
  const RawPropertyList list{
      {rawArray(std::vector<uint32_t>(100000, 1)), rawText(std::string(1000000, 'x'))}};
  EXPECT_THAT(refusal(list.bytes()), HasSubstr("multiply"));
}

TEST(PropertyListHostileTest, HugeCountsAreRefused) {
  for (const uint64_t count : {uint64_t{100}, uint64_t{1} << 31, uint64_t{1} << 61,
                               uint64_t{1} << 62, uint64_t{1} << 63, UINT64_MAX}) {
    for (const int marker : {0x40, 0x50, 0x60, 0x70, 0xA0, 0xD0})
      EXPECT_NE(refusal(RawPropertyList{{counted(marker, count)}}.bytes()), "")
          << marker << " x " << count;
    EXPECT_NE(refusal(RawPropertyList{{"\x08"}, 0, count}.bytes()), "") << count;
    EXPECT_NE(refusal(RawPropertyList{{"\x08"}, count}.bytes()), "") << count;
    EXPECT_NE(refusal(RawPropertyList{{rawArray({static_cast<uint32_t>(count)})}}.bytes()), "");
  }
}

TEST(PropertyListHostileTest, KeysOfOtherKindsAreRefused) {
  EXPECT_THAT(refusal(RawPropertyList{{rawDictionary({1, 1}), "\x10\x07"}}.bytes()),
              HasSubstr("key"));
}

TEST(PropertyListHostileTest, UnknownKindsAreRefused) {
  for (const int marker : {0x00, 0x0F, 0x21, 0x30, 0x90, 0xB0, 0xC0, 0xE0, 0xF0})
    EXPECT_THAT(
        refusal(RawPropertyList{{std::string(1, static_cast<char>(marker)) + std::string(16, '\0')}}
                    .bytes()),
        HasSubstr("unknown kind"))
        << marker;
}

TEST(PropertyListHostileTest, NumbersThatDoNotFitAreRefused) {
  const std::string tooLarge = "\x14" + std::string(8, '\0') + std::string(8, '\xFF');
  EXPECT_THAT(refusal(RawPropertyList{{tooLarge}}.bytes()), HasSubstr("64 bits"));
  const std::string wide = "\x15" + std::string(32, '\0');
  EXPECT_THAT(refusal(RawPropertyList{{wide}}.bytes()), HasSubstr("64 bits"));
  EXPECT_THAT(refusal(RawPropertyList{{"\x87" + std::string(8, '\xFF')}}.bytes()),
              HasSubstr("32 bits"));
}

PropertyList someList() {
  return PropertyList::Dictionary{
      {"a", PropertyList::Array{1, 2.5, "three", true}},
      {"b", PropertyList::Dictionary{{"data", PropertyList::Data(40, 1)}, {"text", "Grüße"}}}};
}

TEST(PropertyListHostileTest, NoTruncatedFileIsReadAsWhole) {
  const auto bytes = someList().toData();
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_NE(refusal({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)}), "")
        << size;
}

TEST(PropertyListHostileTest, DamagedFilesAreReadOrRefused) {
  std::mt19937 random(1);
  const auto bytes = someList().toData();
  for (int round = 0; round < 20000; ++round) {
    auto damaged = bytes;
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
    const auto list = PropertyList::fromData(damaged);
    if (list) {
      EXPECT_TRUE(PropertyList::fromData(list->toData()));
    }
  }
}

}  // namespace
}  // namespace kestrel::test
