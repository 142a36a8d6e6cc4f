#include "support/Combs.h"

#include <algorithm>
#include <cstddef>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

// Tried out on progressive and interlaced clips, compressed well and badly. Of moving pixels, below
// 0.1 % are combed in what cameras saw in one moment, 0.25 % in noise, and far more where two
// moments are woven.
constexpr int16_t kStep = 10;           // of 255: so much a line differs from its neighbours
constexpr int16_t kLeastRun = 6;        // lines one below the other, for noise has shorter combs
constexpr double kLeastOverNoise = 2;   // times as many as across
constexpr double kLeastMotion = 0.002;  // of the pixels
constexpr double kLeastCombed = 0.003;  // of those that move

/// More columns tell no more. So few pixels of a line can be counted in 16 bits.
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
    pixels_.resize(static_cast<size_t>(width_) * static_cast<size_t>(height_));
    const int first = (picture.width - width_) / 2;
    int16_t* to = pixels_.data();
    for (int y = 0; y < height_; ++y, to += width_) {
      const uint8_t* from = picture.data[part.plane] + ptrdiff_t{picture.linesize[part.plane]} * y +
                            part.offset + ptrdiff_t{first} * part.step;
      read(from, part, to);
    }
  }

  /// Of two pictures: the upper field of the one, the lower field of the other.
  Luma(const Luma& top, const Luma& bottom) : Luma(top) {
    for (int y = 1; y < height_; y += 2)
      std::copy_n(bottom.row(y), width_, pixels_.data() + ptrdiff_t{y} * width_);
  }

  int width() const { return width_; }
  int height() const { return height_; }
  const int16_t* row(int y) const { return pixels_.data() + ptrdiff_t{y} * width_; }
  bool fits(const Luma& other) const { return width_ == other.width_ && height_ == other.height_; }

 private:
  void read(const uint8_t* from, const AVComponentDescriptor& part, int16_t* to) const {
    if (part.depth <= 8) {
      const int shift = part.shift;
      const int scale = 8 - part.depth;
      for (int x = 0; x < width_; ++x, from += part.step)
        to[x] = static_cast<int16_t>(((*from >> shift) << scale) & 255);
      return;
    }
    const int shift = part.shift + part.depth - 8;
    for (int x = 0; x < width_; ++x, from += part.step)
      to[x] = static_cast<int16_t>(((from[0] | from[1] << 8) >> shift) & 255);
  }

  int width_ = 0;
  int height_ = 0;
  std::vector<int16_t> pixels_;
};

/// Whether the middle one of five values in a row differs from those beside it, as they do from the
/// outer ones.
bool isTooth(int16_t outer, int16_t beside, int16_t here, int16_t beyond, int16_t outermost) {
  const auto step = [](int16_t from, int16_t to) { return static_cast<int16_t>(to - from); };
  const int16_t over = step(beside, here);
  const int16_t under = step(beyond, here);
  const int16_t upper = step(beside, outer);
  const int16_t lower = step(beyond, outermost);
  const bool isBrighter =
      (over > kStep) & (under > kStep) & (upper > kStep / 2) & (lower > kStep / 2);
  const bool isDarker =
      (over < -kStep) & (under < -kStep) & (upper < -kStep / 2) & (lower < -kStep / 2);
  return isBrighter | isDarker;
}

/// What is kept from line to line: for each column how many combed pixels end one below the other;
/// and room for a line of what is combed across.
struct Runs {
  explicit Runs(int width) : down(static_cast<size_t>(width)), across(down.size()) {}

  std::vector<int16_t> down;
  std::vector<uint8_t> across;
};

/// One line: `rows` are those from two above it to two below, `before` the three around it in the
/// other picture. All in 16 bits and without branches, so that eight or more pixels are looked at
/// in one step.
void countLine(const int16_t* const* rows, const int16_t* const* before, Runs& runs, Combs& combs) {
  const int16_t* const above = rows[1];
  const int16_t* const here = rows[2];
  const int16_t* const below = rows[3];
  int16_t* const run = runs.down.data();
  uint8_t* const across = runs.across.data();
  const auto width = static_cast<int>(runs.down.size());
  int16_t combed = 0;
  int16_t moving = 0;
  const auto isFar = [&](int16_t a, int16_t b) {
    const auto way = static_cast<int16_t>(a - b);
    return (way > kStep) | (way < -kStep);
  };
  for (int x = 0; x < width; ++x) {
    const bool moves = isFar(here[x], before[1][x]) | isFar(above[x], before[0][x]) |
                       isFar(below[x], before[2][x]);
    const bool isCombed = moves & isTooth(rows[0][x], above[x], here[x], below[x], rows[4][x]);
    run[x] = isCombed ? static_cast<int16_t>(run[x] + 1) : int16_t{0};
    across[x] = moves;
    moving = static_cast<int16_t>(moving + moves);
    combed = static_cast<int16_t>(combed + (run[x] >= kLeastRun));
  }
  int16_t noise = 0;
  for (int x = 2; x < width - 2; ++x)
    across[x] &= isTooth(here[x - 2], here[x - 1], here[x], here[x + 1], here[x + 2]);
  for (int x = 2; x < width - 2 - kLeastRun; ++x) {
    uint8_t isRun = across[x];
    for (int i = 1; i < kLeastRun; ++i) isRun &= across[x + i];
    noise = static_cast<int16_t>(noise + isRun);
  }
  combs.combed += combed;
  combs.noise += noise;
  combs.moving += moving;
}

Combs count(const Luma& picture, const Luma& neighbor) {
  Combs combs;
  if (!picture.fits(neighbor)) return combs;
  Runs runs(picture.width());
  for (int y = 2; y < picture.height() - 2; ++y) {
    const int16_t* rows[5];
    const int16_t* before[3];
    for (int i = 0; i < 5; ++i) rows[i] = picture.row(y + i - 2);
    for (int i = 0; i < 3; ++i) before[i] = neighbor.row(y + i - 1);
    countLine(rows, before, runs, combs);
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
