#pragma once

#include <kestrel/PropertyList.h>

#include <cstdint>
#include <functional>
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
/// What is written is handed out piece by piece.
PropertyList readBinaryPropertyList(std::span<const uint8_t> bytes);
void writeBinaryPropertyList(const PropertyList& list,
                             const std::function<void(std::span<const uint8_t>)>& take);

}  // namespace kestrel
