#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

/// One word for shells, in single quotes where it has to be.
std::string quotedForShell(const std::string& word);

/// The text with a backslash before each of its characters that is one of `special`.
std::string escaped(const std::string& text, const std::string& special);

/// All of them quoted, with blanks between.
template <typename Quote>
std::string quotedAll(const std::vector<std::string>& words, Quote quote) {
  std::vector<std::string> all;
  for (const std::string& word : words) all.push_back(quote(word));
  return fmt::format("{}", fmt::join(all, " "));
}
