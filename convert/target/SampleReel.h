#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>

#include <memory>
#include <string>
#include <vector>

#include "convert/target/Likeness.h"
#include "convert/target/QualitySearch.h"
#include "convert/target/Samples.h"
#include "platform/files/ScratchFolder.h"

namespace kestrel {

class LMMediaSource;

/// Samples of a movie as its conversion hands them to the encoder, one behind the other, without
/// loss: a film in small, on which numbers of the encoder's are tried.
///
/// All that is passed in lasts longer. Throws a `Failure` where the movie cannot be read or the
/// samples not be kept, and when interrupted.
class SampleReel {
 public:
  SampleReel(const ConversionSettings& settings, const LMMediaSource& source, const MediaInfo& info,
             const ConversionPlan& plan, std::vector<Sample> samples, const Events& events);

  struct Probe {
    QualityPoint point;                       ///< its score is the 5th percentile
    std::vector<std::vector<double>> scores;  ///< of each sample's pictures but the first
  };

  /// Encodes the samples with a number of the encoder's, and measures them.
  Probe probe(double crf, const Events& events) const;

  /// How like the samples a file looks that was made of the whole: of each the pictures but the
  /// first.
  std::vector<LikenessAt> compare(const std::string& file, const Events& events) const;

  const std::vector<Sample>& samples() const { return samples_; }

 private:
  void write(const LMMediaSource& source, const MediaInfo& info, const Events& events);
  std::string path(const std::string& name) const { return folder_.path() + "/" + name; }
  std::string partPath(size_t sample) const { return path(std::to_string(sample) + ".mkv"); }

  const ConversionSettings& settings_;
  const ConversionPlan& plan_;
  const std::vector<Sample> samples_;
  ScratchFolder folder_;
  std::string reel_;
  int64_t picture_ = 0;  // how long one is shown, microseconds
  int64_t stride_ = 0;   // from the start of one sample to that of the next, microseconds
};

/// Tells a plan's encoder a number.
void setCrf(ConversionPlan& plan, double crf);

/// The plan's pictures alone, without what belongs to the file.
ConversionPlan withPicturesOnly(ConversionPlan plan);

}  // namespace kestrel
