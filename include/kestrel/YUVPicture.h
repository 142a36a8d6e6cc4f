#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrel {

/// What the three components of a picture in planes are.
enum class YUVMatrix {
  kLuma,               ///< luma and two differences, by `YUVFormat::kr` and `kb`
  kConstantLuminance,  ///< of ITU-R BT.2020: luma of light, and two differences from it
  kICtCpOfPq,          ///< of ITU-R BT.2100: intensity and two differences, of PQ
  kICtCpOfHlg,         ///< the same of HLG
  kYCgCo,  ///< Y = (R + 2 G + B) / 4, Cg = G - Y and Co = (R - B) / 2, in place of Y, Cb and Cr
  kRgb,    ///< green, blue and red themselves, each of luma's range
};

/// The layout and meaning of the samples of a picture in luma and chroma planes.
///
/// A chroma sample lies among the luma samples that share it where `chromaX` and `chromaY` say: by
/// default with the left one, half way between their rows. Where they are by fields, chroma of
/// 4:2:0 belongs to the rows of one field each, as interlaced video has it: sample 2 k of a column
/// to luma 4 k and 4 k + 2, sample 2 k + 1 to 4 k + 1 and 4 k + 3.
///
/// With Y, Cb and Cr normalised (Y from 0 to 1, Cb and Cr from -½ to ½): R = Y + 2 (1 - kr) Cr,
/// B = Y + 2 (1 - kb) Cb, and G from Y = kr R + (1 - kr - kb) G + kb B. In limited range at 8 bits,
/// black is 16, white 235, and chroma 16 to 240 around 128; in full range 0, 255, and 0 to 255
/// around 128. At more bits these numbers are multiplied by 2^(bits - 8), except that full range
/// reaches 2^bits - 1.
struct YUVFormat {
  int width = 0;         ///< luma samples
  int height = 0;        ///< luma rows
  int chromaShiftX = 1;  ///< chroma is ⌈width / 2^shift⌉ wide: 1 for 4:2:0 and 4:2:2, 0 for 4:4:4
  int chromaShiftY = 1;  ///< chroma is ⌈height / 2^shift⌉ high: 1 for 4:2:0, else 0
  int bitDepth = 8;      ///< 8 to 16; above 8, samples have two bytes in native byte order
  int bitShift = 0;      ///< unused low bits of a two-byte sample (6 for ten bits stored high)
  double kr = 0.2126;    ///< share of red in luma
  double kb = 0.0722;    ///< share of blue in luma
  bool fullRange = false;
  double chromaX = 0;    ///< 0: with the left column of those that share it, 1: with the right one
  double chromaY = 0.5;  ///< 0: with the upper row, 1: with the lower one
  YUVMatrix matrix = YUVMatrix::kLuma;
  bool byFields = false;  ///< rows of chroma are shared by rows of luma of one field

  bool operator==(const YUVFormat&) const = default;
};

/// The samples of one component, top row first: rows are `bytesPerRow` bytes apart, neighbours
/// `sampleStride` samples (2 if two components alternate in one plane).
template <typename Byte>
struct YUVPlaneOf {
  Byte* data = nullptr;
  ptrdiff_t bytesPerRow = 0;
  int sampleStride = 1;
};

/// A picture to read. Y is required; without Cb and Cr it is grey, without alpha opaque. Alpha has
/// the size of luma and full range, and the picture is not premultiplied by it.
struct YUVPicture {
  YUVFormat format;
  std::array<YUVPlaneOf<const uint8_t>, 4> planes;  ///< Y, Cb, Cr, alpha
  /// Keeps the memory alive; null if it is borrowed.
  std::shared_ptr<const void> owner;
};

/// Memory to write a picture to. Y, Cb and Cr are required.
struct YUVTarget {
  YUVFormat format;
  std::array<YUVPlaneOf<uint8_t>, 3> planes;  ///< Y, Cb, Cr
};

}  // namespace kestrel
