#pragma once

#include <cstdint>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// When the main pictures of an input are shown, microseconds, rising: told by all of its packets,
/// which are read from where the source stands. Empty where one of them does not tell.
std::vector<int64_t> pictureTimes(LMMediaSource& source);

}  // namespace kestrel
