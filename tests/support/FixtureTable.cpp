#include "tests/support/FixtureTable.h"

#include <stdexcept>

namespace kestrel::test {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::vector<std::string> splitArguments(const std::string& text) {
  std::vector<std::string> arguments;
  std::string word;
  bool inWord = false;
  bool inQuotes = false;
  for (const char c : text) {
    if (c == '"') {
      inQuotes = !inQuotes;
      inWord = true;
    } else if (isBlank(c) && !inQuotes) {
      if (inWord) arguments.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inQuotes) throw std::runtime_error("fixtures: open quotes: " + text);
  if (inWord) arguments.push_back(word);
  return arguments;
}

}  // namespace

FixtureTable readFixtureTable(std::istream& text) {
  FixtureTable table;
  std::vector<std::string>* current = nullptr;
  for (std::string line; std::getline(text, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (!isBlank(line[0])) {
      const size_t colon = line.find(':');
      if (colon == std::string::npos) throw std::runtime_error("fixtures: no name: " + line);
      const auto [entry, isNew] = table.try_emplace(line.substr(0, colon));
      if (!isNew) throw std::runtime_error("fixtures: listed twice: " + entry->first);
      current = &entry->second;
      line.erase(0, colon + 1);
    }
    if (current == nullptr) throw std::runtime_error("fixtures: no name before: " + line);
    const auto arguments = splitArguments(line);
    current->insert(current->end(), arguments.begin(), arguments.end());
  }
  return table;
}

std::string withFixturePaths(const std::string& argument,
                             const std::function<std::string(const std::string&)>& path) {
  std::string result;
  size_t position = 0;
  while (true) {
    const size_t open = argument.find('{', position);
    const size_t close = argument.find('}', open);
    if (close == std::string::npos) return result + argument.substr(position);
    result += argument.substr(position, open - position);
    result += path(argument.substr(open + 1, close - open - 1));
    position = close + 1;
  }
}

}  // namespace kestrel::test
