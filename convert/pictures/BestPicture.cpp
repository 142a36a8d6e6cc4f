#include <kestrel/convert/BestPicture.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int64_t kNeighbour = 125'000;  // microseconds
constexpr double kWidest = 480;          // pixels, in which pictures are looked at
constexpr int kMostCandidates = 1000;
constexpr double kLit = 32;      // a mean luma that is no darkness any more
constexpr double kChanged = 16;  // a mean difference of luma that halves the worth
constexpr int kBlurLength = 9;   // pixels that the blur metric averages
constexpr double kFurthestLoss = 0.2;

/// A picture's luma, 0 to 255, row by row.
struct Luma {
  int width = 0;
  int height = 0;
  std::vector<double> values;

  double at(int x, int y) const {
    return values[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
  }
};

Luma lumaOf(const BitmapImage& picture) {
  Luma luma{picture.width(), picture.height(), {}};
  luma.values.reserve(static_cast<size_t>(luma.width) * static_cast<size_t>(luma.height));
  for (int y = 0; y < luma.height; ++y) {
    const uint8_t* pixel = picture.row(y);
    for (int x = 0; x < luma.width; ++x, pixel += 4)
      luma.values.push_back((299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2]) / 1000.0);
  }
  return luma;
}

double meanOf(const Luma& luma) {
  double sum = 0;
  for (const double value : luma.values) sum += value;
  return luma.values.empty() ? 0 : sum / static_cast<double>(luma.values.size());
}

double entropyOf(const Luma& luma) {
  std::array<size_t, 64> histogram{};
  for (const double value : luma.values) ++histogram[static_cast<size_t>(value / 4)];
  double bits = 0;
  for (const size_t count : histogram) {
    if (count == 0) continue;
    const double share = static_cast<double>(count) / static_cast<double>(luma.values.size());
    bits -= share * std::log2(share);
  }
  return bits;
}

/// How blurred lines of pixels are, 0 to 1, where `at` answers the pixel `i` of `line`; 1 where
/// nothing changes along them.
template <typename At>
double blurAlong(int lines, int length, const At& at) {
  constexpr int kReach = kBlurLength / 2;
  double all = 0;
  double lost = 0;
  for (int line = 0; line < lines; ++line) {
    // At the ends the outermost pixel stands for those beyond.
    const auto pixel = [&](int i) { return at(line, std::clamp(i, 0, length - 1)); };
    double sum = 0;
    for (int i = -kReach; i <= kReach; ++i) sum += pixel(i);
    for (int i = 1; i < length; ++i) {
      const double before = sum;
      sum += pixel(i + kReach) - pixel(i - 1 - kReach);
      const double change = std::abs(pixel(i) - pixel(i - 1));
      all += change;
      lost += std::max(change - std::abs(sum - before) / kBlurLength, 0.0);
    }
  }
  return all > 0 ? (all - lost) / all : 1;
}

double blurOf(const Luma& luma) {
  const double across =
      blurAlong(luma.height, luma.width, [&](int line, int i) { return luma.at(i, line); });
  const double down =
      blurAlong(luma.width, luma.height, [&](int line, int i) { return luma.at(line, i); });
  return std::max(across, down);
}

void require(const PictureSearch& search) {
  requireNumber("candidates", search.candidates, 1, kMostCandidates);
  if (search.from < 0 || search.to < search.from) refuse("from", "the span has no length");
}

/// The times that are looked at, the one that is wanted first.
std::vector<int64_t> candidatesOf(const PictureSearch& search) {
  std::vector<int64_t> times;
  const int64_t span = search.to - search.from;
  if (!search.wanted) {
    for (int64_t i = 0; i < search.candidates; ++i)
      times.push_back(search.from + span * (2 * i + 1) / (2 * search.candidates));
    return times;
  }
  times.push_back(*search.wanted);
  const int64_t step = std::max<int64_t>(span / search.candidates, 1);
  for (int64_t time = *search.wanted % step; time <= search.to; time += step)
    if (time >= search.from && time != *search.wanted) times.push_back(time);
  return times;
}

double nearness(const PictureSearch& search, int64_t time) {
  const int64_t span = search.to - search.from;
  if (!search.wanted || span == 0) return 1;
  const double away = static_cast<double>(std::llabs(time - *search.wanted));
  return 1 - std::min(2 * away / static_cast<double>(span), 1.0) * kFurthestLoss;
}

/// The pictures' size while they are looked at: small, in the shape that they come out in.
class SmallPictures {
 public:
  explicit SmallPictures(Pictures& pictures) : pictures_(pictures), size_(pictures.outputSize()) {
    const double scale = std::min(kWidest / size_.width, 1.0);
    pictures.setOutputSize({std::max(std::round(size_.width * scale), 1.0),
                            std::max(std::round(size_.height * scale), 1.0)});
  }
  ~SmallPictures() { pictures_.setOutputSize(size_); }
  SmallPictures(const SmallPictures&) = delete;
  SmallPictures& operator=(const SmallPictures&) = delete;

  double worthAt(int64_t time) const {
    const auto before = pictures_.pictureAt(time - kNeighbour);
    PictureWorth worth = worthOf(*pictures_.pictureAt(time));
    const auto after = pictures_.pictureAt(time + kNeighbour);
    worth.stillness = stillnessBetween(*before, *after);
    return worth.total();
  }

 private:
  Pictures& pictures_;
  const Size size_;
};

}  // namespace

PictureWorth worthOf(const BitmapImage& picture) {
  const Luma luma = lumaOf(picture);
  if (luma.values.empty()) return {};
  const double light = std::min(meanOf(luma) / kLit, 1.0);
  return {.light = light * light, .detail = entropyOf(luma) / 6, .sharpness = 1 - blurOf(luma)};
}

double stillnessBetween(const BitmapImage& before, const BitmapImage& after) {
  const Luma first = lumaOf(before);
  const Luma second = lumaOf(after);
  const size_t count = std::min(first.values.size(), second.values.size());
  if (count == 0) return 1;
  double sum = 0;
  for (size_t i = 0; i < count; ++i) sum += std::abs(first.values[i] - second.values[i]);
  return 1 / (1 + sum / static_cast<double>(count) / kChanged);
}

int64_t bestPictureTime(Pictures& pictures, const PictureSearch& search) {
  require(search);
  std::vector<int64_t> times = candidatesOf(search);
  const int64_t first = times.front();
  // Rising times cost least.
  std::ranges::sort(times);
  const SmallPictures small(pictures);
  int64_t best = first;
  double most = 0;
  for (const int64_t time : times) {
    const double worth = small.worthAt(time) * nearness(search, time);
    const bool isWanted = time == search.wanted;
    if (worth > most || (isWanted && worth == most)) {
      most = worth;
      best = time;
    }
  }
  return best;
}

}  // namespace kestrel
