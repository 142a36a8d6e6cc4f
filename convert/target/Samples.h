#pragma once

#include <kestrel/convert/Scenes.h>

#include <cstdint>
#include <vector>

namespace kestrel {

/// A few pictures that stand for a stretch of a movie.
struct Sample {
  int64_t start = 0;  ///< microseconds from the movie's start
  int64_t end = 0;
  size_t scene = 0;   ///< that it lies in
  double weight = 1;  ///< how much of the movie it stands for, seconds
};

/// So many samples of a length at most, none across a cut: first one in the middle of each scene
/// or, where there are more scenes, of those at even times; then further ones in the longest
/// stretches. In order of time.
std::vector<Sample> placeSamples(const std::vector<Scene>& scenes, size_t count, int64_t length);

/// A score, and how much it counts.
struct WeighedScore {
  double score = 0;
  double weight = 1;
};

/// The score below which 5 of 100 parts of the weight lie.
double percentile5(std::vector<WeighedScore> scores);

}  // namespace kestrel
