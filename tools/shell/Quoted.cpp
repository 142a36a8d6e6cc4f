#include "tools/shell/Quoted.h"

#include <algorithm>
#include <cctype>

std::string quotedForShell(const std::string& word) {
  const auto isPlain = [](unsigned char c) {
    return std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == ':' || c == '/' || c == ',';
  };
  if (!word.empty() && std::ranges::all_of(word, isPlain)) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string escaped(const std::string& text, const std::string& special) {
  std::string result;
  for (const char c : text) {
    if (special.find(c) != std::string::npos) result += '\\';
    result += c;
  }
  return result;
}
