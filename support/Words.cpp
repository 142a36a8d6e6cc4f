#include "support/Words.h"

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

std::string lowerCased(std::string_view text) {
  std::string lowered(text);
  std::ranges::transform(lowered, lowered.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lowered;
}

size_t utf8Length(std::string_view text) {
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

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
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

}  // namespace kestrel
