#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/codec/CodecOwners.h"

struct AVFrame;

namespace kestrel {

/// Makes pictures of few colours for encoders that take a palette beside each, such as GIF's.
///
/// A palette has 255 colours and one that is transparent. It is made for a picture and kept for
/// those behind it as long as it suits them about as well: a scene has one, which keeps files
/// small. A picture of at most 255 colours keeps each of them. In others an ordered pattern, as
/// strong as the palette is coarse, breaks up steps, and stands still where pictures do.
class PaletteReducer {
 public:
  PaletteReducer();

  /// A picture (`AV_PIX_FMT_RGB32`) in colours of a palette (`AV_PIX_FMT_PAL8`), with nothing else
  /// of it. What is less than half opaque becomes transparent. Null where memory is short.
  FramePtr reduced(const AVFrame& picture);

 private:
  /// Colours that are alike: what they come to.
  struct Bin {
    int64_t count = 0;
    std::array<int64_t, 3> sums = {};
    std::array<int64_t, 3> squares = {};

    void add(const Bin& other);
    /// How far the colours are off their mean: squares of distances, added up.
    double error() const;
    double errorOf(size_t channel) const;
    std::array<int, 3> mean() const;
  };

  void count(const AVFrame& picture);
  void choosePalette();
  double errorOfPalette() const;
  uint8_t indexOf(uint32_t color);
  size_t nearestTo(const std::array<int, 3>& color) const;

  std::vector<Bin> bins_;        ///< by the upper bits of colours
  std::vector<uint32_t> exact_;  ///< the picture's colours, as long as they are few; sorted
  std::vector<std::array<int, 3>> palette_;
  bool isExact_ = false;      ///< the palette has the picture's very colours
  double errorWhenMade_ = 0;  ///< squared, of a pixel
  int strength_ = 0;          ///< of the pattern, in steps of a channel

  struct Known {
    uint32_t color = 0;
    int16_t index = -1;
  };
  std::vector<Known> known_;  ///< where colours were found before
};

}  // namespace kestrel
