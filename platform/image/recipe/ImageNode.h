#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/Scaler.h>
#include <kestrel/YUVPicture.h>

#include <memory>

#include "platform/image/values/ColorMatrix.h"

namespace kestrel {

class Layer;
class Planner;
struct IntRect;

/// One step of a recipe. Nodes never change; `extent` is where the step may leave anything but
/// transparency.
///
/// Values are colours with red, green, blue from 0 to 1. They may leave that range between one step
/// and the next through colour matrices, crops and transforms; whatever mixes pictures or looks at
/// neighbours (composites, area filters) takes clamped values, and the end of the recipe clamps.
struct ImageNode {
  explicit ImageNode(const Rect& covered) : extent(covered) {}
  virtual ~ImageNode() = default;
  ImageNode(const ImageNode&) = delete;
  ImageNode& operator=(const ImageNode&) = delete;

  const Rect extent;
};

using NodePointer = std::shared_ptr<const ImageNode>;

struct BitmapNode final : ImageNode {
  BitmapNode(std::shared_ptr<const BitmapImage> pixels, Image::Alpha meaning);

  const std::shared_ptr<const BitmapImage> bitmap;
  const bool isOpaque;
};

struct PlanesNode final : ImageNode {
  explicit PlanesNode(const YUVPicture& planes);

  const YUVPicture picture;
};

struct ColorNode final : ImageNode {
  explicit ColorNode(const Color& clamped);

  const Color color;
};

struct CropNode final : ImageNode {
  CropNode(NodePointer picture, const Rect& kept);

  const NodePointer input;
  const Rect rect;
};

/// Never directly over another transform: the two are one.
struct TransformNode final : ImageNode {
  TransformNode(NodePointer picture, const AffineTransform& map);

  const NodePointer input;
  const AffineTransform transform;
};

/// How the run of transforms that it is part of resamples; of several the uppermost counts.
struct ScalerNode final : ImageNode {
  ScalerNode(NodePointer picture, const Scaler& how);

  const NodePointer input;
  const Scaler scaler;
};

/// Never directly over another colour matrix: the two are one.
struct ColorMatrixNode final : ImageNode {
  ColorMatrixNode(NodePointer picture, const ColorMatrix& map);

  const NodePointer input;
  const ColorMatrix matrix;
};

/// The input laid over the background: with colours multiplied by alpha, I + B (1 - I.alpha).
struct SourceOverNode final : ImageNode {
  SourceOverNode(NodePointer front, NodePointer behind);

  const NodePointer input;
  const NodePointer background;
};

/// The input where the background is: with colours multiplied by alpha, I × B.alpha.
struct SourceInNode final : ImageNode {
  SourceInNode(NodePointer front, NodePointer behind);

  const NodePointer input;
  const NodePointer background;
};

/// A step that is more than a mapping of each colour. A filter derives from it, keeps its
/// parameters there and says how they are computed.
struct FilterNode : ImageNode {
  FilterNode(NodePointer picture, const Rect& covered);

  /// The layer that computes the pixels of `needed`, which lies within the extent as far as that
  /// goes on whole pixels. It belongs to the planner's arena.
  virtual const Layer* plan(Planner& planner, const IntRect& needed) const = 0;

  const NodePointer input;
};

/// `image` with `matrix` applied to its colours; `image` itself for the identity, null for null.
std::shared_ptr<const Image> colorMapped(const std::shared_ptr<const Image>& image,
                                         const ColorMatrix& matrix);

}  // namespace kestrel
