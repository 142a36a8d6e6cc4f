#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Values as people write them on the command line and read them in a listing.
///
/// Each `parse…` takes a value of the option `option` ("--size") and accepts the whole text or
/// nothing: it throws the `Failure` of wrong usage, which names option and value and shows how such
/// a value looks.

/// A picture's size in pixels; a side that is left open keeps the picture's shape.
struct PictureSize {
  std::optional<int> width;
  std::optional<int> height;

  bool operator==(const PictureSize&) const = default;
};

/// "12.5" seconds or "[hh:]mm:ss.mmm"; microseconds, rounded.
int64_t parseTime(std::string_view option, std::string_view text);

/// "1280x720", "1280x-" or "-x720".
PictureSize parseSize(std::string_view option, std::string_view text);

/// "25", "30000/1001", or "29.97" for that; pictures per second, above 0 and up to 1000; lowest
/// terms.
kestrel::Rational parseRate(std::string_view option, std::string_view text);

/// "16:9" or "2.39:1": width by height.
double parseAspect(std::string_view option, std::string_view text);

/// "4M", "1.5M", "192k" or "192000" bits per second, with decimal factors; at least 1.
int parseBitRate(std::string_view option, std::string_view text);

/// Chapters from one to another, counted from 1; both belong to it.
struct ChapterRange {
  int first = 1;
  int last = 1;

  bool operator==(const ChapterRange&) const = default;
};

/// "3" or "2-5"; the first is at least 1, the last no smaller.
ChapterRange parseChapters(std::string_view option, std::string_view text);

/// "0,2": whole numbers from 0, separated by commas. None for any other text, which may then mean
/// something else.
std::optional<kestrel::IndexSet> parseIndexList(std::string_view text);

/// "0:09.640", "1:02:03": hours where there are any, fractions where there are any, down to the
/// millisecond; a minus for what lies before 0.
std::string formatTime(double seconds);

/// "128 kb/s", "4.62 Mb/s".
std::string formatBitRate(int64_t bitsPerSecond);

/// "762 kB", "1.78 MB": decimal factors.
std::string formatByteCount(int64_t bytes);

/// A number to `decimals` places at most, zeros at the end left out: "29.97", "25".
std::string formatNumber(double number, int decimals);

/// Rising numbers behind what they number: "title 4", and with neighbours drawn together
/// "titles 1 to 3, 7".
std::string nounAndNumbers(std::string_view noun, const std::vector<int>& numbers);

/// The text with its ASCII letters in lower case.
std::string lowerCased(std::string_view text);

/// The names that a mistyped one may have meant, as a continuation of the sentence that refuses it:
/// "; did you mean 'fast' or 'faster'?", "" where none is near. Case does not count.
std::string nearestNames(std::string_view typed, const std::vector<std::string>& names);

/// Whether text is UTF-8 throughout.
bool isUtf8(std::string_view text);

/// Text from a file made fit for a terminal: bytes that are no UTF-8 become U+FFFD, control
/// characters blanks. Line ends of any kind become "\n".
std::string printable(std::string_view text);
