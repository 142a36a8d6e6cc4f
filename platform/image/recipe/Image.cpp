#include <kestrel/Image.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/image/recipe/ImageNode.h"
#include "platform/image/recipe/Resampling.h"

namespace kestrel {

namespace {

template <typename Node>
const Node* as(const NodePointer& node) {
  return dynamic_cast<const Node*>(node.get());
}

bool isReadable(const YUVPicture& picture) {
  const YUVFormat& format = picture.format;
  const auto isShift = [](int shift) { return shift >= 0 && shift <= 2; };
  return picture.planes[0].data && format.width > 0 && format.height > 0 && format.bitDepth >= 8 &&
         format.bitDepth <= 16 && format.bitShift >= 0 && format.bitDepth + format.bitShift <= 16 &&
         isShift(format.chromaShiftX) && isShift(format.chromaShiftY);
}

bool isUsable(const AffineTransform& transform) {
  const auto inverse = transform.invert();
  return inverse && std::isfinite(inverse->tx) && std::isfinite(inverse->ty) &&
         std::isfinite(inverse->a) && std::isfinite(inverse->b) && std::isfinite(inverse->c) &&
         std::isfinite(inverse->d) && std::isfinite(transform.tx) && std::isfinite(transform.ty);
}

double clampedComponent(double value) {
  return std::isnan(value) ? 0 : std::clamp(value, 0.0, 1.0);
}

}  // namespace

Image::Image(std::shared_ptr<const ImageNode> node)
    : node_(std::move(node)), extent_(node_->extent) {}

std::shared_ptr<const Image> Image::fromNode(std::shared_ptr<const ImageNode> node) {
  if (!node) return nullptr;
  return std::shared_ptr<const Image>(new Image(std::move(node)));
}

std::shared_ptr<const Image> Image::fromBitmap(std::shared_ptr<const BitmapImage> bitmap,
                                               Alpha alpha) {
  if (!bitmap) return nullptr;
  return fromNode(std::make_shared<BitmapNode>(std::move(bitmap), alpha));
}

std::shared_ptr<const Image> Image::fromPlanes(const YUVPicture& picture) {
  if (!isReadable(picture)) return nullptr;
  return fromNode(std::make_shared<PlanesNode>(picture));
}

std::shared_ptr<const Image> Image::fromColor(const Color& color) {
  return fromNode(std::make_shared<ColorNode>(
      Color{clampedComponent(color.red), clampedComponent(color.green),
            clampedComponent(color.blue), clampedComponent(color.alpha)}));
}

std::shared_ptr<const Image> Image::emptyInfiniteImage() {
  static const std::shared_ptr<const Image> empty = fromColor(Color::clear());
  return empty;
}

std::shared_ptr<const Image> Image::cropped(const Rect& rect) const {
  return fromNode(std::make_shared<CropNode>(node_, rect));
}

std::shared_ptr<const Image> Image::transformed(const AffineTransform& transform) const {
  if (!isUsable(transform)) return cropped(Rect{});
  if (const auto* below = as<TransformNode>(node_)) {
    const AffineTransform both = resampling::cleaned(below->transform.concat(transform));
    if (!isUsable(both)) return cropped(Rect{});
    return fromNode(std::make_shared<TransformNode>(below->input, both));
  }
  return fromNode(std::make_shared<TransformNode>(node_, resampling::cleaned(transform)));
}

std::shared_ptr<const Image> Image::resampledBy(const Scaler& scaler) const {
  return fromNode(std::make_shared<ScalerNode>(node_, scaler));
}

std::shared_ptr<const Image> Image::translated(double dx, double dy) const {
  return transformed(AffineTransform::translation(dx, dy));
}

std::shared_ptr<const Image> Image::scaled(double sx, double sy) const {
  return transformed(AffineTransform::scale(sx, sy));
}

std::shared_ptr<const BitmapImage> Image::bitmap() const {
  const ImageNode* node = node_.get();
  if (const auto* moved = dynamic_cast<const TransformNode*>(node)) {
    const AffineTransform& t = moved->transform;
    if (t != AffineTransform::translation(t.tx, t.ty)) return nullptr;
    node = moved->input.get();
  }
  const auto* bitmap = dynamic_cast<const BitmapNode*>(node);
  return bitmap ? bitmap->bitmap : nullptr;
}

}  // namespace kestrel
