#include "convert/hls/CodecName.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace kestrel::test {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes box(const std::string& name, const Bytes& content) {
  const auto size = static_cast<uint32_t>(content.size() + 8);
  Bytes all{static_cast<uint8_t>(size >> 24), static_cast<uint8_t>(size >> 16),
            static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)};
  all.insert(all.end(), name.begin(), name.end());
  all.insert(all.end(), content.begin(), content.end());
  return all;
}

/// The head of a file whose one stream has this entry, behind boxes that say nothing of it.
Bytes headOf(const Bytes& entry) {
  Bytes row = box("stsd", joined({Bytes{0, 0, 0, 0, 0, 0, 0, 1}, entry}));
  for (const char* name : {"stbl", "minf", "mdia", "trak", "moov"})
    row = box(name, joined({box("free", Bytes(3)), row}));
  return joined({box("ftyp", Bytes(12)), row});
}

std::string nameOfPictures(const std::string& entry, const std::string& record, Bytes content) {
  return codecName(
      headOf(box(entry, joined({Bytes(78), box("pasp", Bytes(8)), box(record, content)}))));
}

std::string nameOfSound(const Bytes& descriptors) {
  return codecName(
      headOf(box("mp4a", joined({Bytes(28), box("esds", joined({Bytes(4), descriptors}))}))));
}

// The examples of the codecs' bindings, put into their records by hand.
TEST(CodecName, TellsProfileAndLevelOfPictures) {
  EXPECT_EQ(nameOfPictures("avc1", "avcC", {1, 0x64, 0, 0x28, 0xff}), "avc1.640028");
  EXPECT_EQ(nameOfPictures("avc1", "avcC", {1, 0x42, 0xc0, 0x0d, 0xff}), "avc1.42c00d");
  // Main, compatible with Main and Main 10, level 3.1; progressive, frames only.
  EXPECT_EQ(nameOfPictures("hvc1", "hvcC", {1, 1, 0x60, 0, 0, 0, 0xb0, 0, 0, 0, 0, 0, 93, 0xf0}),
            "hvc1.1.6.L93.B0");
  // Main 10 in the high tier, level 5.1, without constraints.
  EXPECT_EQ(nameOfPictures("hvc1", "hvcC", {1, 0x22, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 153, 0xf0}),
            "hvc1.2.4.H153");
  EXPECT_EQ(nameOfPictures("av01", "av1C", {0x81, 0x04, 0x0c, 0}), "av01.0.04M.08");
  EXPECT_EQ(nameOfPictures("av01", "av1C", {0x81, 0x2f, 0xc0, 0}), "av01.1.15H.10");
  EXPECT_EQ(nameOfPictures("av01", "av1C", {0x81, 0x53, 0x60, 0}), "av01.2.19M.12");
  EXPECT_EQ(nameOfPictures("vp09", "vpcC", {1, 0, 0, 0, 2, 41, 0xa2, 1, 1, 1}), "vp09.02.41.10");
}

TEST(CodecName, TellsTheKindOfSound) {
  const auto sound = [](uint8_t object, const Bytes& specific) {
    const Bytes config = joined({Bytes{object, 0x15}, Bytes(11),
                                 Bytes{5, static_cast<uint8_t>(specific.size())}, specific});
    const Bytes stream =
        joined({Bytes{0, 1, 0, 4, 0x80, 0x80, 0x80, static_cast<uint8_t>(config.size())}, config});
    return nameOfSound(joined({Bytes{3, static_cast<uint8_t>(stream.size())}, stream}));
  };
  EXPECT_EQ(sound(0x40, {0x12, 0x10}), "mp4a.40.2");         // 00010…: low complexity
  EXPECT_EQ(sound(0x40, {0x2b, 0x92, 0x08}), "mp4a.40.5");   // 00101…: with spectral bands
  EXPECT_EQ(sound(0x40, {0xf9, 0x46, 0x40}), "mp4a.40.42");  // 11111 001010…: 32 and 10
  EXPECT_EQ(sound(0x6b, {}), "mp4a.6B");
}

TEST(CodecName, OfOthersIsThatOfTheirEntry) {
  for (const char* name : {"ac-3", "ec-3", "Opus", "fLaC"})
    EXPECT_EQ(codecName(headOf(box(name, Bytes(40)))), name);
}

TEST(CodecName, OfDamagedHeadsIsNone) {
  const Bytes whole = headOf(box("avc1", joined({Bytes(78), box("avcC", {1, 0x64, 0, 0x28})})));
  EXPECT_EQ(codecName({}), "");
  for (size_t size = 0; size < whole.size(); ++size)
    EXPECT_EQ(codecName({whole.data(), size}), "") << size;
  EXPECT_EQ(nameOfSound({}), "mp4a");
  EXPECT_EQ(nameOfSound({3, 200, 0}), "mp4a");
}

}  // namespace
}  // namespace kestrel::test
