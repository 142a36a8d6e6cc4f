#pragma once

#include <kestrel/Image.h>

#include <memory>

namespace kestrel {

/// `image` brought from its extent to `target`, whatever that does to its shape. An image without
/// bounds stays as it is; one with an empty extent has nothing to show.
std::shared_ptr<const Image> stretchedImage(const Image& image, const Rect& target);

}  // namespace kestrel
