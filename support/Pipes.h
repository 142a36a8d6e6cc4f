#pragma once

#include <string_view>

namespace kestrel {

/// Whether a name means an open file descriptor, "pipe:1".
inline bool isPipe(std::string_view name) { return name.starts_with("pipe:"); }

}  // namespace kestrel
