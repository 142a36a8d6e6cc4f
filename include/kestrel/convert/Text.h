#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// Values and names as people read them in listings and messages.

/// "0:09.640", "1:02:03": hours where there are any, fractions where there are any, down to the
/// millisecond; a minus for what lies before 0.
KESTREL_API std::string formatTime(double seconds);

/// "128 kb/s", "4.62 Mb/s".
KESTREL_API std::string formatBitRate(int64_t bitsPerSecond);

/// "762 kB", "1.78 MB": decimal factors.
KESTREL_API std::string formatByteCount(int64_t bytes);

/// A number to `decimals` places at most, zeros at the end left out: "29.97", "25".
KESTREL_API std::string formatNumber(double number, int decimals);

/// The names that a mistyped one may have meant, as a continuation of the sentence that refuses it:
/// "; did you mean 'fast' or 'faster'?", "" where none is near. Case does not count. Where none is
/// a few letters away, those count that it may be short for, "vcodec" for "video-codec", or else
/// those whose first word it may be, "webb" for "web-720p".
KESTREL_API std::string nearestNames(std::string_view typed, const std::vector<std::string>& names);

/// Text from a file made fit for a terminal: bytes that are no UTF-8 become U+FFFD, control
/// characters blanks. Line ends of any kind become "\n".
KESTREL_API std::string printable(std::string_view text);

}  // namespace kestrel
