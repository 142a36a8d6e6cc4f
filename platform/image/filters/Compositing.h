#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// The input image laid over the background image. With colours multiplied by alpha:
///
///     result = input + background × (1 - input.alpha)
///
/// There is none unless both images are there. The extent is what covers both.
std::shared_ptr<Filter> makeSourceOver(const std::string& name);

/// The input image where the background image is. With colours multiplied by alpha:
///
///     result = input × background.alpha
///
/// There is none unless both images are there. The extent is what both cover.
std::shared_ptr<Filter> makeSourceIn(const std::string& name);

}  // namespace kestrel
