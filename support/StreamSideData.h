#pragma once

#include <cstdint>
#include <span>

struct AVStream;

namespace kestrel {

/// The bytes of one kind (`AV_PKT_DATA_…`) that a container tells beside a stream; empty for none.
/// They are the stream's.
std::span<const uint8_t> streamSideData(const AVStream& stream, int type);

}  // namespace kestrel
