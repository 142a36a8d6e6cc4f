#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <utility>
#include <vector>

#include "Failure.h"

using kestrel::Rational;

namespace {

constexpr int kLongestSide = 65535;
constexpr int kHighestRate = 1000;
constexpr int64_t kMicroseconds = 1'000'000;
/// About eleven years: beyond any movie, and far from what would overflow.
constexpr int64_t kLatestHour = 99'999;

Failure noSuchValue(std::string_view option, std::string_view text, std::string_view wanted) {
  return wrongUsage(fmt::format("{}: '{}' is not {}", option, text, wanted));
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Digits alone, up to `highest`.
std::optional<int64_t> wholeNumber(std::string_view text, int64_t highest) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = !text.empty() && isDigit(text.front()) && error == std::errc() &&
                       end == text.data() + text.size() && number <= highest;
  return isWhole ? std::optional(number) : std::nullopt;
}

/// Digits with at most one point among them, which has a digit on one side at least.
std::optional<double> decimalNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  const bool isDecimal = !text.empty() && (isDigit(text.front()) || text.front() == '.') &&
                         error == std::errc() && end == text.data() + text.size();
  return isDecimal ? std::optional(number) : std::nullopt;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const size_t at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

/// "3", "03.250" as microseconds; exact where a double would not be.
std::optional<int64_t> decimalMicroseconds(std::string_view text, int64_t highestSecond) {
  const size_t point = text.find('.');
  const std::string_view fraction =
      point == std::string_view::npos ? std::string_view() : text.substr(point);
  const auto whole = wholeNumber(text.substr(0, point), highestSecond);
  if (!whole) return std::nullopt;
  if (fraction.empty()) return *whole * kMicroseconds;
  const auto part = decimalNumber(fraction);
  if (!part) return std::nullopt;
  return *whole * kMicroseconds + std::llround(*part * kMicroseconds);
}

std::optional<int64_t> timeMicroseconds(std::string_view text) {
  const auto parts = split(text, ':');
  if (parts.size() == 1) return decimalMicroseconds(parts[0], kLatestHour * 3600);
  if (parts.size() > 3) return std::nullopt;

  const bool hasHours = parts.size() == 3;
  const auto hours = hasHours ? wholeNumber(parts[0], kLatestHour) : std::optional<int64_t>(0);
  const auto minutes =
      wholeNumber(parts[parts.size() - 2], hasHours ? 59 : int64_t{kLatestHour} * 60);
  const auto seconds = decimalMicroseconds(parts.back(), 59);
  if (!hours || !minutes || !seconds) return std::nullopt;
  return (*hours * 3600 + *minutes * 60) * kMicroseconds + *seconds;
}

/// 0 stands for "-".
std::optional<int> side(std::string_view text) {
  if (text == "-") return 0;
  const auto pixels = wholeNumber(text, kLongestSide);
  return pixels && *pixels > 0 ? std::optional(static_cast<int>(*pixels)) : std::nullopt;
}

/// Three significant digits with the factor's letter: "4.62 M".
std::string scaled(double number) {
  constexpr std::array kPrefixes{"", "k", "M", "G", "T", "P", "E"};
  size_t prefix = 0;
  // What would round to four digits already takes the next letter.
  while (number >= 999.5 && prefix + 1 < kPrefixes.size()) {
    number /= 1000;
    ++prefix;
  }
  const int decimals = prefix == 0 || number >= 99.95 ? 0 : number >= 9.995 ? 1 : 2;
  return formatNumber(number, decimals) + " " + kPrefixes[prefix];
}

/// How many bytes the character takes that `text` starts with; 0 when that is no UTF-8.
size_t characterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const size_t length = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF5 ? 4
                                       : 0;
  if (length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  // Longer than needed, a surrogate, or beyond the last character.
  if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
      (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F)) {
    return 0;
  }
  return length;
}

bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  const bool isSecondSet = first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
  return first < 0x20 || first == 0x7F || isSecondSet;
}

constexpr size_t kMostNames = 3;  // more suggestions than this help nobody

/// How many bytes must be put in, left out or replaced to make one text of the other.
size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, diagonal + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

int64_t parseTime(std::string_view option, std::string_view text) {
  const auto time = timeMicroseconds(text);
  if (!time) throw noSuchValue(option, text, "a time such as 90.5 or 1:30.500");
  return *time;
}

PictureSize parseSize(std::string_view option, std::string_view text) {
  const auto sides = split(text, 'x');
  const auto width = sides.size() == 2 ? side(sides[0]) : std::nullopt;
  const auto height = sides.size() == 2 ? side(sides[1]) : std::nullopt;
  if (!width || !height || *width + *height == 0) {
    throw noSuchValue(option, text, "a size such as 1280x720 or 1280x-");
  }
  return {*width > 0 ? width : std::nullopt, *height > 0 ? height : std::nullopt};
}

Rational parseRate(std::string_view option, std::string_view text) {
  // These decimals are how people write the rates of NTSC.
  static const std::map<std::string_view, Rational> kCustomary{{"23.976", {24000, 1001}},
                                                               {"23.98", {24000, 1001}},
                                                               {"29.97", {30000, 1001}},
                                                               {"59.94", {60000, 1001}},
                                                               {"119.88", {120000, 1001}}};
  if (const auto found = kCustomary.find(text); found != kCustomary.end()) return found->second;
  const auto parts = split(text, '/');
  constexpr int64_t kHighest = std::numeric_limits<int32_t>::max();
  const auto num = wholeNumber(parts[0], kHighest);
  const auto den = parts.size() == 1 ? std::optional<int64_t>(1) : wholeNumber(parts[1], kHighest);
  if (parts.size() > 2 || !num || !den || *num == 0 || *den == 0 || *num > *den * kHighestRate) {
    throw noSuchValue(option, text, "a frame rate such as 25, 29.97 or 30000/1001");
  }
  const int64_t divisor = std::gcd(*num, *den);
  return {static_cast<int32_t>(*num / divisor), static_cast<int32_t>(*den / divisor)};
}

double parseAspect(std::string_view option, std::string_view text) {
  const auto parts = split(text, ':');
  const auto width = parts.size() == 2 ? decimalNumber(parts[0]) : std::nullopt;
  const auto height = parts.size() == 2 ? decimalNumber(parts[1]) : std::nullopt;
  const double aspect = width && height && *height > 0 ? *width / *height : 0;
  if (!(aspect >= 0.01 && aspect <= 100)) {
    throw noSuchValue(option, text, "a shape such as 16:9 or 2.39:1");
  }
  return aspect;
}

int parseBitRate(std::string_view option, std::string_view text) {
  std::string_view digits = text;
  double factor = 1;
  if (!text.empty()) {
    switch (text.back()) {
      case 'k':
      case 'K':
        factor = 1e3;
        break;
      case 'M':
        factor = 1e6;
        break;
      case 'G':
        factor = 1e9;
        break;
      default:
        break;
    }
  }
  if (factor > 1) digits.remove_suffix(1);
  const auto number = decimalNumber(digits);
  const double rate = number ? std::round(*number * factor) : 0;
  if (!(rate >= 1 && rate <= std::numeric_limits<int>::max())) {
    throw noSuchValue(option, text, "a bit rate such as 4M or 192k");
  }
  return static_cast<int>(rate);
}

ChapterRange parseChapters(std::string_view option, std::string_view text) {
  constexpr int64_t kHighest = 99999;
  const size_t dash = text.find('-');
  const auto first = wholeNumber(text.substr(0, dash), kHighest);
  const auto last =
      dash == std::string_view::npos ? first : wholeNumber(text.substr(dash + 1), kHighest);
  if (!first || !last || *first < 1 || *last < *first)
    throw noSuchValue(option, text, "a chapter such as 3 or a range such as 2-5");
  return {static_cast<int>(*first), static_cast<int>(*last)};
}

std::optional<kestrel::IndexSet> parseIndexList(std::string_view text) {
  kestrel::IndexSet indexes;
  for (const std::string_view part : split(text, ',')) {
    const auto index = wholeNumber(part, std::numeric_limits<int32_t>::max());
    if (!index) return std::nullopt;
    indexes.insert(static_cast<uint32_t>(*index));
  }
  return indexes;
}

std::string formatTime(double seconds) {
  if (!std::isfinite(seconds)) return "?";
  const int64_t milliseconds = std::llround(std::abs(seconds) * 1000);
  const int64_t whole = milliseconds / 1000;
  std::string text = seconds < 0 && milliseconds > 0 ? "-" : "";
  if (whole >= 3600) text += fmt::format("{}:{:02}", whole / 3600, whole / 60 % 60);
  if (whole < 3600) text += fmt::format("{}", whole / 60);
  text += fmt::format(":{:02}", whole % 60);
  if (milliseconds % 1000 != 0) text += fmt::format(".{:03}", milliseconds % 1000);
  return text;
}

std::string formatBitRate(int64_t bitsPerSecond) {
  return scaled(static_cast<double>(bitsPerSecond)) + "b/s";
}

std::string formatByteCount(int64_t bytes) { return scaled(static_cast<double>(bytes)) + "B"; }

std::string formatNumber(double number, int decimals) {
  std::string text = fmt::format("{:.{}f}", number, decimals);
  if (text.find('.') == std::string::npos) return text;
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string nounAndNumbers(std::string_view noun, const std::vector<int>& numbers) {
  std::vector<std::string> runs;
  for (size_t i = 0; i < numbers.size();) {
    const size_t first = i++;
    while (i < numbers.size() && numbers[i] == numbers[i - 1] + 1) ++i;
    const int count = static_cast<int>(i - first);
    if (count < 3) i = first + 1;
    runs.push_back(count < 3 ? fmt::format("{}", numbers[first])
                             : fmt::format("{} to {}", numbers[first], numbers[i - 1]));
  }
  return fmt::format("{}{} {}", noun, numbers.size() == 1 ? "" : "s", fmt::join(runs, ", "));
}

std::string lowerCased(std::string_view text) {
  std::string lowered(text);
  std::ranges::transform(lowered, lowered.begin(), [](unsigned char c) { return std::tolower(c); });
  return lowered;
}

std::string nearestNames(std::string_view typed, const std::vector<std::string>& names) {
  const std::string wanted = lowerCased(typed);
  const size_t furthest = std::max<size_t>(2, wanted.size() / 3);
  std::vector<std::pair<size_t, std::string>> near;
  for (const auto& name : names) {
    const size_t distance = editDistance(wanted, lowerCased(name));
    if (distance <= furthest) near.emplace_back(distance, name);
  }
  std::ranges::stable_sort(near, {}, &std::pair<size_t, std::string>::first);
  near.resize(std::min(near.size(), kMostNames));
  std::string text;
  for (const auto& [distance, name] : near)
    text += fmt::format("{}'{}'", text.empty() ? "; did you mean " : " or ", name);
  return text.empty() ? text : text + "?";
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t length = characterLength(text);
    const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
    const bool isLineEnd = character == "\n" || character == "\r";
    if (text.substr(0, 2) == "\r\n") text.remove_prefix(1);
    if (length == 0) {
      result += "\uFFFD";
    } else if (isLineEnd) {
      result += '\n';
    } else if (isControl(character)) {
      result += ' ';
    } else {
      result += character;
    }
    text.remove_prefix(character.size());
  }
  return result;
}
