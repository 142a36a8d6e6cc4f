#pragma once

#include <cstdint>

namespace kestrel {

/// Where the lines of a paragraph stand between its left and right edge.
enum class TextAlignment : int32_t {
  kLeft = 0,
  kRight = 1,
  kCenter = 2,
  kJustified = 3,  ///< every line but a paragraph's last fills the width
  kNatural = 4,    ///< left, or right where the line is written from right to left
};

/// What becomes of a line that is longer than the width.
enum class LineBreakMode : int32_t {
  kByWordWrapping = 0,  ///< breaks between words, inside of one only where it is too long by itself
  kByCharWrapping = 1,  ///< breaks between any two characters
  kByClipping = 2,      ///< one line, cut at the edge
  kByTruncatingHead = 3,    ///< one line, an ellipsis in place of its beginning
  kByTruncatingTail = 4,    ///< one line, an ellipsis in place of its end
  kByTruncatingMiddle = 5,  ///< one line, an ellipsis in place of its middle
};

/// How the paragraphs of a text are set; a plain value.
///
/// The default is natural alignment and wrapping between words. The enumerators' numbers are part
/// of the interface: hosts store them.
struct ParagraphStyle {
  TextAlignment alignment = TextAlignment::kNatural;
  LineBreakMode lineBreakMode = LineBreakMode::kByWordWrapping;

  static constexpr ParagraphStyle defaultParagraphStyle() { return {}; }

  bool operator==(const ParagraphStyle&) const = default;
};

}  // namespace kestrel
