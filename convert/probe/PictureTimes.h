#pragma once

#include <cstdint>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// A picture as its packet tells of it.
struct TimedPicture {
  int64_t time = 0;    ///< when it is shown, microseconds
  bool isKey = false;  ///< it needs no other
};

/// The main pictures of an input, in the order in which they are shown, told by all of its packets,
/// which are read from where the source stands. Empty where one of them does not tell its time.
std::vector<TimedPicture> timedPictures(LMMediaSource& source);

/// When the main pictures of an input are shown, microseconds, rising: as of
/// `timedPictures`.
std::vector<int64_t> pictureTimes(LMMediaSource& source);

}  // namespace kestrel
