#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// The brown of old prints, mixed in by intensity (default 1): with i the intensity, (r, g, b)
/// becomes (1 - i) (r, g, b) + i (r', g', b'), where
///
///     r' = 0.393 r + 0.769 g + 0.189 b
///     g' = 0.349 r + 0.686 g + 0.168 b
///     b' = 0.272 r + 0.534 g + 0.131 b
std::shared_ptr<Filter> makeSepiaTone(const std::string& name);

}  // namespace kestrel
