#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Shades of one colour (default 0.6, 0.45, 0.3), mixed in by intensity (default 1). With the
/// luminance L = 0.2126 r + 0.7152 g + 0.0722 b, the intensity i and the colour K, each channel c
/// becomes (1 - i) c + i L K. The alpha of the colour has no meaning.
std::shared_ptr<Filter> makeColorMonochrome(const std::string& name);

}  // namespace kestrel
