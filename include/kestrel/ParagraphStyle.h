#pragma once

#include <cstdint>

namespace kestrel {

/// Alignment of the lines of a paragraph.
enum class TextAlignment : int32_t {
  kLeft = 0,
  kRight = 1,
  kCenter = 2,
  kJustified = 3,  ///< stretched to the width, except for the last line of a paragraph
  kNatural = 4,    ///< left, or right for lines in a right-to-left script
};

/// Treatment of lines that are longer than the width.
enum class LineBreakMode : int32_t {
  kByWordWrapping = 0,      ///< breaks between words; within a word only if it is too long
  kByCharWrapping = 1,      ///< breaks between any two characters
  kByClipping = 2,          ///< one line, cut at the edge
  kByTruncatingHead = 3,    ///< one line with an ellipsis at its beginning
  kByTruncatingTail = 4,    ///< one line with an ellipsis at its end
  kByTruncatingMiddle = 5,  ///< one line with an ellipsis in its middle
};

/// Layout of the paragraphs of a text; a plain value. Hosts may store the enumerators' numbers:
/// they never change.
struct ParagraphStyle {
  TextAlignment alignment = TextAlignment::kNatural;
  LineBreakMode lineBreakMode = LineBreakMode::kByWordWrapping;

  static constexpr ParagraphStyle defaultParagraphStyle() { return {}; }

  bool operator==(const ParagraphStyle&) const = default;
};

}  // namespace kestrel
