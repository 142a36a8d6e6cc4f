#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// By what two pictures are compared.
enum class PictureMetric {
  kSsimulacra2,  ///< how like its original a picture looks, 100 at most: see `Ssimulacra2`
  kSsim,         ///< structural similarity, 1 at most
  kPsnr,         ///< peak signal-to-noise ratio, dB; infinite for equal pictures
};

/// Which movies are compared, and how; `{}` beside the two names means every picture, by
/// SSIMULACRA 2.
struct CompareSettings {
  std::string original = {};
  std::string distorted = {};  ///< a copy of it, as a converter made it
  Protocols protocols = {};    ///< by which either may be read where it is no file
  PictureMetric metric = PictureMetric::kSsimulacra2;
  int every = 1;  ///< only every n-th pair is compared; 1: all of them

  /// By how much the copy's pictures come later, seconds. Absent: it is looked for.
  std::optional<double> offset = {};

  /// Where a curve of the scores over time is drawn: a name that ends in .svg or like that of a
  /// picture file; "": nowhere.
  std::string plot = {};

  /// Where the worst moments, three at most, are shown: each as the original, the copy, and their
  /// difference made four times as strong. The name of a picture file; "": nowhere.
  std::string worst = {};

  bool replaces = false;  ///< existing files may be replaced by these two
};

/// A pair of pictures and what its comparison came to.
struct PictureScore {
  int64_t time = 0;           ///< the original's, microseconds from its movie's start
  int64_t distortedTime = 0;  ///< the copy's
  double score = 0;
};

/// Pictures in a row that score low.
struct WorstSpan {
  int64_t start = 0;  ///< the first one's time, of the original, microseconds
  int64_t end = 0;    ///< the last one's
  double mean = 0;
  double least = 0;
};

/// The score of one component of all pictures, by SSIM or PSNR.
struct ComponentScore {
  std::string name;  ///< "y", "u", "v", or "r", "g", "b", or "a"; "all" of all together
  double score = 0;  ///< of PSNR that of the mean squared error over all pictures
};

/// What a comparison came to.
struct Comparison {
  /// Whether both movies were whole, and what was wrong with either.
  Report report = {};
  /// What had to be done to compare them (another size, rate, colour, an offset), a sentence each.
  std::vector<std::string> notes = {};

  PictureMetric metric = PictureMetric::kSsimulacra2;
  double offset = 0;                      ///< by how much the copy's pictures come later, seconds
  std::vector<PictureScore> scores = {};  ///< in order of time; never empty unless interrupted
  int64_t originalPictures = 0;           ///< that were read
  int64_t distortedPictures = 0;
  int64_t unpairedOriginals = 0;  ///< without a picture of the copy at their time
  int64_t unpairedDistorted = 0;  ///< the other way round

  double mean = 0;
  double harmonicMean = 0;  ///< weighs low scores more; scores below 1 count as 1, except of SSIM
  double percentile5 = 0;   ///< the score that 5 of 100 pictures do not reach
  double least = 0;
  std::vector<ComponentScore> components = {};  ///< of SSIM and PSNR
  std::vector<WorstSpan> worst = {};            ///< the worst first, five at most
};

/// Compares a movie with a copy of it: pairs their pictures by time, and scores each pair. Rates,
/// sizes, turns and offsets may differ; the copy is brought to the original's size. Where the copy
/// is a part of the original, or the other way round, what both have is compared.
///
/// SSIMULACRA 2 sees upright pictures of square pixels in 8 bits; SSIM and PSNR see samples as they
/// were decoded, in the original's format and depth, as ffmpeg's filters of these names do.
///
/// Throws a `Failure`: of an input that has no pictures, of the settings for numbers out of range,
/// and when both have no picture at the same time.
KESTREL_API Comparison compare(const CompareSettings& settings, const Events& events = {});

}  // namespace kestrel
