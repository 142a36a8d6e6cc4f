#include <kestrel/BitmapContext.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

namespace kestrel {

namespace {

constexpr int kBytesPerPixel = 4;

/// The stretch of one direction that a drawing covers, cut to the surface: pixels `begin` to `end`.
struct Extent {
  Extent(double from, double to, int limit)
      : low(from),
        high(to),
        begin(static_cast<int>(std::clamp<double>(std::floor(from), 0, limit))),
        end(static_cast<int>(std::clamp<double>(std::ceil(to), 0, limit))) {}

  /// How much of the pixel is covered, 0 to 1.
  double coverage(int pixel) const {
    return std::clamp(std::min<double>(pixel + 1, high) - std::max<double>(pixel, low), 0.0, 1.0);
  }

  double low;
  double high;
  int begin;
  int end;
};

/// A colour times its alpha: the components run to 255 × `a`, `a` to 1.
struct Premultiplied {
  double r = 0;
  double g = 0;
  double b = 0;
  double a = 0;

  void add(const uint8_t* pixel, double weight) {
    const double alpha = weight * pixel[3] / 255;
    r += alpha * pixel[0];
    g += alpha * pixel[1];
    b += alpha * pixel[2];
    a += alpha;
  }

  Premultiplied operator*(double factor) const {
    return {r * factor, g * factor, b * factor, a * factor};
  }
};

/// The source samples that make one destination pixel in one direction: `weights[i]` belongs to the
/// sample `first + i`, and all of them add up to 1.
struct Taps {
  int first = 0;
  std::vector<double> weights;
  double coverage = 0;
};

/// Two neighbours of the pixel's centre; beyond the outermost centres, the outermost sample.
Taps bilinearTaps(double center, int samples) {
  const double position = std::clamp<double>(center - 0.5, 0, samples - 1);
  const int first = static_cast<int>(position);
  const double fraction = position - first;
  if (fraction == 0) return {first, {1.0}};
  return {first, {1 - fraction, fraction}};
}

/// All samples from `low` to `high`, each by the share that lies inside.
Taps averagingTaps(double low, double high, int samples) {
  low = std::clamp<double>(low, 0, samples);
  high = std::clamp<double>(high, 0, samples);
  const int first = std::min(static_cast<int>(low), samples - 1);
  if (high <= low) return {first, {1.0}};
  Taps taps{first, {}};
  for (int i = first; i < high; ++i) {
    const double share = std::min<double>(i + 1, high) - std::max<double>(i, low);
    taps.weights.push_back(share / (high - low));
  }
  return taps;
}

std::vector<Taps> makeTaps(const Extent& extent, int samples) {
  const double step = samples / (extent.high - extent.low);
  std::vector<Taps> result;
  for (int pixel = extent.begin; pixel < extent.end; ++pixel) {
    const double low = (pixel - extent.low) * step;
    result.push_back(step > 1 ? averagingTaps(low, low + step, samples)
                              : bilinearTaps(low + step / 2, samples));
    result.back().coverage = extent.coverage(pixel);
  }
  return result;
}

Premultiplied sample(const BitmapImage& image, const Taps& across, const Taps& down) {
  Premultiplied sum;
  for (size_t j = 0; j < down.weights.size(); ++j) {
    const uint8_t* pixel = image.row(down.first + static_cast<int>(j)) +
                           static_cast<size_t>(across.first) * kBytesPerPixel;
    for (const double weight : across.weights) {
      sum.add(pixel, weight * down.weights[j]);
      pixel += kBytesPerPixel;
    }
  }
  return sum;
}

uint8_t toByte(double value) {
  return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

/// Adds `source` to what `keep`, 0 to 1, leaves of the pixel.
void blendPixel(uint8_t* pixel, BitmapContext::Format format, Premultiplied source, double keep) {
  const bool hasAlpha = format == BitmapContext::Format::kRGBA;
  Premultiplied below;
  below.add(pixel, keep);
  if (!hasAlpha) below = {keep * pixel[0], keep * pixel[1], keep * pixel[2], keep};
  const double alpha = source.a + below.a;
  const double scale = !hasAlpha ? 1 : alpha > 0 ? 1 / alpha : 0;
  pixel[0] = toByte((source.r + below.r) * scale);
  pixel[1] = toByte((source.g + below.g) * scale);
  pixel[2] = toByte((source.b + below.b) * scale);
  pixel[3] = hasAlpha ? toByte(alpha * 255) : 255;
}

/// A rectangle thinner than this, in pixels, covers too little of a pixel to show.
constexpr double kThinnest = 1e-6;

bool isDrawable(const Rect& rect) {
  return std::isfinite(rect.minX()) && std::isfinite(rect.minY()) && std::isfinite(rect.maxX()) &&
         std::isfinite(rect.maxY()) && rect.maxX() - rect.minX() >= kThinnest &&
         rect.maxY() - rect.minY() >= kThinnest;
}

/// True when a picture drawn there meets the pixels of the surface one to one.
bool isAligned(const BitmapImage& image, const Rect& target) {
  return target.size ==
             Size{static_cast<double>(image.width()), static_cast<double>(image.height())} &&
         target.origin.x == std::floor(target.origin.x) &&
         target.origin.y == std::floor(target.origin.y);
}

}  // namespace

BitmapContext::BitmapContext(int width, int height, Format format, int bitsPerPixel)
    : bitsPerPixel_(bitsPerPixel), format_(format) {
  if (width <= 0 || height <= 0 || bitsPerPixel <= 0) return;
  const int64_t bytesPerPixel = std::max<int64_t>(kBytesPerPixel, (int64_t{bitsPerPixel} + 7) / 8);
  if (width > std::numeric_limits<int>::max() / bytesPerPixel) return;
  const int64_t bytesPerRow = width * bytesPerPixel;
  memory_.reset(new (std::nothrow) uint8_t[static_cast<size_t>(bytesPerRow * height)]);
  if (!memory_) return;
  width_ = width;
  height_ = height;
  bytesPerRow_ = static_cast<int>(bytesPerRow);
  clear();
}

/// The pixel `x` to the right of the left edge and `y` below the top one.
uint8_t* BitmapContext::pixelAt(int x, int y) {
  return memory_.get() + static_cast<size_t>(y) * static_cast<size_t>(bytesPerRow_) +
         static_cast<size_t>(x) * kBytesPerPixel;
}

void BitmapContext::clear() {
  if (!memory_) return;
  const size_t length = static_cast<size_t>(bytesPerRow_) * static_cast<size_t>(height_);
  std::memset(memory_.get(), 0, length);
  if (!canDraw() || format_ == Format::kRGBA) return;
  for (size_t i = 3; i < length; i += kBytesPerPixel) memory_[i] = 255;
}

void BitmapContext::fillRect(const Rect& rect, double r, double g, double b, double a) {
  if (!canDraw() || !isDrawable(rect)) return;
  const auto component = [](double value) { return value > 0 ? std::min(value, 1.0) : 0.0; };
  const Premultiplied color =
      Premultiplied{255 * component(r), 255 * component(g), 255 * component(b), 1} * component(a);
  const Extent across(rect.minX(), rect.maxX(), width_);
  const Extent down(height_ - rect.maxY(), height_ - rect.minY(), height_);
  for (int y = down.begin; y < down.end; ++y) {
    for (int x = across.begin; x < across.end; ++x) {
      const Premultiplied source = color * (across.coverage(x) * down.coverage(y));
      blendPixel(pixelAt(x, y), format_, source, 1 - source.a);
    }
  }
}

void BitmapContext::drawImage(const BitmapImage& image, const Rect& target, Blend blend) {
  if (!canDraw() || !isDrawable(target)) return;
  const Extent across(target.minX(), target.maxX(), width_);
  const Extent down(height_ - target.maxY(), height_ - target.minY(), height_);
  if (across.begin >= across.end || down.begin >= down.end) return;
  if (blend == Blend::kCopy && format_ == Format::kRGBA && isAligned(image, target)) {
    const size_t offset = static_cast<size_t>(across.begin - across.low) * kBytesPerPixel;
    const size_t length = static_cast<size_t>(across.end - across.begin) * kBytesPerPixel;
    for (int y = down.begin; y < down.end; ++y) {
      std::memcpy(pixelAt(across.begin, y), image.row(static_cast<int>(y - down.low)) + offset,
                  length);
    }
    return;
  }
  const std::vector<Taps> columns = makeTaps(across, image.width());
  const std::vector<Taps> rows = makeTaps(down, image.height());
  for (size_t j = 0; j < rows.size(); ++j) {
    uint8_t* pixel = pixelAt(across.begin, down.begin + static_cast<int>(j));
    for (const Taps& column : columns) {
      const double coverage = column.coverage * rows[j].coverage;
      const Premultiplied source = sample(image, column, rows[j]) * coverage;
      blendPixel(pixel, format_, source, 1 - (blend == Blend::kCopy ? coverage : source.a));
      pixel += kBytesPerPixel;
    }
  }
}

}  // namespace kestrel
