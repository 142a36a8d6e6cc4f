#pragma once

// Reads presentations of segments as players do, for tests.

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestrel::test {

/// One playlist of segments.
struct MediaPlaylist {
  std::filesystem::path folder = {};
  std::string text = {};
  std::string head = {};
  std::vector<std::string> files = {};
  std::vector<double> lengths = {};  ///< seconds
  int target = 0;

  double length() const;
  int64_t bytes() const;  ///< of the segments
};

using Attributes = std::map<std::string, std::string>;  ///< without quotation marks

struct Variant {
  Attributes attributes = {};
  MediaPlaylist playlist = {};
};

struct MasterPlaylist {
  std::string text = {};
  std::vector<Variant> variants = {};
  std::vector<Variant> medias = {};  ///< sound and subtitles
};

/// Throws std::runtime_error for what is no such playlist.
MasterPlaylist readHls(const std::filesystem::path& master);

}  // namespace kestrel::test
