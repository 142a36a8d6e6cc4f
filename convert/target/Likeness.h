#pragma once

#include <kestrel/convert/Pictures.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kestrel {

/// Which pictures of two movies are scored; times are microseconds of the original's.
struct LikenessSpan {
  int64_t start = 0;      ///< above 0: behind the picture there
  int64_t copyStart = 0;  ///< where that is in the copy; above 0 likewise
  std::optional<int64_t> end = {};
  int every = 1;  ///< of the pairs only every so manieth
};

/// A pair's place and score.
struct LikenessAt {
  int64_t time = 0;
  double score = 0;
};

/// How like its original a copy looks by SSIMULACRA 2, in the size of the copy. `told` hears of
/// each pair that was read, and of its time.
std::vector<LikenessAt> likeness(Pictures& original, Pictures& copy, const LikenessSpan& span,
                                 const std::function<void(int64_t)>& told = {});

}  // namespace kestrel
