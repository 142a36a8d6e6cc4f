#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace kestrel {

/// A piece of an MPEG-4 file that is handed out while it is written: first the head, which tells
/// decoders about the stream, then the fragments. A player that has the head can start with any
/// fragment.
struct Fragment {
  std::span<const uint8_t> bytes = {};  ///< lent for the call that hands it out
  bool isHead = false;                  ///< the times of a head are 0
  int64_t start = 0;                    ///< microseconds, where it begins to be shown or heard
  int64_t duration = 0;                 ///< microseconds up to the next one
};

/// Takes the pieces in order; false ends the writing, as a file does that cannot be written.
using FragmentTaker = std::function<bool(const Fragment& fragment)>;

}  // namespace kestrel
