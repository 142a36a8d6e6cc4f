#include "convert/target/Samples.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

double secondsOf(const Scene& scene) { return static_cast<double>(scene.end - scene.start) / 1e6; }

/// The scenes that get a sample: all, or those at even times.
std::vector<size_t> chosenScenes(const std::vector<Scene>& scenes, size_t count) {
  std::vector<size_t> chosen;
  if (scenes.size() <= count) {
    for (size_t i = 0; i < scenes.size(); ++i) chosen.push_back(i);
    return chosen;
  }
  const int64_t begin = scenes.front().start;
  const int64_t length = scenes.back().end - begin;
  for (size_t i = 0; i < count; ++i) {
    const int64_t time =
        begin + length * static_cast<int64_t>(2 * i + 1) / static_cast<int64_t>(2 * count);
    const auto behind = std::ranges::upper_bound(scenes, time, {}, &Scene::start);
    const auto at = static_cast<size_t>(std::max<std::ptrdiff_t>(behind - scenes.begin(), 1) - 1);
    if (chosen.empty() || chosen.back() != at) chosen.push_back(at);
  }
  return chosen;
}

}  // namespace

std::vector<Sample> placeSamples(const std::vector<Scene>& scenes, size_t count, int64_t length) {
  const std::vector<size_t> chosen = chosenScenes(scenes, count);
  std::vector<size_t> parts(chosen.size(), 1);
  for (size_t left = count - std::min(count, chosen.size()); left > 0; --left) {
    // Where the stretches that samples stand for are longest, as long as these do not touch.
    size_t longest = 0;
    const auto stretch = [&](size_t i) {
      return secondsOf(scenes[chosen[i]]) / static_cast<double>(parts[i]);
    };
    for (size_t i = 1; i < chosen.size(); ++i)
      if (stretch(i) > stretch(longest)) longest = i;
    if (chosen.empty() || stretch(longest) * 1e6 < 2.0 * static_cast<double>(length)) break;
    ++parts[longest];
  }
  std::vector<Sample> samples;
  for (size_t i = 0; i < chosen.size(); ++i) {
    const Scene& scene = scenes[chosen[i]];
    const auto pieces = static_cast<int64_t>(parts[i]);
    for (int64_t part = 0; part < pieces; ++part) {
      const int64_t middle =
          scene.start + (scene.end - scene.start) * (2 * part + 1) / (2 * pieces);
      const int64_t last = std::max(scene.start, scene.end - length);
      const int64_t start = std::clamp(middle - length / 2, scene.start, last);
      samples.push_back({start, std::min(start + length, scene.end), chosen[i],
                         secondsOf(scene) / static_cast<double>(pieces)});
    }
  }
  return samples;
}

double percentile5(std::vector<WeighedScore> scores) {
  std::ranges::sort(scores, {}, &WeighedScore::score);
  double whole = 0;
  for (const WeighedScore& each : scores) whole += each.weight;
  double below = 0;
  for (const WeighedScore& each : scores) {
    below += each.weight;
    if (below > 0.05 * whole) return each.score;
  }
  return scores.empty() ? 0 : scores.back().score;
}

}  // namespace kestrel
