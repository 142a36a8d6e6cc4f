#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/YUVPicture.h>

#include <memory>

namespace kestrel {

struct ImageNode;

/// A picture as a recipe: what to show and where it lies in the plane, not the pixels themselves.
///
/// A recipe never changes; each operation returns a new one that refers to those it was made from,
/// and making one touches no pixel. `ImageContext` computes pixels, `Filter` makes further recipes.
/// It is held by `std::shared_ptr<const Image>` and may be shared between threads. A recipe over a
/// borrowed bitmap or borrowed planes is valid only as long as these are, and shows what they hold
/// at the time of rendering.
///
/// The plane has its origin at the lower left, y upwards, one unit to the pixel. A recipe has a
/// colour and an alpha at every point of the plane; outside of `extent` it is transparent. The
/// extent may be empty, and it may be infinite.
///
/// - Crop: a border that cuts through pixels covers them in part.
/// - Transform: transforms that follow each other act as one, with one resampling. Each pixel of
/// the
///   result is the average of what it covers where the picture shrinks and bilinear where it grows;
///   a whole shift, a mirror and a quarter turn keep pixels as they are. At its border the picture
///   is continued by its outermost pixels, so that nothing from outside (not even what a crop cut
///   away) mixes in and nothing fades.
class KESTREL_API Image {
 public:
  /// How the fourth byte of a bitmap's pixels is meant.
  enum class Alpha {
    kStraight,  ///< alpha, not premultiplied
    kOpaque,    ///< nothing: the bitmap is opaque, which spares work
  };

  /// A bitmap with its lower-left corner at the origin; null for null.
  static std::shared_ptr<const Image> fromBitmap(std::shared_ptr<const BitmapImage> bitmap,
                                                 Alpha alpha = Alpha::kStraight);

  /// A picture in planes of luma and chroma with its lower-left corner at the origin. Chroma is
  /// brought to the size of luma by linear interpolation. Null where `picture` has no luma, a side
  /// that is not above 0, a bit depth beyond 8 to 16 or a chroma shift beyond 0 to 2.
  static std::shared_ptr<const Image> fromPlanes(const YUVPicture& picture);

  /// A colour all over the plane, its components clamped to 0 to 1.
  static std::shared_ptr<const Image> fromColor(const Color& color);

  /// A transparent picture all over the plane: the same object for the life of the process.
  static std::shared_ptr<const Image> emptyInfiniteImage();

  /// What of this picture lies in `rect`.
  std::shared_ptr<const Image> cropped(const Rect& rect) const;

  /// This picture mapped by `transform`. One that flattens the plane, or is not finite, leaves
  /// nothing: a transparent picture with an empty extent.
  std::shared_ptr<const Image> transformed(const AffineTransform& transform) const;

  /// This picture moved by `dx` to the right and `dy` upwards, in pixels.
  std::shared_ptr<const Image> translated(double dx, double dy) const;

  /// This picture scaled about the origin; a negative factor mirrors.
  std::shared_ptr<const Image> scaled(double sx, double sy) const;

  /// The rectangle that the picture covers.
  const Rect& extent() const { return extent_; }

  /// The pixels of a recipe that is a bitmap, moved or not; null for every other recipe.
  std::shared_ptr<const BitmapImage> bitmap() const;

  /// What the recipe is made of; of use inside the library only.
  const std::shared_ptr<const ImageNode>& node() const { return node_; }

  /// A recipe of `node`; null for null. Of use inside the library only.
  static std::shared_ptr<const Image> fromNode(std::shared_ptr<const ImageNode> node);

 private:
  explicit Image(std::shared_ptr<const ImageNode> node);

  std::shared_ptr<const ImageNode> node_;
  Rect extent_;
};

}  // namespace kestrel
