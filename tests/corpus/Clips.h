#pragma once

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/Fixture.h"

namespace kestrel::test {

/// The names of the real clips, in order.
inline std::vector<std::string> realClips() {
  static const std::set<std::string> kNotMovies{".md", ".srt"};
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(mediaFile(""), error))
    if (!kNotMovies.contains(entry.path().extension().string()))
      names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

/// The same for tests of each of them, which want one at least: an empty name where there are none.
inline std::vector<std::string> clipNames() {
  std::vector<std::string> names = realClips();
  if (names.empty()) names.emplace_back();
  return names;
}

}  // namespace kestrel::test
