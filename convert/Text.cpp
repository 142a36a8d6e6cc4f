#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>

#include "support/Words.h"

namespace kestrel {

namespace {

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

namespace {

using Near = std::vector<std::pair<size_t, std::string>>;  // how far away, and the name

/// Names that are a few letters away.
Near misspelt(const std::string& wanted, const std::vector<std::string>& names) {
  const size_t furthest = std::max<size_t>(2, wanted.size() / 3);
  Near near;
  for (const auto& name : names) {
    const size_t distance = editDistance(wanted, lowerCased(name));
    if (distance <= furthest) near.emplace_back(distance, name);
  }
  return near;
}

/// Names that a short form stands for: they begin with it, or its letters are in them in their
/// order.
Near shortened(const std::string& wanted, const std::vector<std::string>& names) {
  constexpr size_t kShortestBeginning = 3;
  constexpr std::ptrdiff_t kFewest = 4;  // fewer letters are in many names
  Near near;
  for (const auto& name : names)
    if (wanted.size() >= kShortestBeginning && lowerCased(name).starts_with(wanted))
      near.emplace_back(name.size() - wanted.size(), name);
  if (!near.empty()) return near;
  if (std::ranges::count_if(wanted, [](char c) { return c != '-'; }) < kFewest) return near;
  for (const auto& name : names) {
    size_t found = 0;
    for (const char letter : lowerCased(name))
      if (found < wanted.size() && letter == wanted[found]) ++found;
    if (found == wanted.size()) near.emplace_back(name.size() - wanted.size(), name);
  }
  return near;
}

/// Names of several words whose first one is a letter away.
Near misspeltBeginnings(const std::string& wanted, const std::vector<std::string>& names) {
  constexpr size_t kFewest = 3;  // letters; another one makes much of a shorter word
  Near near;
  for (const auto& name : names) {
    const std::string word = lowerCased(name.substr(0, name.find('-')));
    const bool isPart = word.size() >= kFewest && word.size() < name.size();
    if (isPart && editDistance(wanted, word) <= 1) near.emplace_back(1, name);
  }
  return near;
}

}  // namespace

std::string nearestNames(std::string_view typed, const std::vector<std::string>& names) {
  const std::string wanted = lowerCased(typed);
  Near near = misspelt(wanted, names);
  if (near.empty()) near = shortened(wanted, names);
  if (near.empty()) near = misspeltBeginnings(wanted, names);
  std::ranges::stable_sort(near, {}, &Near::value_type::first);
  near.resize(std::min(near.size(), kMostNames));
  std::string text;
  for (const auto& [distance, name] : near)
    text += fmt::format("{}'{}'", text.empty() ? "; did you mean " : " or ", name);
  return text.empty() ? text : text + "?";
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t length = utf8Length(text);
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

}  // namespace kestrel
