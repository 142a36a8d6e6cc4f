#include <algorithm>
#include <bit>
#include <string_view>

#include "platform/archive/BinaryPropertyList.h"
#include "platform/text/Utf8.h"

namespace kestrel {

namespace {

constexpr std::string_view kHeader = "bplist0";
constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;

/// More values than any settings or project has.
constexpr size_t kMostValues = size_t{1} << 22;

/// One that multiplies its values by using the same array over and over has more than bytes. A few
/// arrays may well be used twice.
constexpr size_t kSparedValues = 1024;

/// How many times as long as the file its texts and data may be, when each use is counted: keys
/// are stored once and used often.
constexpr size_t kMostRepetition = 64;
constexpr size_t kSparedBytes = size_t{1} << 16;

[[noreturn]] void fail(const char* what) { throw PropertyListError(what); }

uint64_t bigEndian(std::span<const uint8_t> bytes) {
  uint64_t value = 0;
  for (const uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

/// UTF-16, high byte first; halves of pairs that stand alone become U+FFFD.
std::string utf8FromUtf16(std::span<const uint8_t> bytes) {
  constexpr uint32_t kReplacement = 0xFFFD;
  const auto unit = [&](size_t i) { return static_cast<uint32_t>(bigEndian(bytes.subspan(i, 2))); };
  std::string text;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    uint32_t code = unit(i);
    const bool isHigh = code >= 0xD800 && code < 0xDC00;
    const uint32_t next = isHigh && i + 3 < bytes.size() ? unit(i + 2) : 0;
    if (next >= 0xDC00 && next < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
      i += 2;
    } else if (code >= 0xD800 && code < 0xE000) {
      code = kReplacement;
    }
    appendUtf8(code, text);
  }
  return text;
}

class Reader {
 public:
  explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {
    if (bytes.size() < kHeaderSize + kTrailerSize ||
        !std::equal(kHeader.begin(), kHeader.end(), bytes.begin()))
      fail("it is no binary property list");
    const auto trailer = bytes.last(kTrailerSize);
    offsetSize_ = trailer[6];
    referenceSize_ = trailer[7];
    count_ = bigEndian(trailer.subspan(8, 8));
    root_ = bigEndian(trailer.subspan(16, 8));
    table_ = bigEndian(trailer.subspan(24, 8));
    const size_t room = bytes.size() - kTrailerSize;
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8)
      fail("its trailer is damaged");
    if (table_ < kHeaderSize || table_ > room || count_ > (room - table_) / offsetSize_)
      fail("its table of objects does not lie within it");
    valuesLeft_ = std::min(kMostValues, bytes.size() + kSparedValues);
    bytesLeft_ = bytes.size() * kMostRepetition + kSparedBytes;
  }

  PropertyList read() { return object(root_, kDeepestPropertyList); }

 private:
  std::span<const uint8_t> part(size_t offset, uint64_t size) const {
    if (offset > table_ || size > table_ - offset) fail("it is truncated");
    return bytes_.subspan(offset, size);
  }

  size_t offsetOf(uint64_t index) const {
    if (index >= count_) fail("it refers to an object that it does not have");
    const uint64_t offset = bigEndian(bytes_.subspan(table_ + index * offsetSize_, offsetSize_));
    if (offset < kHeaderSize || offset >= table_) fail("an object does not lie within it");
    return offset;
  }

  /// The count of an object whose marker stands at `offset`, which moves behind it.
  uint64_t takeCount(size_t& offset) const {
    const int nibble = part(offset++, 1)[0] & 0x0F;
    if (nibble != 0x0F) return nibble;
    const uint8_t marker = part(offset++, 1)[0];
    if (marker >> 4 != 1 || (marker & 0x0F) > 3) fail("a count is no number");
    const size_t size = size_t{1} << (marker & 0x0F);
    const uint64_t count = bigEndian(part(offset, size));
    offset += size;
    if (count > bytes_.size()) fail("a count exceeds its size");
    return count;
  }

  void spendBytes(uint64_t count) {
    if (count > bytesLeft_) fail("its texts multiply");
    bytesLeft_ -= count;
  }

  PropertyList object(uint64_t index, int depth) {
    if (depth == 0) fail("its objects lie too deep in each other");
    if (valuesLeft_-- == 0) fail("its objects multiply");
    const size_t offset = offsetOf(index);
    const uint8_t marker = bytes_[offset];
    switch (marker >> 4) {
      case 0x0:
        if (marker == 0x08 || marker == 0x09) return marker == 0x09;
        break;
      case 0x1:
        return integer(offset, marker & 0x0F);
      case 0x2:
        if (marker == 0x22)
          return static_cast<double>(
              std::bit_cast<float>(static_cast<uint32_t>(bigEndian(part(offset + 1, 4)))));
        if (marker == 0x23) return real(offset);
        break;
      case 0x3:
        if (marker == 0x33) return PropertyList::Date{real(offset)};
        break;
      case 0x4:
        return data(offset);
      case 0x5:
      case 0x7:
        return text(offset, 1);
      case 0x6:
        return text(offset, 2);
      case 0x8:
        return uid(offset, (marker & 0x0F) + 1);
      case 0xA:
        return array(offset, depth);
      case 0xD:
        return dictionary(offset, depth);
      default:
        break;
    }
    fail("an object is of an unknown kind");
  }

  PropertyList integer(size_t offset, int power) const {
    if (power == 4) {  // how numbers from 2⁶³ on are stored
      const auto bytes = part(offset + 1, 16);
      const uint64_t low = bigEndian(bytes.last(8));
      if (bigEndian(bytes.first(8)) != 0 || low > INT64_MAX) fail("a number has more than 64 bits");
      return static_cast<int64_t>(low);
    }
    if (power > 3) fail("a number has more than 64 bits");
    return static_cast<int64_t>(bigEndian(part(offset + 1, size_t{1} << power)));
  }

  double real(size_t offset) const { return std::bit_cast<double>(bigEndian(part(offset + 1, 8))); }

  PropertyList data(size_t offset) {
    const uint64_t count = takeCount(offset);
    spendBytes(count);
    const auto bytes = part(offset, count);
    return PropertyList::Data(bytes.begin(), bytes.end());
  }

  std::string text(size_t offset, size_t unitSize) {
    const uint64_t size = takeCount(offset) * unitSize;
    spendBytes(size);
    const auto bytes = part(offset, size);
    return unitSize == 1 ? std::string(bytes.begin(), bytes.end()) : utf8FromUtf16(bytes);
  }

  PropertyList uid(size_t offset, size_t size) const {
    const uint64_t value = size <= 8 ? bigEndian(part(offset + 1, size)) : UINT64_MAX;
    if (value > UINT32_MAX) fail("a reference has more than 32 bits");
    return PropertyList::Uid{static_cast<uint32_t>(value)};
  }

  uint64_t reference(size_t offset, uint64_t number) const {
    return bigEndian(bytes_.subspan(offset + number * referenceSize_, referenceSize_));
  }

  PropertyList array(size_t offset, int depth) {
    const uint64_t count = takeCount(offset);
    part(offset, count * referenceSize_);
    PropertyList::Array values;
    for (uint64_t i = 0; i < count; ++i) values.push_back(object(reference(offset, i), depth - 1));
    return values;
  }

  std::string key(uint64_t index) {
    const size_t offset = offsetOf(index);
    const int kind = bytes_[offset] >> 4;
    if (kind != 5 && kind != 6 && kind != 7) fail("a key is no text");
    return text(offset, kind == 6 ? 2 : 1);
  }

  PropertyList dictionary(size_t offset, int depth) {
    const uint64_t count = takeCount(offset);
    part(offset, 2 * count * referenceSize_);
    PropertyList::Dictionary values;
    for (uint64_t i = 0; i < count; ++i)
      values.insert_or_assign(key(reference(offset, i)),
                              object(reference(offset, count + i), depth - 1));
    return values;
  }

  std::span<const uint8_t> bytes_;
  size_t offsetSize_ = 0;
  size_t referenceSize_ = 0;
  uint64_t count_ = 0;
  uint64_t root_ = 0;
  uint64_t table_ = 0;
  size_t valuesLeft_ = 0;
  uint64_t bytesLeft_ = 0;
};

}  // namespace

PropertyList readBinaryPropertyList(std::span<const uint8_t> bytes) { return Reader(bytes).read(); }

}  // namespace kestrel
