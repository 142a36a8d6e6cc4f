#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kestrel {

/// Reads the bits of a unit of H.264 whose guards against start codes are gone: numbers of so many
/// bits, and Exp-Golomb codes (ISO/IEC 14496-10, 9.1). Behind the end there are zeros.
class BitReader {
 public:
  explicit BitReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  uint32_t bit() {
    const size_t byte = place_ / 8;
    const uint32_t value = byte < bytes_.size() ? bytes_[byte] >> (7 - place_ % 8) & 1U : 0;
    ++place_;
    return value;
  }

  uint32_t bits(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 1 | bit();
    return value;
  }

  uint32_t number() {
    int zeros = 0;
    while (zeros < 32 && !isOver() && bit() == 0) ++zeros;
    return zeros < 32 ? (1U << zeros) - 1 + bits(zeros) : 0;
  }

  int32_t signedNumber() {
    const uint32_t code = number();
    const auto half = static_cast<int32_t>((code + 1) / 2);
    return code % 2 == 1 ? half : -half;
  }

  size_t place() const { return place_; }
  bool isOver() const { return place_ > 8 * bytes_.size(); }

  /// Where the last bit lies that is 1, which ends the unit.
  size_t lastOne() const {
    for (size_t i = 8 * bytes_.size(); i > 0; --i)
      if (bytes_[(i - 1) / 8] >> (7 - (i - 1) % 8) & 1U) return i - 1;
    return 0;
  }

 private:
  std::span<const uint8_t> bytes_;
  size_t place_ = 0;
};

/// Writes what `BitReader` reads.
class BitWriter {
 public:
  void bit(uint32_t value) {
    if (used_ % 8 == 0) bytes_.push_back(0);
    bytes_.back() = static_cast<uint8_t>(bytes_.back() | (value & 1U) << (7 - used_ % 8));
    ++used_;
  }

  void bits(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) bit(value >> i);
  }

  void number(uint32_t value) {
    int length = 0;
    while ((value + 1) >> (length + 1) > 0) ++length;
    bits(0, length);
    bits(value + 1, length + 1);
  }

  void signedNumber(int32_t value) {
    number(value > 0 ? 2 * static_cast<uint32_t>(value) - 1 : 2 * static_cast<uint32_t>(-value));
  }

  /// What is left of a unit, with the bit that ends it.
  void rest(BitReader& reader) {
    for (const size_t last = reader.lastOne(); reader.place() <= last;) bit(reader.bit());
  }

  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  size_t used_ = 0;
};

}  // namespace kestrel
