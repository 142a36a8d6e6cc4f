#pragma once

namespace kestrel {

/// The curve that weighs a picture's pixels when it is brought to another size.
///
/// Where the picture grows, the curve spans that many pixels of the source; where it shrinks, the
/// curve widens by the same factor, so that nothing finer than the result's pixels is left to
/// alias. Below an eighth of the size every curve gives way to `kArea`.
enum class Resampling {
  kArea,        ///< the mean of the area that a pixel covers; linear where the picture grows
  kBilinear,    ///< a triangle over 2 pixels: soft
  kCatmullRom,  ///< a cubic over 4 pixels: sharp, little ringing
  kMitchell,    ///< a cubic over 4 pixels: softer than Catmull-Rom, hardly any ringing
  kLanczos3,    ///< a windowed sinc of 3 lobes over 6 pixels: the sharpest
};

/// How pictures are brought to another size.
struct Scaler {
  Resampling resampling = Resampling::kLanczos3;
  /// Keeps each pixel between the darkest and the brightest of the source's pixels nearest to it,
  /// so that no edge gets a rim.
  bool limited = false;

  bool operator==(const Scaler&) const = default;
};

}  // namespace kestrel
