#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kestrel {

/// What players know a codec by before they have its data (RFC 6381), as "avc1.640028", told from
/// the head of an MPEG-4 file with one stream; "" where that has none.
std::string codecName(std::span<const uint8_t> head);

}  // namespace kestrel
