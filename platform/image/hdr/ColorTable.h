#pragma once

#include <kestrel/ToneMapping.h>

#include <functional>
#include <memory>
#include <vector>

#include "platform/image/hdr/Light.h"
#include "platform/image/kernels/TableKernels.h"

namespace kestrel {

/// A mapping of colours, computed once at the corners of cubes.
class ColorTable {
 public:
  using Mapping = std::function<Triple(const Triple& samples)>;

  /// Samples reach from 0 to `most`; `mapping` runs on several threads and answers 0 to 1.
  ColorTable(double most, const Mapping& mapping);

  kernels::ColorCube cube() const;

 private:
  static constexpr int kSide = 65;

  std::vector<int16_t> colors_;
  double most_;
};

/// The table that brings pictures of `light` to SDR, or graphics to such pictures. The process
/// keeps those that it used last; any thread may ask.
std::shared_ptr<const ColorTable> tableToSdr(const HdrLight& light);
std::shared_ptr<const ColorTable> tableToHdr(const HdrLight& light);

}  // namespace kestrel
