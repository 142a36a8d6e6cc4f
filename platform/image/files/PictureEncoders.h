#pragma once

#include <kestrel/BitmapImage.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace kestrel {

/// Picture files in memory, as "kestrel/BitmapFile.h" describes them. `quality` is 0 to 100.
/// Nullopt where the picture exceeds what the format holds, without memory, and without an encoder.
std::optional<std::vector<uint8_t>> encodePNG(const BitmapImage& image);
std::optional<std::vector<uint8_t>> encodeJPEG(const BitmapImage& image, int quality);
std::optional<std::vector<uint8_t>> encodeWebP(const BitmapImage& image, int quality);
std::optional<std::vector<uint8_t>> encodeAVIF(const BitmapImage& image, int quality);

/// Whether the libraries have what writes such files; the others they always have.
bool canEncodeWebP();
bool canEncodeAVIF();

}  // namespace kestrel
