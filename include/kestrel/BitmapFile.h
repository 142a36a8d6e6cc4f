#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

/// Pictures to and from the bytes of picture files, in memory: nothing here touches a file.
///
/// Plain functions without state, for any thread. Failures show as no result.

namespace kestrel {

enum class PictureFormat {
  kPNG,   ///< exact, alpha included; a picture without transparency is stored without alpha
  kJPEG,  ///< lossy, no alpha: what is transparent shows as it looks over black
};

inline constexpr int kDefaultPictureQuality = 94;

/// The bytes of a picture file. `quality` from 1 to 100, beyond which it is clamped, counts for
/// JPEG, whose colour is stored at full resolution, in full range BT.601 as every viewer expects.
/// Nothing for a picture that is larger than the format allows (65500 pixels a side for JPEG), and
/// when there is not enough memory.
KESTREL_API std::optional<std::vector<uint8_t>> encodedBitmapImage(
    const BitmapImage& image, PictureFormat format, int quality = kDefaultPictureQuality);

/// The picture in the bytes of a PNG, JPEG, WebP, BMP, GIF (its first picture) or TIFF file, known
/// by their content, in memory of its own; upright, where a JPEG says how the camera was held.
///
/// Null for anything else, for a damaged or truncated file, for a picture of more than 2^26 pixels
/// or 32768 a side, and when there is not enough memory.
KESTREL_API std::shared_ptr<const BitmapImage> bitmapImageWithData(std::span<const uint8_t> data);

}  // namespace kestrel
