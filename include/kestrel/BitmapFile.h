#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

/// Encodes and decodes picture files in memory; no file is accessed. The functions are stateless
/// and safe from any thread. On failure they return null or nullopt.

namespace kestrel {

enum class PictureFormat {
  kPNG,   ///< lossless, with alpha; opaque pictures are stored without alpha
  kJPEG,  ///< lossy, without alpha: transparent parts show as over black
};

inline constexpr int kDefaultPictureQuality = 94;

/// Encodes a picture. `quality` is clamped to 1 to 100 and only affects JPEG, which is stored with
/// chroma at full resolution, in full-range BT.601 as viewers expect. Nullopt if the picture
/// exceeds the format's limits (65500 pixels per side for JPEG) or memory runs out.
KESTREL_API std::optional<std::vector<uint8_t>> encodedBitmapImage(
    const BitmapImage& image, PictureFormat format, int quality = kDefaultPictureQuality);

/// Decodes a PNG, JPEG, WebP, BMP, GIF (first picture only) or TIFF file, recognised by its
/// content, into memory of its own. JPEG pictures are turned upright as their orientation tag says.
///
/// Null if the data is anything else, damaged or truncated, if the picture has more than 2^26
/// pixels or 32768 per side, and if memory runs out.
KESTREL_API std::shared_ptr<const BitmapImage> bitmapImageWithData(std::span<const uint8_t> data);

}  // namespace kestrel
