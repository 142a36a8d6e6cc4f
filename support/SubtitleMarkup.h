#pragma once

#include <kestrel/AttributedString.h>

#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// A text without its marks, and what these said of its parts.
struct MarkedText {
  std::string text;
  std::vector<TextRun> runs;
};

/// Reads a text with marks: "<b>" bold, "<i>" italic, "<u>" underlined, "<s>" struck through, each
/// up to its "</…>" or the end of the text, in either case of letter, and nested as one likes;
/// "&lt;", "&gt;" and "&amp;" stand for the characters that marks are made of. Everything else,
/// other marks included, is text as it stands.
MarkedText readSubtitleMarkup(std::string_view source);

}  // namespace kestrel
