#include "convert/compare/FindOffset.h"

#include <kestrel/convert/Pictures.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

namespace kestrel {

namespace {

constexpr int64_t kSecond = 1000000;

constexpr Size kSize{32, 18};

/// What is looked for is the beginning of one movie.
constexpr int64_t kProbe = 8 * kSecond;
constexpr int64_t kFirstLook = 3 * kProbe;
constexpr int64_t kLongestLook = 1800 * kSecond;

/// So many of its pictures are compared, and so many of them must have one to be compared with.
constexpr size_t kSamples = 32;
constexpr size_t kLeastSamples = 6;

/// Pictures so far apart in time are not the same one.
constexpr int64_t kNear = kSecond / 20;

// Mean differences of luma, levels of 255.
constexpr double kAlike = 4;       // what the same pictures in another quality differ by at most
constexpr double kBetterBy = 0.2;  // an offset must have pictures more alike than none has
constexpr double kBetterTimes = 0.85;

double difference(const Signature& one, const Signature& other) {
  int sum = 0;
  for (size_t i = 0; i < one.luma.size(); ++i) sum += std::abs(one.luma[i] - other.luma[i]);
  return static_cast<double>(sum) / static_cast<double>(one.luma.size());
}

/// The picture that is nearest to a time, if there is a near one.
const Signature* nearest(const std::vector<Signature>& pictures, int64_t time) {
  auto at = std::lower_bound(pictures.begin(), pictures.end(), time,
                             [](const Signature& each, int64_t t) { return each.time < t; });
  if (at == pictures.end() ||
      (at != pictures.begin() && time - std::prev(at)->time <= at->time - time))
    at = at == pictures.begin() ? at : std::prev(at);
  return at != pictures.end() && std::llabs(at->time - time) <= kNear ? &*at : nullptr;
}

struct Found {
  int64_t offset = 0;
  double difference = std::numeric_limits<double>::infinity();
};

/// Compares both where the second one is so much later.
Found tried(const std::vector<Signature>& one, const std::vector<Signature>& other,
            int64_t offset) {
  const int64_t from = std::max(one.front().time, other.front().time - offset);
  double sum = 0;
  size_t count = 0;
  const size_t samples = std::min(one.size(), kSamples);
  for (size_t i = 0; i < samples; ++i) {
    // Within the probe that both have.
    const int64_t time = from + kProbe * static_cast<int64_t>(i) / static_cast<int64_t>(samples);
    const Signature* const first = nearest(one, time);
    const Signature* const second = first ? nearest(other, first->time + offset) : nullptr;
    if (!second) continue;
    sum += difference(*first, *second);
    ++count;
  }
  if (count < std::min(kLeastSamples, samples)) return {offset};
  return {offset, sum / static_cast<double>(count)};
}

Found bestOffset(const std::vector<Signature>& original, const std::vector<Signature>& copy) {
  if (original.empty() || copy.empty()) return {};
  Found best;
  const auto look = [&](int64_t offset) {
    const Found found = tried(original, copy, offset);
    if (found.difference < best.difference) best = found;
  };
  for (const Signature& each : original) look(copy.front().time - each.time);
  for (const Signature& each : copy) look(each.time - original.front().time);
  const Found none = tried(original, copy, 0);
  const bool isBetter = best.difference < none.difference - kBetterBy &&
                        best.difference < none.difference * kBetterTimes;
  return isBetter || std::isinf(none.difference) ? best : none;
}

/// A movie's pictures as signatures, read as far as they are wanted.
class Signatures {
 public:
  Signatures(const std::string& input, const Protocols& protocols, const Interrupt& interrupt)
      : pictures_({.input = input, .protocols = protocols, .deinterlacing = Deinterlacing::kOff},
                  interrupt) {
    pictures_.setOutputSize(kSize);
  }

  const std::vector<Signature>& upTo(int64_t time) {
    while (!isAtEnd_ && (read_.empty() || read_.back().time < time)) {
      const auto shown = pictures_.next();
      isAtEnd_ = !shown;
      if (shown && (read_.empty() || shown->start > read_.back().time)) add(*shown);
    }
    return read_;
  }

 private:
  void add(const Pictures::Shown& shown) {
    const auto picture = pictures_.drawn(shown);
    Signature signature{shown.start, {}};
    for (int y = 0; y < picture->height(); ++y) {
      const uint8_t* pixel = picture->row(y);
      for (int x = 0; x < picture->width(); ++x, pixel += 4)
        signature.luma.push_back(
            static_cast<uint8_t>((299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2]) / 1000));
    }
    read_.push_back(std::move(signature));
  }

  Pictures pictures_;
  std::vector<Signature> read_;
  bool isAtEnd_ = false;
};

}  // namespace

int64_t offsetBetween(const std::vector<Signature>& original, const std::vector<Signature>& copy) {
  const Found found = bestOffset(original, copy);
  return std::isinf(found.difference) ? 0 : found.offset;
}

int64_t findOffset(const CompareSettings& settings, const Interrupt& interrupt) {
  Signatures original(settings.original, settings.protocols, interrupt);
  Signatures copy(settings.distorted, settings.protocols, interrupt);
  const Found near = bestOffset(original.upTo(kFirstLook), copy.upTo(kFirstLook));
  if (near.difference <= kAlike) return near.offset;
  const Found far = bestOffset(original.upTo(kLongestLook), copy.upTo(kLongestLook));
  const Found& found = far.difference < near.difference * kBetterTimes ? far : near;
  return std::isinf(found.difference) ? 0 : found.offset;
}

}  // namespace kestrel
