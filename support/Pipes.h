#pragma once

#include <string>
#include <string_view>

namespace kestrel {

/// Whether a name means an open file descriptor, "pipe:1".
inline bool isPipe(std::string_view name) { return name.starts_with("pipe:"); }

/// How people are told of a file: "'clip.mp4'", or "standard input".
inline std::string shownName(std::string_view path) {
  return path == "/dev/stdin" ? std::string("standard input") : "'" + std::string(path) + "'";
}

}  // namespace kestrel
