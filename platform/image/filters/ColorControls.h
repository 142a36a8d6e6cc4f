#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Saturation (default 1), contrast (1) and brightness (0), in this order. With the luminance
/// L = 0.2126 r + 0.7152 g + 0.0722 b, for each channel c:
///
///     c = L + (c - L) × saturation
///     c = (c - 0.5) × contrast + 0.5 + brightness
std::shared_ptr<Filter> makeColorControls(const std::string& name);

}  // namespace kestrel
