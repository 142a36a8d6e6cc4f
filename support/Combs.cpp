#include "support/Combs.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/image/kernels/CombKernels.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

// Tried out on progressive and interlaced clips, compressed well and badly. Of moving pixels, below
// 0.1 % are combed in what cameras saw in one moment, 0.25 % in noise, and far more where two
// moments are woven.
constexpr kernels::CombLimits kLimits = {
    .step = 10,     // of 255
    .leastRun = 6,  // noise has shorter combs
};
constexpr double kLeastOverNoise = 2;   // times as many as across
constexpr double kLeastMotion = 0.002;  // of the pixels
constexpr double kLeastCombed = 0.003;  // of those that move

/// More columns tell no more.
constexpr int kMostColumns = 720;

/// The brightness of a picture's middle columns, 0 to 255.
class Luma {
 public:
  explicit Luma(const AVFrame& picture) {
    const AVPixFmtDescriptor* format =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
    constexpr uint64_t kUnreadable = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL |
                                     AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_BE |
                                     AV_PIX_FMT_FLAG_BAYER | AV_PIX_FMT_FLAG_FLOAT;
    if (!format || !picture.data[0] || (format->flags & kUnreadable)) return;
    // Green stands for the brightness.
    const AVComponentDescriptor& part = format->comp[format->flags & AV_PIX_FMT_FLAG_RGB ? 1 : 0];
    width_ = std::min(picture.width, kMostColumns);
    height_ = picture.height;
    pixels_ = std::make_unique_for_overwrite<uint8_t[]>(bytes());
    const int first = (picture.width - width_) / 2;
    for (int y = 0; y < height_; ++y) {
      const uint8_t* from = picture.data[part.plane] + ptrdiff_t{picture.linesize[part.plane]} * y +
                            part.offset + ptrdiff_t{first} * part.step;
      uint8_t* to = pixels_.get() + stride() * y;
      read(from, part, to);
      std::fill_n(to + width_, kernels::kCombPadding, uint8_t{0});
    }
  }

  /// Of two pictures: the upper field of the one, the lower field of the other.
  Luma(const Luma& top, const Luma& bottom)
      : width_(top.width_),
        height_(top.height_),
        pixels_(std::make_unique_for_overwrite<uint8_t[]>(bytes())) {
    for (int y = 0; y < height_; ++y)
      std::copy_n((y % 2 == 0 ? top : bottom).row(y), stride(), pixels_.get() + stride() * y);
  }

  int width() const { return width_; }
  int height() const { return height_; }
  const uint8_t* row(int y) const { return pixels_.get() + stride() * y; }
  bool fits(const Luma& other) const { return width_ == other.width_ && height_ == other.height_; }

 private:
  ptrdiff_t stride() const { return ptrdiff_t{width_} + ptrdiff_t{kernels::kCombPadding}; }
  size_t bytes() const { return static_cast<size_t>(stride()) * static_cast<size_t>(height_); }

  void read(const uint8_t* from, const AVComponentDescriptor& part, uint8_t* to) const {
    if (part.depth == 8 && part.step == 1) {
      std::copy_n(from, width_, to);
      return;
    }
    if (part.depth <= 8) {
      const int shift = part.shift;
      const int scale = 8 - part.depth;
      for (int x = 0; x < width_; ++x, from += part.step)
        to[x] = static_cast<uint8_t>((*from >> shift) << scale);
      return;
    }
    const int shift = part.shift + part.depth - 8;
    for (int x = 0; x < width_; ++x, from += part.step)
      to[x] = static_cast<uint8_t>((from[0] | from[1] << 8) >> shift);
  }

  int width_ = 0;
  int height_ = 0;
  std::unique_ptr<uint8_t[]> pixels_;
};

Combs count(const Luma& picture, const Luma& neighbor) {
  Combs combs;
  if (!picture.fits(neighbor)) return combs;
  const auto width = static_cast<size_t>(picture.width());
  std::vector<uint8_t> runs(width + kernels::kCombPadding);
  std::vector<uint8_t> across(runs.size());
  for (int y = 2; y < picture.height() - 2; ++y) {
    const uint8_t* rows[5];
    const uint8_t* before[3];
    for (int i = 0; i < 5; ++i) rows[i] = picture.row(y + i - 2);
    for (int i = 0; i < 3; ++i) before[i] = neighbor.row(y + i - 1);
    const kernels::CombCounts line =
        kernels::countCombs(rows, before, width, kLimits, runs.data(), across.data());
    combs.combed += static_cast<int64_t>(line.combed);
    combs.noise += static_cast<int64_t>(line.noise);
    combs.moving += static_cast<int64_t>(line.moving);
    combs.pixels += picture.width();
  }
  return combs;
}

}  // namespace

bool Combs::canTell() const {
  return moving > 0 && static_cast<double>(moving) > kLeastMotion * static_cast<double>(pixels);
}

bool Combs::areSeen() const {
  const auto count = static_cast<double>(combed);
  return canTell() && count > kLeastCombed * static_cast<double>(moving) &&
         count > kLeastOverNoise * static_cast<double>(noise);
}

Combs countCombs(const AVFrame& picture, const AVFrame& neighbor) {
  return count(Luma(picture), Luma(neighbor));
}

/// Woven of the wrong fields, more time lies between the lines and the combs are deeper.
int64_t topFieldFirst(const AVFrame& picture, const AVFrame& next) {
  const Luma here(picture);
  const Luma there(next);
  if (!here.fits(there)) return 0;
  return count(Luma(here, there), here).combed - count(Luma(there, here), here).combed;
}

}  // namespace kestrel
