#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrel {

/// What the samples of a picture in planes of luma and chroma mean and how they lie.
///
/// Chroma samples are sited with the left one of the luma samples that share them, and half way
/// between the two rows that share them. With Y, Cb and Cr normalised (Y from 0 to 1, Cb and Cr
/// from -½ to ½): R = Y + 2 (1 - kr) Cr, B = Y + 2 (1 - kb) Cb, and G from Y = kr R + (1 - kr - kb)
/// G + kb B. In the limited range at 8 bits black is 16, white 235 and chroma 16 to 240 about 128;
/// in the full range 0, 255 and 0 to 255 about 128. At more bits these numbers are multiplied by
/// 2^(bits - 8), except that full range reaches 2^bits - 1.
struct YUVFormat {
  int width = 0;         ///< luma samples
  int height = 0;        ///< luma rows
  int chromaShiftX = 1;  ///< chroma is ⌈width / 2^shift⌉ wide: 1 for 4:2:0 and 4:2:2, 0 for 4:4:4
  int chromaShiftY = 1;  ///< chroma is ⌈height / 2^shift⌉ high: 1 for 4:2:0, else 0
  int bitDepth = 8;      ///< 8 to 16; above 8 a sample has two bytes in the machine's order
  int bitShift = 0;      ///< unused bits below a sample of two bytes (6 for ten bits held on high)
  double kr = 0.2126;    ///< share of red in luma
  double kb = 0.0722;    ///< share of blue in luma
  bool fullRange = false;

  bool operator==(const YUVFormat&) const = default;
};

/// The samples of one component: `rows` apart by `bytesPerRow`, neighbours by `sampleStride`
/// samples (2 where two components take turns in one plane), the top row first.
template <typename Byte>
struct YUVPlaneOf {
  Byte* data = nullptr;
  ptrdiff_t bytesPerRow = 0;
  int sampleStride = 1;
};

/// A picture to read. Y must be there; without Cb and Cr it is grey, without alpha opaque. Alpha is
/// as large as luma, of full range, and not multiplied in.
struct YUVPicture {
  YUVFormat format;
  std::array<YUVPlaneOf<const uint8_t>, 4> planes;  ///< Y, Cb, Cr, alpha
  /// Keeps the memory alive; null where the memory is only borrowed and somebody else does.
  std::shared_ptr<const void> owner;
};

/// Memory to write a picture into; Y, Cb and Cr must be there.
struct YUVTarget {
  YUVFormat format;
  std::array<YUVPlaneOf<uint8_t>, 3> planes;  ///< Y, Cb, Cr
};

}  // namespace kestrel
