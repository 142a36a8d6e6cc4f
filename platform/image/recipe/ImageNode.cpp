#include "platform/image/recipe/ImageNode.h"

#include <utility>

namespace kestrel {

namespace {

Rect rectOfSize(int width, int height) {
  return {{}, {static_cast<double>(width), static_cast<double>(height)}};
}

}  // namespace

BitmapNode::BitmapNode(std::shared_ptr<const BitmapImage> pixels, Image::Alpha meaning)
    : ImageNode(rectOfSize(pixels->width(), pixels->height())),
      bitmap(std::move(pixels)),
      isOpaque(meaning == Image::Alpha::kOpaque) {}

PlanesNode::PlanesNode(const YUVPicture& planes)
    : ImageNode(rectOfSize(planes.format.width, planes.format.height)), picture(planes) {}

ColorNode::ColorNode(const Color& clamped) : ImageNode(Rect::infinite()), color(clamped) {}

CropNode::CropNode(NodePointer picture, const Rect& kept)
    : ImageNode(intersection(picture->extent, kept)), input(std::move(picture)), rect(kept) {}

TransformNode::TransformNode(NodePointer picture, const AffineTransform& map)
    : ImageNode(map.apply(picture->extent)), input(std::move(picture)), transform(map) {}

ScalerNode::ScalerNode(NodePointer picture, const Scaler& how)
    : ImageNode(picture->extent), input(std::move(picture)), scaler(how) {}

ColorMatrixNode::ColorMatrixNode(NodePointer picture, const ColorMatrix& map)
    : ImageNode(picture->extent), input(std::move(picture)), matrix(map) {}

SourceOverNode::SourceOverNode(NodePointer front, NodePointer behind)
    : ImageNode(unite(front->extent, behind->extent)),
      input(std::move(front)),
      background(std::move(behind)) {}

SourceInNode::SourceInNode(NodePointer front, NodePointer behind)
    : ImageNode(intersection(front->extent, behind->extent)),
      input(std::move(front)),
      background(std::move(behind)) {}

FilterNode::FilterNode(NodePointer picture, const Rect& covered)
    : ImageNode(covered), input(std::move(picture)) {}

std::shared_ptr<const Image> colorMapped(const std::shared_ptr<const Image>& image,
                                         const ColorMatrix& matrix) {
  if (!image || matrix.isIdentity()) return image;
  if (const auto* below = dynamic_cast<const ColorMatrixNode*>(image->node().get()))
    return Image::fromNode(
        std::make_shared<ColorMatrixNode>(below->input, below->matrix.then(matrix)));
  return Image::fromNode(std::make_shared<ColorMatrixNode>(image->node(), matrix));
}

}  // namespace kestrel
