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
  kJPEG,  ///< lossy, without alpha: transparent parts show as over black; full-range BT.601 with
          ///< chroma at full resolution
  kWebP,  ///< lossy, with alpha, which is lossless; chroma at half resolution, as always in WebP
  kAVIF,  ///< lossy, without alpha, like JPEG; AV1 of 8 bits, with chroma at full resolution
};

/// The quality that a format gets if none is asked for; nullopt for PNG, which has none.
KESTREL_API std::optional<int> usualQuality(PictureFormat format);

/// True if the installed libraries have an encoder for the format; for PNG and JPEG they always do.
KESTREL_API bool canEncode(PictureFormat format);

/// Encodes a picture. `quality` is clamped to 0 to 100 and does not affect PNG: for JPEG it is the
/// percentage by which programs scale the usual tables, for WebP the encoder's own number, for AVIF
/// it means a constant quality of 63 · (100 - quality) / 100 on AV1's scale. Nullopt if the picture
/// exceeds the format's limits (per side 65500 pixels for JPEG, 16383 for WebP, 65536 for AVIF), if
/// there is no encoder, or if memory runs out.
KESTREL_API std::optional<std::vector<uint8_t>> encodedBitmapImage(const BitmapImage& image,
                                                                   PictureFormat format,
                                                                   std::optional<int> quality = {});

/// Decodes a PNG, JPEG, WebP, BMP, GIF (first picture only) or TIFF file, recognised by its
/// content, into memory of its own. JPEG pictures are turned upright as their orientation tag says.
///
/// Null if the data is anything else, damaged or truncated, if the picture has more than 2^26
/// pixels or 32768 per side, and if memory runs out.
KESTREL_API std::shared_ptr<const BitmapImage> bitmapImageWithData(std::span<const uint8_t> data);

}  // namespace kestrel
