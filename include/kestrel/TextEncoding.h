#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace kestrel {

/// Converts text of unknown encoding to UTF-8.
///
/// Detection, in this order: a byte-order mark (UTF-8, UTF-16, UTF-32; it is removed); UTF-8, even
/// with a few invalid bytes, which become U+FFFD; UTF-16 without a mark, by the position of zero
/// bytes; Shift-JIS, by its kana; other single-byte and East Asian encodings by letter statistics.
/// Without a better match, Windows-1252 (which includes Latin-1) is used for Latin letters and
/// Windows-1251 for text in other letters throughout.
///
/// Returns nullopt if the data is not text: zero bytes that no encoding explains, or more than one
/// control character in a hundred. Empty data gives an empty text. Line breaks are kept.
///
/// Reads the data once or twice and needs a few times its size in memory. Safe from any thread.
KESTREL_API std::optional<std::string> textFromData(std::span<const uint8_t> data);

}  // namespace kestrel
