#pragma once

#include <kestrel/convert/Report.h>
#include <kestrel/convert/TargetQuality.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "convert/target/QualitySearch.h"
#include "convert/target/Samples.h"

namespace kestrel {

/// How a quality was looked for, for people and programs that ask.
struct SampleReport {
  /// The whole film, encoded and measured.
  struct Encode {
    double crf = 0;
    double percentile5 = 0;
    double mean = 0;
    double least = 0;
    int64_t measured = 0;  ///< pictures
    int64_t bytes = 0;     ///< of the file
  };

  TargetQuality settings = {};
  std::string encoder = {};
  double length = 0;  ///< seconds
  size_t scenes = 0;
  std::vector<Sample> samples = {};
  std::vector<QualityPoint> probes = {};  ///< by number
  std::vector<Encode> encodes = {};
  std::optional<int64_t> copyBytes = {};  ///< of the file with copied pictures, where it was tried
  QualityReached reached = {};
};

/// One JSON document.
std::string documentOf(const SampleReport& report);

/// An SVG: bits a second against quality, of the probes and of the whole, with the chosen one.
std::string curveOf(const SampleReport& report);

}  // namespace kestrel
