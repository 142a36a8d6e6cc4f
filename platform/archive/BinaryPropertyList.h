#pragma once

#include <kestrel/PropertyList.h>

#include <cstdint>
#include <span>
#include <stdexcept>

namespace kestrel {

/// What `readBinaryPropertyList` throws; `what()` is one sentence.
class PropertyListError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How deep arrays and dictionaries may lie in each other.
inline constexpr int kDeepestPropertyList = 256;

/// The two halves of the binary form: a header, objects, a table of where each begins, a trailer.
PropertyList readBinaryPropertyList(std::span<const uint8_t> bytes);
PropertyList::Data writeBinaryPropertyList(const PropertyList& list);

}  // namespace kestrel
