#pragma once

#include <kestrel/ToneMapping.h>

#include <string>
#include <vector>

#include "tests/platform/image/TestPlanes.h"

namespace kestrel::test {

/// An HDR picture of 10 bits without any sharing of chroma.
struct HdrStill {
  std::string name;
  HdrLight light;
  Planes planes;
};

/// One without anything in it.
HdrStill emptyStill(std::string name, const HdrLight& light, int width, int height);

/// Greys, patches, hues and skies, in PQ of several peaks and in HLG.
std::vector<HdrStill> hdrStills();

/// How far a still that is rendered to RGBA lies from the model: CIEDE2000. The noise that hides
/// steps is no difference.
struct Difference {
  double mean = 0;
  double worst = 0;
};
Difference differenceFromModel(HdrStill& still);

}  // namespace kestrel::test
