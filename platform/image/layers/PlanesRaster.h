#pragma once

#include <kestrel/YUVPicture.h>

#include <cstdint>

#include <array>

#include "platform/image/layers/Raster.h"

namespace kestrel {

/// The pixels of a picture in planes: Y, Cb, Cr and alpha at the size of luma, chroma by linear
/// interpolation from where its samples lie. Samples of more than 8 bits are brought to the scale
/// of 8 bits, so that 255 in the limited range is `kernels::kOne`, and so on; rows that are read as
/// floats keep all bits.
class PlanesRaster final : public Raster {
 public:
  explicit PlanesRaster(const YUVPicture& picture);

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;
  void readRow(Worker& worker, int y, int x0, int x1, const float* matrix,
               float* out) const override;
  const YUVPicture* planes() const override { return isOpaque() ? &picture_ : nullptr; }

 private:
  struct Rows;
  /// The chroma of a row of luma: three rows, downwards, and what each counts in sixteenths.
  struct ChromaMix {
    std::array<int, 3> rows;
    std::array<int, 3> shares;
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
  float sampleAt(size_t plane, int x, int row) const;
  float chromaAt(size_t plane, int x, const ChromaMix& mix) const;
  ChromaMix chromaOf(int row) const;
  ChromaMix chromaOfField(int row) const;
  Rows chromaRows(Worker& worker, const Rows& luma) const;

  const YUVPicture& picture_;
  bool isJoined_;  ///< `joinRow` is there for it
  int chromaWidth_;
  int chromaHeight_;
};

/// Where chroma of one field lies between the two rows of luma that share it, 0 to 1: a quarter
/// from the upper one in the upper field and from the lower one in the lower field, so that all
/// rows of chroma are evenly apart (ISO/IEC 13818-2, 6.1.1.8), unless it lies with one of them.
double fieldPlace(const YUVFormat& format, int field);

}  // namespace kestrel
