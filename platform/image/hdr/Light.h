#pragma once

#include <kestrel/ToneMapping.h>

#include "platform/image/values/HdrCurves.h"

namespace kestrel {

/// From red, green and blue of some primaries to those of others, as light.
Matrix3 betweenPrimaries(HdrLight::Primaries from, HdrLight::Primaries to);

/// The displays, by their brightest light, that HLG is told in, and the dimmest for which BT.2100
/// has a gamma: the one next to SDR, which leaves least to be compressed.
inline constexpr double kHlgPeak = 1000;
inline constexpr double kDimHlgPeak = 400;

/// The light, candelas per square metre and of its own primaries, that the samples of an HDR
/// picture, 0 to 1, have on a display: PQ as it is, HLG with the gamma that BT.2100 (table 5) has
/// for one of `hlgPeak`, 1.2 + 0.42 log10(hlgPeak / 1000).
Triple lightOf(const Triple& samples, const HdrLight& light, double hlgPeak = kHlgPeak);

/// The samples for light of graphics: PQ as it is, HLG for a display of 1000, as BT.2408 tells it.
Triple samplesOf(const Triple& displayed, const HdrLight& light);

/// Makes SDR samples of HDR light, as `toneMapped` says it, one colour at a time.
class SdrMapping {
 public:
  explicit SdrMapping(const HdrLight& light);

  /// Of light of the picture's primaries samples of BT.709, 0 to 1, for BT.1886 with no light for
  /// black: light is their 2.4th power.
  Triple operator()(const Triple& light) const;

  /// The sample of the brightest light.
  double mostSample() const { return mostSample_; }

 private:
  double compressed(double intensity) const;
  Triple displayed(double intensity, double tritan, double protan) const;
  double chromaWithin(double intensity, double tritan, double protan) const;

  Matrix3 toCones_;    // from light of the picture's primaries
  Matrix3 toDisplay_;  // from cones to light of BT.709, 1 for white
  double sourcePeak_;  // in PQ, as all intensities
  double targetPeak_;
  double mostSample_;
};

/// The samples of an HDR picture for a colour of SDR.
Triple hdrSamplesOf(const Triple& sdr, const HdrLight& light);

}  // namespace kestrel
