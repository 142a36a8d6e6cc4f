#pragma once

#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/ToneMapping.h>
#include <kestrel/convert/MediaInfo.h>

#include <array>
#include <memory>
#include <optional>
#include <vector>

struct AVFrame;

namespace kestrel {

/// The light of an HDR picture's pixels, row by row: as it was decoded, upright, in a size. White
/// of graphics (203 candelas per square metre) is 1, and what is brighter more; BT.709's primaries,
/// where colours that these lack have values below 0.
///
/// Use from one thread, but for `row`.
class LightRows {
 public:
  /// `width`, `height`: upright; `orientation`: how pictures are turned upright, by quarters.
  LightRows(int width, int height, const Orientation& orientation);

  /// Whether a frame is an HDR picture whose light can be read: luma and chroma of a known matrix.
  static bool canRead(const AVFrame& frame);

  /// Takes a frame that `canRead` takes.
  void take(const AVFrame& frame);

  void row(int y, const std::array<float*, 3>& rgb) const;

 private:
  void prepare(const HdrLight& light);

  const int width_;
  const int quarters_;  // counterclockwise
  const bool isMirrored_;
  LMFFImageColorspaceConverter converter_;
  std::optional<HdrLight> light_;
  std::vector<float> curve_;  // from samples of 12 bits: light of PQ, of HLG that of the scene
  std::array<std::array<float, 3>, 3> toBt709_{};
  float red_ = 0;  // what luma has of red and blue
  float blue_ = 0;
  float black_ = 0;  // of luma, in samples of 16 bits
  float lumaScale_ = 1;
  float chromaScale_ = 1;
};

}  // namespace kestrel
