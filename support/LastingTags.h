#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrel {

/// A tag's name as all containers know it: "location" for QuickTime's
/// "com.apple.quicktime.location.ISO6709", under which phones note where a clip was made. Other
/// names stay as they are.
std::string commonTagName(std::string_view name);

/// A file's tags by their common names, without what the old container says of itself and is not
/// true of a new one. Where both are there, a common name counts before QuickTime's.
std::map<std::string, std::string> lastingTags(
    const std::vector<std::pair<std::string, std::string>>& tags);

}  // namespace kestrel
