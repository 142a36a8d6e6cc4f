#pragma once

#include <optional>
#include <string>

namespace kestrel {

/// How like their source a conversion's pictures are to look, in place of numbers of an encoder's:
/// what the encoder is told is found by encoding samples of the film and measuring them, and the
/// result is measured again. For libx264, libx265, libsvtav1 and libvpx-vp9.
///
/// Scores are those of SSIMULACRA 2, between the pictures as they go to the encoder and as they
/// come out of the result; a film's is its 5th percentile, which 95 of 100 pictures reach.
struct TargetQuality {
  static constexpr double kVisuallyLossless = 90;
  static constexpr double kHigh = 80;
  static constexpr double kGood = 70;

  static constexpr double kLeast = 10;
  static constexpr double kMost = 98;
  static constexpr double kMostCost = 10;

  /// For what the encoder is told a value of its own.
  enum class Per {
    kFile,
    kScene,  ///< by libx264 and libx265; others take one for the file, which is told
  };

  double score = kHigh;  ///< `kLeast` to `kMost`
  Per per = Per::kFile;

  /// Where encoding does not make the file smaller by this share, 0 to 1, pictures are copied, as
  /// far as the container holds them and nothing shapes them. Absent: they are encoded.
  std::optional<double> unlessSmaller = {};

  /// How many pictures, as a share of those that are converted, are encoded and looked at for the
  /// search and looked at in the result, 0 to `kMostCost`. A few are in any case: of short films
  /// all.
  double maxCost = 0.35;

  /// Where the samples' scores are written: the name of a .json file, beside which a curve of bytes
  /// against quality is drawn, as .svg; "" is nowhere.
  std::string report = {};

  bool operator==(const TargetQuality&) const = default;
};

}  // namespace kestrel
