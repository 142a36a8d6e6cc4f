#include "support/StretchedImage.h"

namespace kestrel {

std::shared_ptr<const Image> stretchedImage(const Image& image, const Rect& target) {
  const Rect& extent = image.extent();
  if (isInfinite(extent) || isEmpty(extent)) return image.translated(0, 0);
  return image.transformed(
      AffineTransform::translation(target.origin.x, target.origin.y)
          .scaled(target.size.width / extent.size.width, target.size.height / extent.size.height)
          .translated(-extent.origin.x, -extent.origin.y));
}

}  // namespace kestrel
