#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace kestrel {

/// The text of a file whose encoding nobody has told, as UTF-8.
///
/// In this order: a byte-order mark decides (UTF-8, UTF-16, UTF-32; it is not part of the result);
/// then UTF-8, also with a few damaged bytes, which become U+FFFD; then UTF-16 without a mark,
/// known by where its zero bytes lie; then Shift-JIS, known by its kana; then the single-byte and
/// other East Asian encodings that the text's letter statistics suggest, Windows-1252 (with Latin-1
/// in it) where they suggest nothing better for Latin letters and Windows-1251 where words are
/// written in other letters throughout.
///
/// Nothing for data that is no text: with zero bytes where no encoding has them, or with more than
/// one control character in a hundred. Empty data is the empty text. Line breaks stay as they are.
///
/// Reads the data once or twice and holds it a few times in memory; may be called from any thread.
KESTREL_API std::optional<std::string> textFromData(std::span<const uint8_t> data);

}  // namespace kestrel
