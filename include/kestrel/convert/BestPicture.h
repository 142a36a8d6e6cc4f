#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/convert/Pictures.h>

#include <cstdint>
#include <optional>

namespace kestrel {

/// What can be said of a picture without knowing what it shows; each is 0 to 1, and more is better.
struct PictureWorth {
  /// The square of the mean luma (of 0 to 255) over 32, at most 1: little where it is black.
  double light = 0;
  /// Shannon's entropy of the luma's histogram in 64 bins, over the 6 bits that it has at most:
  /// nothing where all is of one colour, little where there is a line of writing alone.
  double detail = 0;
  /// 1 - the blur metric of Crété, Dolmière, Ladret and Nicolas ("The blur effect: perception and
  /// estimation with a new no-reference perceptual blur metric", 2007): how much of the difference
  /// between neighbouring pixels is lost when each row, or each column, is averaged over nine
  /// pixels; of the two directions the blurrier counts.
  double sharpness = 0;
  /// 1 / (1 + d / 16), where d is the mean difference of luma between the pictures an eighth of a
  /// second before and after: little at a cut, within a cross-fade and in quick movement.
  double stillness = 1;

  /// Their product.
  double total() const { return light * detail * sharpness * stillness; }
};

/// Light, detail and sharpness of a picture by itself.
KESTREL_API PictureWorth worthOf(const BitmapImage& picture);

/// The stillness of what lies between two pictures of one size.
KESTREL_API double stillnessBetween(const BitmapImage& before, const BitmapImage& after);

/// Where a picture is searched for that shows something; times are microseconds.
struct PictureSearch {
  int64_t from = 0;
  int64_t to = 0;
  /// What is meant: pictures away from it count for less, at the span's ends by a fifth. Absent:
  /// all count alike.
  std::optional<int64_t> wanted = {};
  /// How many are looked at, in the middle of equal parts of the span, or for a `wanted` at equal
  /// steps that include it; 1 to 1000.
  int candidates = 25;
};

/// The time of the picture that is worth most among those looked at; of equal ones the wanted one,
/// or else the first. Each costs three pictures (before, at, after), which are looked at 480
/// pixels wide at most. Throws as `Pictures::pictureAt` does, and for a search out of range.
KESTREL_API int64_t bestPictureTime(Pictures& pictures, const PictureSearch& search);

}  // namespace kestrel
