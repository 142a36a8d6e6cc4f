#include "convert/scenes/SceneFinder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <utility>

namespace kestrel {

namespace {

constexpr int kWidth = SmallPicture::kWidth;
constexpr int kHeight = SmallPicture::kHeight;
constexpr size_t kPixels = size_t{kWidth} * kHeight;

// Blocks that are looked for a little beside their place.
constexpr int kBlockWidth = 8;
constexpr int kBlockHeight = 6;
constexpr int kReach = 2;

// Of a cut; levels of 255.
constexpr double kLeastChange = 6;
constexpr double kTimesUsual = 3;     // the median change around it
constexpr double kTimesSecond = 1.6;  // the second largest
constexpr size_t kAround = 4;         // pictures on each side
constexpr double kTimesMotion = 6;    // the second largest, of pictures that are perhaps alike
constexpr size_t kLongestFlash = 4;   // pictures
constexpr double kSame = 0.4;         // of the change that a flash leaves behind it

// Correlation of pictures of one scene, in another light or moved.
constexpr double kAlike = 0.6;
constexpr double kPerhapsAlike = 0.45;

// Of a dissolve.
constexpr double kSpans[] = {0.4, 0.8, 1.2, 2.0};  // seconds
constexpr double kLeastDifference = 12;
constexpr double kOffLine = 0.2;  // of the difference that a picture may be off the mean
constexpr double kMoved = 0.6;    // of the difference that no motion explains
constexpr double kUnmoved =
    0.45;  // of the difference that the motion of each step does not explain
constexpr size_t kLeastPictures = 6;

/// The spread of pictures of one colour.
constexpr double kFlat = 8;

constexpr double kSecond = 1e6;

double difference(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other) {
  int sum = 0;
  for (size_t i = 0; i < kPixels; ++i) sum += std::abs(one[i] - other[i]);
  return static_cast<double>(sum) / kPixels;
}

size_t placeOf(int x, int y) { return static_cast<size_t>(y) * kWidth + static_cast<size_t>(x); }

int blockDifference(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other, int left,
                    int top, int dx, int dy) {
  int sum = 0;
  for (int y = top; y < top + kBlockHeight; ++y) {
    const int row = std::clamp(y + dy, 0, kHeight - 1);
    for (int x = left; x < left + kBlockWidth; ++x) {
      const int column = std::clamp(x + dx, 0, kWidth - 1);
      sum += std::abs(one[placeOf(x, y)] - other[placeOf(column, row)]);
    }
  }
  return sum;
}

/// What of the difference between two pictures no motion of their blocks explains.
double change(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other) {
  int sum = 0;
  for (int top = 0; top < kHeight; top += kBlockHeight) {
    for (int left = 0; left < kWidth; left += kBlockWidth) {
      int least = blockDifference(one, other, left, top, 0, 0);
      for (int dy = -kReach; dy <= kReach; ++dy)
        for (int dx = -kReach; dx <= kReach; ++dx)
          least = std::min(least, blockDifference(one, other, left, top, dx, dy));
      sum += least;
    }
  }
  return static_cast<double>(sum) / kPixels;
}

/// How far a picture is from the mean of two others in a share.
double offLine(const std::vector<uint8_t>& picture, const std::vector<uint8_t>& first,
               const std::vector<uint8_t>& last, double share) {
  double sum = 0;
  for (size_t i = 0; i < kPixels; ++i)
    sum += std::abs(picture[i] - (first[i] + share * (last[i] - first[i])));
  return sum / kPixels;
}

}  // namespace

void SceneFinder::add(SmallPicture picture) {
  Looked looked;
  double sum = 0;
  double squares = 0;
  for (const uint8_t value : picture.luma) {
    sum += value;
    squares += value * value;
  }
  looked.mean = sum / kPixels;
  looked.spread = std::sqrt(std::max(squares / kPixels - looked.mean * looked.mean, 0.0));
  if (!pictures_.empty()) looked.change = change(pictures_.back().picture.luma, picture.luma);
  looked.picture = std::move(picture);
  pictures_.push_back(std::move(looked));
}

/// Whether the old scene goes on behind a change, or went on before it.
bool SceneFinder::isFlash(size_t index) const {
  const double limit = kSame * pictures_[index].change;
  for (size_t k = 1; k <= kLongestFlash; ++k) {
    if (index + k < pictures_.size() &&
        change(pictures_[index - 1].picture.luma, pictures_[index + k].picture.luma) < limit)
      return true;
    if (index >= k + 1 &&
        change(pictures_[index - 1 - k].picture.luma, pictures_[index].picture.luma) < limit)
      return true;
  }
  return false;
}

bool SceneFinder::isCutAt(size_t index) const {
  const double own = pictures_[index].change;
  if (own < kLeastChange) return false;
  std::vector<double> around;
  const size_t from = index > kAround ? index - kAround : 1;
  for (size_t i = from; i <= std::min(index + kAround, pictures_.size() - 1); ++i)
    if (i != index) around.push_back(pictures_[i].change);
  std::ranges::sort(around);
  const double usual = around.empty() ? 0 : around[around.size() / 2];
  const double second = around.size() < 2 ? 0 : around[around.size() - 2];
  if (own < kTimesUsual * usual || own < kTimesSecond * second) return false;
  const double alike = correlation(index - 1, index);
  if (alike > kAlike || (alike > kPerhapsAlike && own < kTimesMotion * second)) return false;
  return !isFlash(index);
}

/// Whether a picture is of one colour.
bool SceneFinder::isPlain(size_t index) const { return pictures_[index].spread <= kFlat; }

/// How alike two pictures are in what lighting leaves as it is, 1 at most.
double SceneFinder::correlation(size_t one, size_t other) const {
  const Looked& a = pictures_[one];
  const Looked& b = pictures_[other];
  if (a.spread == 0 || b.spread == 0) return 0;
  double sum = 0;
  for (size_t i = 0; i < kPixels; ++i)
    sum += (a.picture.luma[i] - a.mean) * (b.picture.luma[i] - b.mean);
  return sum / kPixels / (a.spread * b.spread);
}

/// How much two pictures differ between which all others are means of them; 0 where they are not.
double SceneFinder::gradualStrength(size_t from, size_t to) const {
  const auto& first = pictures_[from];
  const auto& last = pictures_[to];
  const double whole = difference(first.picture.luma, last.picture.luma);
  if (whole < kLeastDifference) return 0;
  double worst = 0;
  for (const double share : {0.25, 0.5, 0.75}) {
    const double place = static_cast<double>(from) + share * static_cast<double>(to - from);
    const auto at = static_cast<size_t>(std::lround(place));
    const double real = static_cast<double>(at - from) / static_cast<double>(to - from);
    worst = std::max(
        worst, offLine(pictures_[at].picture.luma, first.picture.luma, last.picture.luma, real));
  }
  if (worst > kOffLine * whole) return 0;
  if (change(first.picture.luma, last.picture.luma) < kMoved * whole) return 0;
  // A camera that turns makes other pictures, too, but each of the one before.
  double steps = 0;
  for (size_t i = from + 1; i <= to; ++i) steps += pictures_[i].change;
  if (steps < kUnmoved * whole) return 0;
  if (!isPlain(from) && !isPlain(to) && correlation(from, to) > kAlike) return 0;
  return whole - worst;
}

void SceneFinder::findGradual(size_t span, std::vector<Boundary>& found) const {
  for (size_t from = 0; from + span < pictures_.size(); ++from) {
    const size_t to = from + span;
    const double strength = gradualStrength(from, to);
    if (strength > 0) found.push_back({(from + to + 1) / 2, from, to, strength});
  }
}

/// Whether a dissolve leads from one scene to another: not from the black that a movie begins with,
/// not to the black that it ends with, and not out of black that another boundary lies before.
bool SceneFinder::joinsScenes(const Boundary& fade, const std::vector<Boundary>& others) const {
  size_t from = fade.from;
  while (from > 0 && isPlain(from)) --from;
  size_t to = fade.to;
  while (to + 1 < pictures_.size() && isPlain(to)) ++to;
  if (isPlain(from) || isPlain(to)) return false;
  return std::ranges::none_of(
      others, [&](const Boundary& each) { return each.from < to && each.to > from; });
}

std::vector<int64_t> SceneFinder::boundaries() const {
  if (pictures_.size() < 2) return {};
  std::vector<Boundary> kept;
  for (size_t i = 1; i < pictures_.size(); ++i)
    if (isCutAt(i)) kept.push_back({i, i - 1, i, pictures_[i].change});
  const double seconds =
      static_cast<double>(pictures_.back().picture.time - pictures_.front().picture.time) / kSecond;
  const double rate = static_cast<double>(pictures_.size() - 1) / std::max(seconds, 0.001);
  std::vector<Boundary> gradual;
  for (const double length : kSpans)
    findGradual(std::max(static_cast<size_t>(std::lround(length * rate)), kLeastPictures), gradual);
  // Of those that overlap the strongest.
  std::ranges::stable_sort(gradual, std::greater(), &Boundary::strength);
  for (const Boundary& each : gradual)
    if (joinsScenes(each, kept)) kept.push_back(each);
  std::ranges::sort(kept, {}, &Boundary::index);
  std::vector<int64_t> times;
  times.reserve(kept.size());
  for (const Boundary& each : kept) times.push_back(pictures_[each.index].picture.time);
  return times;
}

}  // namespace kestrel
