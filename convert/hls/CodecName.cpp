#include "convert/hls/CodecName.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kBoxHeader = 8;

uint32_t number(Bytes bytes, size_t place, size_t size) {
  uint32_t value = 0;
  for (size_t i = place; i < place + size && i < bytes.size(); ++i) value = value << 8 | bytes[i];
  return value;
}

struct Box {
  std::string name;
  Bytes content = {};
};

/// The first box of a row; one without a name where there is none.
Box firstOf(Bytes row) {
  if (row.size() < kBoxHeader) return {};
  const size_t size = number(row, 0, 4);
  if (size < kBoxHeader || size > row.size()) return {};
  return {std::string(reinterpret_cast<const char*>(&row[4]), 4),
          row.subspan(kBoxHeader, size - kBoxHeader)};
}

/// The content of the first box of that name in a row; none where it is missing.
Bytes contentOf(Bytes row, std::string_view name) {
  for (Box box = firstOf(row); !box.name.empty(); box = firstOf(row)) {
    if (box.name == name) return box.content;
    row = row.subspan(kBoxHeader + box.content.size());
  }
  return {};
}

Bytes from(Bytes bytes, size_t place) { return bytes.subspan(std::min(place, bytes.size())); }

/// ISO/IEC 14496-15: profile, constraints and level as they lie in the record.
std::string avcName(const std::string& entry, Bytes record) {
  return fmt::format("{}.{:06x}", entry, number(record, 1, 3));
}

uint32_t reversed(uint32_t bits) {
  uint32_t result = 0;
  for (int i = 0; i < 32; ++i) result |= (bits >> i & 1) << (31 - i);
  return result;
}

/// ISO/IEC 14496-15, Annex E.
std::string hevcName(const std::string& entry, Bytes record) {
  const uint32_t first = number(record, 1, 1);
  constexpr std::array<std::string_view, 4> kSpaces{"", "A", "B", "C"};
  std::string name =
      fmt::format("{}.{}{}.{:X}.{}{}", entry, kSpaces[first >> 6], first & 31,
                  reversed(number(record, 2, 4)), first & 32 ? 'H' : 'L', number(record, 12, 1));
  size_t last = 6;
  while (last > 0 && number(record, 5 + last, 1) == 0) --last;
  for (size_t i = 1; i <= last; ++i) name += fmt::format(".{:X}", number(record, 5 + i, 1));
  return name;
}

/// AV1 Codec ISO Media File Format Binding, section 5.
std::string av1Name(Bytes record) {
  const uint32_t levels = number(record, 1, 1);
  const uint32_t flags = number(record, 2, 1);
  const int bits = flags & 0x40 ? (flags & 0x20 ? 12 : 10) : 8;
  return fmt::format("av01.{}.{:02}{}.{:02}", levels >> 5, levels & 31, flags & 0x80 ? 'H' : 'M',
                     bits);
}

/// VP Codec ISO Media File Format Binding; the record follows version and flags.
std::string vp9Name(Bytes record) {
  return fmt::format("vp09.{:02}.{:02}.{:02}", number(record, 4, 1), number(record, 5, 1),
                     number(record, 6, 1) >> 4);
}

/// The content of a descriptor of ISO/IEC 14496-1, 8.3; none where the row begins with another.
Bytes descriptor(Bytes row, uint8_t tag) {
  if (row.empty() || row[0] != tag) return {};
  size_t size = 0;
  for (size_t i = 1; i < row.size() && i <= 4; ++i) {
    size = size << 7 | (row[i] & 0x7F);
    if ((row[i] & 0x80) == 0) return from(row, i + 1).first(std::min(size, row.size() - i - 1));
  }
  return {};
}

/// "mp4a.40.2": the kind of object and, of MPEG-4's own sound, which (ISO/IEC 14496-3, 1.6.2.1).
std::string mp4aName(Bytes record) {
  constexpr uint8_t kStream = 3;
  constexpr uint8_t kConfig = 4;
  constexpr uint8_t kSpecific = 5;
  constexpr uint32_t kMpeg4Sound = 0x40;
  constexpr uint32_t kEscape = 31;
  const Bytes stream = descriptor(from(record, 4), kStream);
  const Bytes config = descriptor(from(stream, 3), kConfig);
  if (config.empty()) return "mp4a";
  if (config[0] != kMpeg4Sound) return fmt::format("mp4a.{:02X}", config[0]);
  const uint32_t first = number(descriptor(from(config, 13), kSpecific), 0, 2);
  const uint32_t type = first >> 11;
  return fmt::format("mp4a.40.{}", type == kEscape ? 32 + (first >> 5 & 63) : type);
}

}  // namespace

std::string codecName(Bytes head) {
  constexpr size_t kFullBox = 4;
  constexpr size_t kCount = 4;
  constexpr size_t kPictureEntry = 78;
  constexpr size_t kSoundEntry = 28;
  Bytes row = head;
  for (const char* name : {"moov", "trak", "mdia", "minf", "stbl", "stsd"})
    row = contentOf(row, name);
  const Box entry = firstOf(from(row, kFullBox + kCount));
  const Bytes ofPictures = from(entry.content, kPictureEntry);
  if (const Bytes record = contentOf(ofPictures, "avcC"); !record.empty())
    return avcName(entry.name, record);
  if (const Bytes record = contentOf(ofPictures, "hvcC"); !record.empty())
    return hevcName(entry.name, record);
  if (const Bytes record = contentOf(ofPictures, "av1C"); !record.empty()) return av1Name(record);
  if (const Bytes record = contentOf(ofPictures, "vpcC"); !record.empty()) return vp9Name(record);
  if (entry.name == "mp4a") return mp4aName(contentOf(from(entry.content, kSoundEntry), "esds"));
  return entry.name;
}

}  // namespace kestrel
