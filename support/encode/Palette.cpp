#include "support/encode/Palette.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

namespace kestrel {

namespace {

constexpr size_t kColors = 255;
constexpr uint8_t kTransparent = 255;  // the place behind them
constexpr uint32_t kOpaque = 0xff000000;

constexpr int kBinBits = 5;  // of a channel
constexpr size_t kKnownColors = 1 << 16;

// A palette is kept while the error of a pixel, squared, is at most this many times what it was,
// and as much more.
constexpr double kWorse = 1.5;
constexpr double kAlwaysFine = 4;

constexpr int kStrongest = 12;  // the pattern, in steps of a channel

/// Bayer's pattern of eight by eight, from -32 to 31.
int patternAt(int x, int y) {
  int value = 0;
  const int crossed = x ^ y;
  for (int bit = 0; bit < 3; ++bit)
    value |= ((crossed >> bit & 1) << (5 - 2 * bit)) | ((y >> bit & 1) << (4 - 2 * bit));
  return value - 32;
}

bool isTransparent(uint32_t color) { return color >> 24 < 128; }

std::array<int, 3> channelsOf(uint32_t color) {
  return {static_cast<int>(color >> 16 & 255), static_cast<int>(color >> 8 & 255),
          static_cast<int>(color & 255)};
}

uint32_t colorOf(const std::array<int, 3>& channels) {
  return kOpaque | static_cast<uint32_t>(channels[0]) << 16 |
         static_cast<uint32_t>(channels[1]) << 8 | static_cast<uint32_t>(channels[2]);
}

size_t binOf(uint32_t color) {
  size_t bin = 0;
  for (const int channel : channelsOf(color))
    bin = bin << kBinBits | static_cast<size_t>(channel) >> (8 - kBinBits);
  return bin;
}

int squaredDistance(const std::array<int, 3>& a, const std::array<int, 3>& b) {
  int sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum;
}

std::span<const uint32_t> rowOf(const AVFrame& picture, int y) {
  const uint8_t* const row = picture.data[0] + ptrdiff_t{y} * picture.linesize[0];
  return {reinterpret_cast<const uint32_t*>(row), static_cast<size_t>(picture.width)};
}

}  // namespace

void PaletteReducer::Bin::add(const Bin& other) {
  count += other.count;
  for (size_t i = 0; i < sums.size(); ++i) {
    sums[i] += other.sums[i];
    squares[i] += other.squares[i];
  }
}

double PaletteReducer::Bin::errorOf(size_t channel) const {
  const auto sum = static_cast<double>(sums[channel]);
  return static_cast<double>(squares[channel]) - sum * sum / static_cast<double>(count);
}

double PaletteReducer::Bin::error() const { return errorOf(0) + errorOf(1) + errorOf(2); }

std::array<int, 3> PaletteReducer::Bin::mean() const {
  std::array<int, 3> mean{};
  for (size_t i = 0; i < mean.size(); ++i)
    mean[i] = static_cast<int>((sums[i] + count / 2) / count);
  return mean;
}

PaletteReducer::PaletteReducer() : bins_(size_t{1} << (3 * kBinBits)), known_(kKnownColors) {}

void PaletteReducer::count(const AVFrame& picture) {
  std::ranges::fill(bins_, Bin{});
  exact_.clear();
  for (int y = 0; y < picture.height; ++y)
    for (const uint32_t color : rowOf(picture, y)) {
      if (isTransparent(color)) continue;
      Bin& bin = bins_[binOf(color)];
      ++bin.count;
      const auto channels = channelsOf(color);
      for (size_t i = 0; i < channels.size(); ++i) {
        bin.sums[i] += channels[i];
        bin.squares[i] += int64_t{channels[i]} * channels[i];
      }
      if (exact_.size() > kColors) continue;
      const auto place = std::ranges::lower_bound(exact_, color | kOpaque);
      if (place == exact_.end() || *place != (color | kOpaque))
        exact_.insert(place, color | kOpaque);
    }
}

/// Cuts the space of colours into boxes, the one of the largest error first, across the channel in
/// which that is, at its mean (Heckbert 1982; by variance, Wan and others 1990).
void PaletteReducer::choosePalette() {
  struct Box {
    std::vector<const Bin*> bins = {};
    Bin whole = {};

    void add(const Bin& bin) {
      bins.push_back(&bin);
      whole.add(bin);
    }
  };
  Box first;
  for (const Bin& bin : bins_)
    if (bin.count > 0) first.add(bin);
  std::vector<Box> boxes{std::move(first)};
  while (boxes.size() < kColors) {
    const auto splittable = [](const Box& box) {
      return box.bins.size() > 1 ? box.whole.error() : 0.0;
    };
    const auto worst = std::ranges::max_element(boxes, {}, splittable);
    if (splittable(*worst) <= 0) break;
    size_t channel = 0;
    for (const size_t other : {1U, 2U})
      if (worst->whole.errorOf(other) > worst->whole.errorOf(channel)) channel = other;
    const auto sumOf = [channel](const Bin& bin) { return bin.sums[channel]; };
    Box lower;
    Box upper;
    for (const Bin* bin : worst->bins) {
      // By their means; products keep them whole.
      const bool isLower = sumOf(*bin) * worst->whole.count < sumOf(worst->whole) * bin->count;
      (isLower ? lower : upper).add(*bin);
    }
    if (lower.bins.empty() || upper.bins.empty()) {
      // All have one mean: any cut will do.
      Box& all = lower.bins.empty() ? upper : lower;
      Box& none = lower.bins.empty() ? lower : upper;
      const Box both = std::move(all);
      all = {};
      for (size_t i = 0; i < both.bins.size(); ++i) (i % 2 == 0 ? all : none).add(*both.bins[i]);
    }
    *worst = std::move(lower);
    boxes.push_back(std::move(upper));
  }
  palette_.clear();
  for (const Box& box : boxes)
    if (box.whole.count > 0) palette_.push_back(box.whole.mean());
}

size_t PaletteReducer::nearestTo(const std::array<int, 3>& color) const {
  return static_cast<size_t>(
      std::ranges::min_element(palette_, {},
                               [&](const auto& other) { return squaredDistance(color, other); }) -
      palette_.begin());
}

/// The squared error of a pixel, but for what the bins hide.
double PaletteReducer::errorOfPalette() const {
  double error = 0;
  int64_t pixels = 0;
  for (const Bin& bin : bins_) {
    if (bin.count == 0) continue;
    const auto mean = bin.mean();
    error += static_cast<double>(bin.count) * squaredDistance(mean, palette_[nearestTo(mean)]);
    pixels += bin.count;
  }
  return pixels > 0 ? error / static_cast<double>(pixels) : 0;
}

uint8_t PaletteReducer::indexOf(uint32_t color) {
  Known& known = known_[(color * 2654435761U) >> 16];
  if (known.index < 0 || known.color != color)
    known = {color, static_cast<int16_t>(nearestTo(channelsOf(color)))};
  return static_cast<uint8_t>(known.index);
}

FramePtr PaletteReducer::reduced(const AVFrame& picture) {
  FramePtr result = makeFrame();
  if (!result) return nullptr;
  result->format = AV_PIX_FMT_PAL8;
  result->width = picture.width;
  result->height = picture.height;
  if (av_frame_get_buffer(result.get(), 0) < 0) return nullptr;

  count(picture);
  const bool isFew = exact_.size() <= kColors;
  const auto isInPalette = [&](uint32_t color) {
    return std::ranges::count(palette_, channelsOf(color)) > 0;
  };
  const bool isKept =
      !palette_.empty() &&
      (isFew ? std::ranges::all_of(exact_, isInPalette)
             : !isExact_ && errorOfPalette() <= kWorse * errorWhenMade_ + kAlwaysFine);
  if (!isKept) {
    std::ranges::fill(known_, Known{});
    palette_.clear();
    if (isFew)
      for (const uint32_t color : exact_) palette_.push_back(channelsOf(color));
    else
      choosePalette();
    errorWhenMade_ = isFew ? 0 : errorOfPalette();
    isExact_ = isFew;
    const double channel = std::sqrt(errorWhenMade_ / 3);
    strength_ = std::min(static_cast<int>(std::lround(channel)), kStrongest);
  }
  const int strength = isFew ? 0 : strength_;
  for (int y = 0; y < picture.height; ++y) {
    uint8_t* target = result->data[0] + ptrdiff_t{y} * result->linesize[0];
    int x = 0;
    for (const uint32_t color : rowOf(picture, y)) {
      const int step = strength * patternAt(x++, y) / 32;
      auto channels = channelsOf(color);
      for (int& channel : channels) channel = std::clamp(channel + step, 0, 255);
      *target++ = isTransparent(color) ? kTransparent : indexOf(colorOf(channels));
    }
  }
  const std::span colors(reinterpret_cast<uint32_t*>(result->data[1]), kColors + 1);
  std::ranges::fill(colors, kOpaque);
  std::ranges::transform(palette_, colors.begin(), colorOf);
  colors[kTransparent] = 0;
  return result;
}

}  // namespace kestrel
