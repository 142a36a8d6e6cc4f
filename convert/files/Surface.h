#pragma once

#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapImage.h>

#include <memory>

namespace kestrel {

/// What a surface shows, borrowed from it.
inline std::shared_ptr<const BitmapImage> shownBy(const BitmapContext& surface) {
  return BitmapImage::borrowing(surface.data(), surface.width(), surface.height(),
                                surface.bytesPerRow());
}

}  // namespace kestrel
