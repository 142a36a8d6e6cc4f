#include <algorithm>
#include <bit>
#include <string_view>

#include "platform/archive/BinaryPropertyList.h"

namespace kestrel {

namespace {

using Bytes = PropertyList::Data;
using Take = std::function<void(std::span<const uint8_t>)>;

enum Marker : uint8_t {
  kFalse = 0x08,
  kTrue = 0x09,
  kInteger = 0x10,
  kReal = 0x23,
  kDate = 0x33,
  kData = 0x40,
  kAscii = 0x50,
  kUtf16 = 0x60,
  kUid = 0x80,
  kArray = 0xA0,
  kDictionary = 0xD0,
};

void putBigEndian(uint64_t value, size_t size, Bytes& out) {
  for (size_t i = size; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

/// The bytes that numbers up to `value` take, as a power of two: 0 to 3.
int powerFor(uint64_t value) {
  return value <= 0xFF ? 0 : value <= 0xFFFF ? 1 : value <= 0xFFFFFFFF ? 2 : 3;
}

void putInteger(int64_t value, Bytes& out) {
  const int power = value < 0 ? 3 : powerFor(static_cast<uint64_t>(value));
  out.push_back(static_cast<uint8_t>(kInteger | power));
  putBigEndian(static_cast<uint64_t>(value), size_t{1} << power, out);
}

void putMarker(uint8_t marker, size_t count, Bytes& out) {
  out.push_back(static_cast<uint8_t>(marker | std::min<size_t>(count, 0x0F)));
  if (count >= 0x0F) putInteger(static_cast<int64_t>(count), out);
}

/// The code that begins at `i`, which moves behind it; U+FFFD for a byte that begins none.
uint32_t takeCode(std::string_view text, size_t& i) {
  const auto byte = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
  const uint8_t first = byte(i++);
  if (first < 0x80) return first;
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC2 ? 1 : 0;
  constexpr uint32_t kReplacement = 0xFFFD;
  if (more == 0 || first > 0xF4) return kReplacement;
  uint32_t code = first & (0x3F >> more);
  for (int n = 0; n < more; ++n) {
    if (i + n >= text.size() || (byte(i + n) & 0xC0) != 0x80) return kReplacement;
    code = code << 6 | (byte(i + n) & 0x3F);
  }
  const bool isTooLong = (more == 2 && code < 0x800) || (more == 3 && code < 0x10000);
  if (isTooLong || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return kReplacement;
  i += more;
  return code;
}

void putText(const std::string& text, Bytes& out) {
  if (std::ranges::all_of(text, [](char c) { return static_cast<uint8_t>(c) < 0x80; })) {
    putMarker(kAscii, text.size(), out);
    out.insert(out.end(), text.begin(), text.end());
    return;
  }
  std::vector<uint16_t> units;
  for (size_t i = 0; i < text.size();) {
    const uint32_t code = takeCode(text, i);
    if (code >= 0x10000) units.push_back(static_cast<uint16_t>(0xD7C0 + (code >> 10)));
    units.push_back(static_cast<uint16_t>(code < 0x10000 ? code : 0xDC00 | (code & 0x3FF)));
  }
  putMarker(kUtf16, units.size(), out);
  for (const uint16_t unit : units) putBigEndian(unit, 2, out);
}

/// An object as it is stored, its references still as numbers of objects.
struct Object {
  const PropertyList* value = nullptr;  // null for a key
  const std::string* text = nullptr;
  std::vector<uint64_t> references;
};

class Writer {
 public:
  explicit Writer(const Take& take) : take_(take) {}

  void write(const PropertyList& list) {
    collect(list);
    const size_t referenceSize = size_t{1} << powerFor(objects_.size() - 1);
    static constexpr std::string_view kHeader = "bplist00";
    out_.assign(kHeader.begin(), kHeader.end());
    std::vector<uint64_t> offsets;
    for (const Object& object : objects_) {
      offsets.push_back(taken_ + out_.size());
      put(object);
      for (const uint64_t reference : object.references)
        putBigEndian(reference, referenceSize, out_);
      if (out_.size() >= kPiece) handOut();
    }
    const uint64_t table = taken_ + out_.size();
    const size_t offsetSize = size_t{1} << powerFor(table);
    for (const uint64_t offset : offsets) putBigEndian(offset, offsetSize, out_);
    putTrailer(offsetSize, referenceSize, table);
    handOut();
  }

 private:
  static constexpr size_t kPiece = 1 << 16;

  /// Hands out what has gathered.
  void handOut() {
    take_(out_);
    taken_ += out_.size();
    out_.clear();
  }

  void putTrailer(size_t offsetSize, size_t referenceSize, uint64_t table) {
    putBigEndian(0, 6, out_);
    putBigEndian(offsetSize, 1, out_);
    putBigEndian(referenceSize, 1, out_);
    putBigEndian(objects_.size(), 8, out_);
    putBigEndian(0, 8, out_);  // the root comes first
    putBigEndian(table, 8, out_);
  }

  uint64_t collectText(const std::string& text) {
    const auto [place, isNew] = texts_.try_emplace(text, objects_.size());
    if (isNew) objects_.push_back({nullptr, &text, {}});
    return place->second;
  }

  /// Numbers a value and what is in it; a value comes before its parts.
  uint64_t collect(const PropertyList& value) {
    if (const auto* text = value.as<std::string>()) return collectText(*text);
    const uint64_t number = objects_.size();
    objects_.push_back({&value, nullptr, {}});
    std::vector<uint64_t> references;
    if (const auto* array = value.as<PropertyList::Array>()) {
      for (const PropertyList& part : *array) references.push_back(collect(part));
    }
    if (const auto* dictionary = value.as<PropertyList::Dictionary>()) {
      for (const auto& [key, part] : *dictionary) references.push_back(collectText(key));
      for (const auto& [key, part] : *dictionary) references.push_back(collect(part));
    }
    objects_[number].references = std::move(references);
    return number;
  }

  void put(const Object& object) {
    if (object.text) return putText(*object.text, out_);
    std::visit([&](const auto& value) { put(value); }, object.value->value());
  }

  void put(bool value) { out_.push_back(value ? kTrue : kFalse); }
  void put(int64_t value) { putInteger(value, out_); }
  void put(double value) {
    out_.push_back(kReal);
    putBigEndian(std::bit_cast<uint64_t>(value), 8, out_);
  }
  void put(const std::string& value) { putText(value, out_); }
  void put(const PropertyList::Data& value) {
    putMarker(kData, value.size(), out_);
    if (value.size() < kPiece) {
      out_.insert(out_.end(), value.begin(), value.end());
      return;
    }
    handOut();
    take_(value);
    taken_ += value.size();
  }
  void put(PropertyList::Date value) {
    out_.push_back(kDate);
    putBigEndian(std::bit_cast<uint64_t>(value.seconds), 8, out_);
  }
  void put(PropertyList::Uid value) {
    const size_t size = size_t{1} << powerFor(value.value);
    out_.push_back(static_cast<uint8_t>(kUid | (size - 1)));
    putBigEndian(value.value, size, out_);
  }
  void put(const PropertyList::Array& value) { putMarker(kArray, value.size(), out_); }
  void put(const PropertyList::Dictionary& value) { putMarker(kDictionary, value.size(), out_); }

  std::vector<Object> objects_;
  std::map<std::string_view, uint64_t> texts_;
  const Take& take_;
  Bytes out_;
  uint64_t taken_ = 0;  // bytes handed out
};

}  // namespace

void writeBinaryPropertyList(const PropertyList& list, const Take& take) {
  Writer(take).write(list);
}

}  // namespace kestrel
