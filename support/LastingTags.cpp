#include "support/LastingTags.h"

#include <algorithm>

namespace kestrel {

std::string commonTagName(std::string_view name) {
  constexpr std::string_view kQuickTime = "com.apple.quicktime.";
  if (!name.starts_with(kQuickTime)) return std::string(name);
  const std::string_view own = name.substr(kQuickTime.size());
  if (own == "location.ISO6709") return "location";
  if (own == "creationdate") return "date";
  static constexpr std::string_view kShared[] = {
      "album",    "artist", "author", "comment",  "copyright", "description", "director", "genre",
      "keywords", "make",   "model",  "producer", "publisher", "software",    "title"};
  return std::string(std::ranges::count(kShared, own) > 0 ? own : name);
}

std::map<std::string, std::string> lastingTags(
    const std::vector<std::pair<std::string, std::string>>& tags) {
  static constexpr std::string_view kOfContainer[] = {"major_brand", "minor_version",
                                                      "compatible_brands", "encoder"};
  std::map<std::string, std::string> lasting;
  for (const auto& [name, value] : tags) {
    if (std::ranges::count(kOfContainer, name) > 0) continue;
    const std::string common = commonTagName(name);
    if (common == name)
      lasting[name] = value;
    else
      lasting.try_emplace(common, value);
  }
  return lasting;
}

}  // namespace kestrel
