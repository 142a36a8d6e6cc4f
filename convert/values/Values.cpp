#include <kestrel/convert/Values.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <numeric>
#include <system_error>
#include <utility>
#include <vector>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>

namespace kestrel {

namespace {

constexpr int kLongestSide = 65535;
constexpr int kMostLines = 36861;  // whose frame of 16:9 is no wider than that
constexpr int kHighestRate = 1000;
constexpr int64_t kSecond = 1'000'000;  // microseconds
/// About eleven years: beyond any movie, and far from what would overflow.
constexpr int64_t kLatestHour = 99'999;

Failure noSuchValue(std::string_view option, std::string_view text, std::string_view wanted) {
  return Failure::settings(fmt::format("{}: '{}' is not {}", option, text, wanted));
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
  if (fraction.empty()) return *whole * kSecond;
  const auto part = decimalNumber(fraction);
  if (!part) return std::nullopt;
  return *whole * kSecond + std::llround(*part * kSecond);
}

/// "1h2m3.5s": each unit once at most, larger ones first, each number whole but the last.
std::optional<int64_t> timeInUnits(std::string_view text) {
  struct Unit {
    std::string_view name;
    int64_t microseconds;
  };
  static constexpr Unit kUnits[] = {
      {"h", 3600 * kSecond}, {"ms", 1000}, {"m", 60 * kSecond}, {"s", kSecond}};
  int64_t time = 0;
  int64_t smallest = std::numeric_limits<int64_t>::max();
  while (!text.empty()) {
    const size_t digits = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string_view rest = text.substr(digits);
    const auto* const unit = std::ranges::find_if(
        kUnits, [&](const Unit& known) { return rest.starts_with(known.name); });
    if (unit == std::end(kUnits) || unit->microseconds >= smallest) return std::nullopt;
    const auto number = decimalNumber(text.substr(0, digits));
    const bool isLast = rest.size() == unit->name.size();
    if (!number || (!isLast && !wholeNumber(text.substr(0, digits), kLatestHour * 3600)))
      return std::nullopt;
    if (*number * static_cast<double>(unit->microseconds) > kLatestHour * 3600e6)
      return std::nullopt;
    time += std::llround(*number * static_cast<double>(unit->microseconds));
    smallest = unit->microseconds;
    text = rest.substr(unit->name.size());
  }
  return time;
}

std::optional<int64_t> timeMicroseconds(std::string_view text) {
  if (!text.empty() && (text.back() == 's' || text.back() == 'm' || text.back() == 'h'))
    return timeInUnits(text);
  const auto parts = split(text, ':');
  if (parts.size() == 1) return decimalMicroseconds(parts[0], kLatestHour * 3600);
  if (parts.size() > 3) return std::nullopt;

  const bool hasHours = parts.size() == 3;
  const auto hours = hasHours ? wholeNumber(parts[0], kLatestHour) : std::optional<int64_t>(0);
  const auto minutes =
      wholeNumber(parts[parts.size() - 2], hasHours ? 59 : int64_t{kLatestHour} * 60);
  const auto seconds = decimalMicroseconds(parts.back(), 59);
  if (!hours || !minutes || !seconds) return std::nullopt;
  return (*hours * 3600 + *minutes * 60) * kSecond + *seconds;
}

/// 0 stands for "-".
std::optional<int> side(std::string_view text, int longest) {
  if (text == "-") return 0;
  const auto pixels = wholeNumber(text, longest);
  return pixels && *pixels > 0 ? std::optional(static_cast<int>(*pixels)) : std::nullopt;
}

/// Two sides, of which one at most is left open.
std::optional<PictureBox> pictureBox(std::string_view text, int longest) {
  const auto sides = split(text, 'x');
  const auto width = sides.size() == 2 ? side(sides[0], longest) : std::nullopt;
  const auto height = sides.size() == 2 ? side(sides[1], longest) : std::nullopt;
  if (!width || !height || *width + *height == 0) return std::nullopt;
  return PictureBox{.width = *width > 0 ? width : std::nullopt,
                    .height = *height > 0 ? height : std::nullopt};
}

}  // namespace

int64_t parseTime(std::string_view option, std::string_view text) {
  const auto time = timeMicroseconds(text);
  if (!time) throw noSuchValue(option, text, "a time such as 90.5, 1:30.500 or 1m30s");
  return *time;
}

Moment parseMoment(std::string_view option, std::string_view text) {
  if (text.ends_with('%')) {
    const auto percent = decimalNumber(text.substr(0, text.size() - 1));
    if (percent && *percent <= 100) return Moment::ofShare(*percent / 100);
  } else if (const auto time = timeMicroseconds(text)) {
    return *time;
  }
  throw noSuchValue(option, text, "a time such as 90.5, 1:30.500, 1m30s or 50%");
}

double parseSeconds(std::string_view option, std::string_view text) {
  const auto time = timeMicroseconds(text);
  return time ? static_cast<double>(*time) / kSecond : parseNumber(option, text);
}

PictureBox parseSize(std::string_view option, std::string_view text) {
  if (text.ends_with('p')) {
    const auto lines = wholeNumber(text.substr(0, text.size() - 1), kMostLines);
    if (lines && *lines >= 2) return {.lines = static_cast<int>(*lines)};
  }
  if (text.ends_with('%')) {
    const auto percent = decimalNumber(text.substr(0, text.size() - 1));
    if (percent && *percent >= 0.1 && *percent <= 10000) return {.scale = *percent / 100};
  }
  const auto box = pictureBox(text, kLongestSide);
  if (!box) throw noSuchValue(option, text, "a size such as 1280x720, 1280x-, 720p or 50%");
  return *box;
}

PictureBox parseBothSides(std::string_view option, std::string_view text,
                          std::string_view example) {
  const auto size = pictureBox(text, std::numeric_limits<int>::max());
  if (!size || !size->width || !size->height)
    throw noSuchValue(option, text, fmt::format("a size such as {}", example));
  return *size;
}

double parseNumber(std::string_view option, std::string_view text, double low, double high) {
  const char* const end = text.data() + text.size();
  double number = 0;
  const auto [read, error] = std::from_chars(text.data(), end, number);
  const bool isNumber = error == std::errc{} && read == end && std::isfinite(number);
  if (isNumber && number >= low && number <= high) return number;
  throw noSuchValue(option, text,
                    std::isfinite(low) ? fmt::format("a number from {} to {}", low, high)
                                       : std::string("a number"));
}

int parseWholeNumber(std::string_view option, std::string_view text, int low, int high) {
  const auto number = wholeNumber(text, high);
  if (!number || *number < low)
    throw noSuchValue(option, text, fmt::format("a whole number from {} to {}", low, high));
  return static_cast<int>(*number);
}

bool parseSwitch(std::string_view option, std::string_view text) {
  if (text == "true") return true;
  if (text == "false") return false;
  throw noSuchValue(option, text, "true or false");
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

int64_t parseBytes(std::string_view option, std::string_view text) {
  std::string_view digits = text;
  const bool isBinary = digits.ends_with('i');
  if (isBinary) digits.remove_suffix(1);
  const double step = isBinary ? 1024 : 1000;
  constexpr std::string_view kUnits = "kMGT";
  size_t power = 0;
  if (!digits.empty()) {
    const char unit = digits.back() == 'K' ? 'k' : digits.back();
    const size_t place = kUnits.find(unit);
    if (place != std::string_view::npos) power = place + 1;
  }
  if (power > 0) digits.remove_suffix(1);
  const auto number = isBinary && power == 0 ? std::nullopt : decimalNumber(digits);
  const double bytes =
      number ? std::floor(*number * std::pow(step, static_cast<double>(power))) : 0;
  constexpr double kMost = 1e15;
  if (!(bytes >= 1 && bytes <= kMost))
    throw noSuchValue(option, text, "a size such as 25M or 700Mi");
  return static_cast<int64_t>(bytes);
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

std::optional<IndexSet> parseIndexList(std::string_view text) {
  IndexSet indexes;
  for (const std::string_view part : split(text, ',')) {
    const auto index = wholeNumber(part, std::numeric_limits<int32_t>::max());
    if (!index) return std::nullopt;
    indexes.insert(static_cast<uint32_t>(*index));
  }
  return indexes;
}

TrackChoice parseTrackChoice(std::string_view text) {
  if (text.empty()) return {};
  if (text == "all") return TrackChoice::all();
  if (const auto numbers = parseIndexList(text)) return TrackChoice::of(*numbers);
  return TrackChoice::in(std::string(text));
}

std::optional<int> parseTitle(std::string_view option, std::string_view text) {
  if (text.empty()) return std::nullopt;
  if (text == "main") return kMainTitle;
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size())
    throw Failure::settings(fmt::format("{}: '{}' is neither a number nor 'main'", option, text));
  // Below 0 the library means the main one; titles count from 1, so 0 is refused in its place.
  return std::max(number, 0);
}

TitledPath parseTitledPath(const std::string& text) {
  const auto isThere = [](const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
  };
  const size_t mark = text.rfind('#');
  if (mark == std::string::npos || isThere(text) || !isThere(text.substr(0, mark))) return {text};
  const std::string_view choice = std::string_view(text).substr(mark + 1);
  const size_t point = choice.find('.');
  const auto number = [&](std::string_view digits) {
    int value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [next, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc{} || next != end || value < 1)
      throw Failure::settings(fmt::format(
          "'{}' is no title of '{}': it is a number from 1 or 'main', and '3.2' is an angle of one",
          choice, text.substr(0, mark)));
    return value;
  };
  TitledPath titled{text.substr(0, mark)};
  const std::string_view title = choice.substr(0, point);
  titled.title = title == "main" ? kMainTitle : number(title);
  if (point != std::string_view::npos) titled.angle = number(choice.substr(point + 1));
  return titled;
}

Protocols parseProtocols(std::string_view option, std::string_view text) {
  const Protocols known = knownProtocols();
  Protocols names;
  for (const std::string_view name : split(text, ',')) {
    if (std::ranges::find(known, name) == known.end())
      throw Failure::settings(
          fmt::format("{}: there is no protocol '{}'{}", option, name, nearestNames(name, known)));
    names.emplace_back(name);
  }
  return names;
}

std::optional<int64_t> parseChannels(std::string_view option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  const int64_t layout = lm_get_channel_layout_by_name(text);
  if (!layout) throw Failure::settings(fmt::format("{}: unknown layout '{}'", option, text));
  return layout;
}

}  // namespace kestrel
