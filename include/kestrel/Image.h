#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/Scaler.h>
#include <kestrel/YUVPicture.h>

#include <memory>

namespace kestrel {

struct ImageNode;

/// A picture as a recipe: what to show and where it lies in the plane, not the pixels themselves.
///
/// A recipe never changes: each operation returns a new recipe that refers to its inputs, and
/// computes no pixels. `ImageContext` computes pixels; `Filter` makes further recipes. Recipes are
/// held by `std::shared_ptr<const Image>` and may be shared between threads. A recipe over a
/// borrowed bitmap or borrowed planes is valid only as long as these are, and shows their contents
/// at the time of rendering.
///
/// The origin of the plane is at the lower left, with y pointing up and one unit per pixel. A
/// recipe has a colour and an alpha at every point; outside of `extent` it is transparent. The
/// extent may be empty or infinite.
///
/// - Crop: pixels at a fractional edge are partly covered.
/// - Transform: consecutive transforms are merged and resampled once, by Lanczos's curve of three
///   lobes unless `resampledBy` says otherwise; under a map that turns by other than quarters a
///   pixel is the average of the area it covers when shrinking, and bilinear when enlarging. Whole
///   shifts, mirroring and quarter turns keep pixels unchanged. Edge pixels are repeated outwards,
///   so that nothing beyond the edge (not even what a crop removed) bleeds in and edges do not
///   fade.
class KESTREL_API Image {
 public:
  /// The meaning of the fourth byte of a bitmap's pixels.
  enum class Alpha {
    kStraight,  ///< alpha, not premultiplied
    kOpaque,    ///< unused: the bitmap is opaque, which saves work
  };

  /// A bitmap with its lower-left corner at the origin. Null for null.
  static std::shared_ptr<const Image> fromBitmap(std::shared_ptr<const BitmapImage> bitmap,
                                                 Alpha alpha = Alpha::kStraight);

  /// A picture in luma and chroma planes with its lower-left corner at the origin. Chroma is scaled
  /// to the size of luma by linear interpolation from where its samples lie; where that is between
  /// two rows, so that the mean of these is the row of chroma that they share. Null if `picture`
  /// has no luma, a side of 0 or less, a bit depth outside of 8 to 16 or a chroma shift outside of
  /// 0 to 2.
  static std::shared_ptr<const Image> fromPlanes(const YUVPicture& picture);

  /// A colour without bounds, its components clamped to 0 to 1.
  static std::shared_ptr<const Image> fromColor(const Color& color);

  /// A transparent picture without bounds: the same object throughout the process.
  static std::shared_ptr<const Image> emptyInfiniteImage();

  /// The part of this picture inside `rect`.
  std::shared_ptr<const Image> cropped(const Rect& rect) const;

  /// This picture mapped by `transform`. If the transform is not invertible or not finite, the
  /// result is transparent with an empty extent.
  std::shared_ptr<const Image> transformed(const AffineTransform& transform) const;

  /// This picture, whose transforms, those before and those after, resample by `scaler`. Where it
  /// is said several times, the last counts.
  std::shared_ptr<const Image> resampledBy(const Scaler& scaler) const;

  /// This picture moved by `dx` to the right and `dy` upwards, in pixels.
  std::shared_ptr<const Image> translated(double dx, double dy) const;

  /// This picture scaled about the origin; negative factors mirror.
  std::shared_ptr<const Image> scaled(double sx, double sy) const;

  /// The rectangle that the picture covers.
  const Rect& extent() const { return extent_; }

  /// The pixels if the recipe is just a bitmap, possibly moved; otherwise null.
  std::shared_ptr<const BitmapImage> bitmap() const;

  /// What the recipe is made of. Internal to the library.
  const std::shared_ptr<const ImageNode>& node() const { return node_; }

  /// A recipe of `node`; null for null. Internal to the library.
  static std::shared_ptr<const Image> fromNode(std::shared_ptr<const ImageNode> node);

 private:
  explicit Image(std::shared_ptr<const ImageNode> node);

  std::shared_ptr<const ImageNode> node_;
  Rect extent_;
};

}  // namespace kestrel
