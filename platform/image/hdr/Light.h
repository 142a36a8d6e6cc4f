#pragma once

#include <kestrel/ToneMapping.h>

#include <array>

#include "platform/image/values/ColorMatrix.h"

namespace kestrel {

/// Red, green and blue, or another three components.
using Triple = std::array<double, 3>;
using Matrix3 = std::array<Triple, 3>;

Triple operator*(const Matrix3& matrix, const Triple& values);
Matrix3 operator*(const Matrix3& a, const Matrix3& b);
Matrix3 inverse(const Matrix3& matrix);

/// The samples of one PQ component, 0 to 1, and the light that they stand for, candelas per square
/// metre (ITU-R BT.2100, table 4).
double lightOfPq(double sample);
double pqOfLight(double light);

/// From red, green and blue of some primaries to those of others, as light.
Matrix3 betweenPrimaries(HdrLight::Primaries from, HdrLight::Primaries to);

/// Samples of an HDR picture, 0 to 1, and the light of its own primaries on a display, candelas per
/// square metre: PQ as it is, HLG with the gamma that BT.2100 (table 5) has for 1000.
Triple lightOf(const Triple& samples, const HdrLight& light);
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
