#include "tools/cli/Description.h"

#include <algorithm>
#include <sstream>

std::vector<std::string> groupsOf(const std::vector<OptionDescription>& options) {
  std::vector<std::string> groups;
  for (const OptionDescription& option : options)
    if (!option.isArgument() && std::ranges::count(groups, option.group) == 0)
      groups.push_back(option.group);
  return groups;
}

std::string usageOf(const VerbDescription& verb) {
  std::string usage;
  for (const OptionDescription& option : verb.options) {
    if (!option.isArgument()) continue;
    // A value of several words tells the forms by itself.
    const bool isForms = option.value.find(' ') != std::string::npos;
    std::string typed = isForms ? option.value : option.label;
    if (!isForms && option.isRepeatable) typed += "...";
    if (!isForms && !option.isRequired) typed = "[" + typed + "]";
    usage += (usage.empty() ? "" : " ") + typed;
  }
  return usage;
}

std::vector<std::vector<Passage>> paragraphsOf(const std::string& footer) {
  std::vector<std::vector<Passage>> paragraphs;
  std::istringstream lines(footer);
  bool isNew = true;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) {
      isNew = true;
      continue;
    }
    if (isNew) paragraphs.emplace_back();
    isNew = false;
    auto& passages = paragraphs.back();
    const bool isVerbatim = line.starts_with(' ');
    if (passages.empty() || passages.back().isVerbatim != isVerbatim)
      passages.push_back({line, isVerbatim});
    else
      passages.back().text += (isVerbatim ? "\n" : " ") + line;
  }
  return paragraphs;
}
