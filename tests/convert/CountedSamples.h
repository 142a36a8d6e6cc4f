#pragma once

#include <kestrel/LMMovieComposition.h>

#include <cstddef>
#include <numeric>

namespace kestrel::test {

using Samples = JoinedSound::Samples;

/// `first`, `first` + 1, …, `count` numbers.
inline Samples counting(int first, int count) {
  Samples samples(static_cast<size_t>(count));
  std::iota(samples.begin(), samples.end(), first);
  return samples;
}

inline Samples silence(int count) { return Samples(static_cast<size_t>(count)); }

inline Samples operator+(Samples first, const Samples& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace kestrel::test
