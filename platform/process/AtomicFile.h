#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <span>
#include <string>

namespace kestrel {

/// Replaces a file as a whole: the bytes are written to a file beside it, which then takes its
/// place. Whoever reads meanwhile sees the old bytes or the new ones. On failure the old file is as
/// it was, and no other one stays behind.
Error replaceFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace kestrel
