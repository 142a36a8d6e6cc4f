#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// A text that every layout engine takes: well-formed UTF-8 whose only control characters are tab
/// and line feed.
struct CleanText {
  std::string text;

  /// For each byte of the original, and one more for its end, where in `text` that place is. What
  /// was left out of `text` is at the place of what follows it.
  std::vector<size_t> places;
};

/// Bytes that are not UTF-8 become U+FFFD, line and paragraph separators of every kind one line
/// feed (CR LF together, too), other control characters vanish. Ends before the character that does
/// not fit into `limit` bytes of the original any more.
CleanText cleanText(std::string_view original, size_t limit);

}  // namespace kestrel
