#pragma once

#include <kestrel/YUVPicture.h>

#include <cstdint>

#include <array>

#include "platform/image/layers/Raster.h"

namespace kestrel {

/// The pixels of a picture in planes: Y, Cb, Cr and alpha at the size of luma, chroma by linear
/// interpolation from where its samples lie. Samples of more than 8 bits are brought to the scale
/// of 8 bits, so that 255 in the limited range is `kernels::kOne`, and so on.
class PlanesRaster final : public Raster {
 public:
  explicit PlanesRaster(const YUVPicture& picture);

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;
  const YUVPicture* planes() const override { return isOpaque() ? &picture_ : nullptr; }

 private:
  struct Rows;
  /// The chroma of a row of luma: three rows and what each counts in eighths.
  struct ChromaMix {
    std::array<int, 3> rows;
    std::array<int, 3> eighths;
  };

  /// The colours of one row, from planes of 8 bits whose chroma is at most halved across.
  void joinRow(Worker& worker, int row, int x0, int x1, int16_t* out) const;
  void blendColors(Worker& worker, const Rows& luma, int x0, int x1, int16_t* out) const;
  void blendWithAlpha(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                      int16_t* out) const;
  void blendPlane(Worker& worker, int plane, const Rows& rows, int x0, int x1, int16_t* out) const;
  void widenRow(int plane, int row, int x0, int x1, int16_t* out) const;
  void blendChroma(Worker& worker, int plane, const Rows& rows, int x0, int x1, int16_t* out) const;
  /// From samples of chroma, from `left` on, to one for each pixel from `x0` to `x1` and one more.
  void spreadChroma(const int16_t* samples, int left, int x0, int x1, int16_t* out) const;
  ChromaMix chromaOf(int row) const;
  Rows chromaRows(Worker& worker, const Rows& luma) const;

  const YUVPicture& picture_;
  bool isJoined_;  ///< `joinRow` is there for it
  int chromaWidth_;
  int chromaHeight_;
};

}  // namespace kestrel
