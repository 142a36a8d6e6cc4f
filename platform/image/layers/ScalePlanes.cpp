#include "platform/image/layers/ScalePlanes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/PlaneKernels.h"

namespace kestrel {

namespace {

using kernels::kRowGroup;

/// One plane's way from source to target.
struct PlaneScale {
  YUVPlaneOf<const uint8_t> from;
  YUVPlaneOf<uint8_t> to;
  const AxisTaps* across;
  const AxisTaps* down;
};

/// Every `stride`-th value.
template <typename T>
void pick(const T* from, ptrdiff_t stride, size_t count, T* to) {
  for (size_t i = 0; i < count; ++i) to[i] = from[static_cast<ptrdiff_t>(i) * stride];
}

template <typename T>
void spread(const T* from, size_t count, ptrdiff_t stride, T* to) {
  for (size_t i = 0; i < count; ++i) to[static_cast<ptrdiff_t>(i) * stride] = from[i];
}

/// Samples of one byte, mixed in 16 bits.
struct Narrow {
  using Sample = uint8_t;
  using Mixed = int16_t;
  static Mixed mixedOf(Sample sample) { return static_cast<Mixed>(sample * kernels::kMixedScale); }
  static Sample sampleOf(Mixed mixed, const YUVFormat& /*format*/, int /*sourceShift*/) {
    return static_cast<Sample>((mixed + kernels::kMixedScale / 2) / kernels::kMixedScale);
  }
  static void mix(const Sample* const* rows, const int16_t* weights, int taps, size_t samples,
                  Mixed* out) {
    kernels::mixSamples8(rows, weights, taps, samples, out);
  }
  static void scale(Worker& worker, const Mixed* const* rows, size_t length,
                    const kernels::PlaneTaps& taps, size_t samples, const YUVFormat& /*format*/,
                    int /*sourceShift*/, Sample* const* out) {
    const auto scratch = worker.memory.array<int32_t>(kRowGroup * length / 2);
    kernels::scaleRows8(rows, length, taps, samples, scratch.data(), out);
  }
};

/// Samples of two bytes, mixed as floats.
struct Wide {
  using Sample = uint16_t;
  using Mixed = float;
  static Mixed mixedOf(Sample sample) { return sample; }
  static Sample sampleOf(Mixed mixed, const YUVFormat& format, int sourceShift) {
    return static_cast<Sample>(std::lround(std::ldexp(mixed, -sourceShift)) << format.bitShift);
  }
  static void mix(const Sample* const* rows, const int16_t* weights, int taps, size_t samples,
                  Mixed* out) {
    kernels::mixSamples16(rows, weights, taps, samples, out);
  }
  static void scale(Worker& worker, const Mixed* const* rows, size_t length,
                    const kernels::PlaneTaps& taps, size_t samples, const YUVFormat& format,
                    int sourceShift, Sample* const* out) {
    const auto scratch = worker.memory.array<float>(kRowGroup * length);
    const kernels::WideSamples kind{(1 << format.bitDepth) - 1, sourceShift, format.bitShift};
    kernels::scaleRows16(rows, length, taps, samples, kind, scratch.data(), out);
  }
};

template <typename Kind>
class ScalePass final : public Pass {
 public:
  using Sample = typename Kind::Sample;
  using Mixed = typename Kind::Mixed;

  ScalePass(const std::array<PlaneScale, 3>& planes, const YUVFormat& source,
            const YUVFormat& target)
      : planes_(planes), sourceShift_(source.bitShift), format_(target) {
    for (size_t p = 0; p < planes.size(); ++p) strips_[p + 1] = strips_[p] + stripsOf(planes[p]);
  }

  int tasks() const override { return strips_.back(); }

  void run(Worker& worker, int task) const override {
    size_t p = 0;
    while (task >= strips_[p + 1]) ++p;
    const PlaneScale& plane = planes_[p];
    const int begin = plane.down->begin + (task - strips_[p]) * kStripRows;
    const int end = std::min(begin + kStripRows, endOf(*plane.down));
    const bool isCopy = plane.across->isCopy && plane.down->isCopy &&
                        plane.from.sampleStride == 1 && plane.to.sampleStride == 1 &&
                        sourceShift_ == format_.bitShift;
    if (isCopy) return copyRows(plane, begin, end);
    for (int row = begin; row < end; row += static_cast<int>(kRowGroup))
      scaleGroup(worker, plane, row, std::min(end, row + static_cast<int>(kRowGroup)));
  }

 private:
  /// Many enough that rows of the source that a strip shares with the next count little.
  static constexpr int kStripRows = 32;

  static int endOf(const AxisTaps& taps) {
    return taps.begin + static_cast<int>(taps.first.size());
  }
  static int stripsOf(const PlaneScale& plane) {
    return (static_cast<int>(plane.down->first.size()) + kStripRows - 1) / kStripRows;
  }
  static const Sample* sampleAt(const PlaneScale& plane, int x, int row) {
    return reinterpret_cast<const Sample*>(plane.from.data + row * plane.from.bytesPerRow) +
           ptrdiff_t{x} * plane.from.sampleStride;
  }
  static Sample* targetAt(const PlaneScale& plane, int row) {
    return reinterpret_cast<Sample*>(plane.to.data + row * plane.to.bytesPerRow) +
           ptrdiff_t{plane.across->begin} * plane.to.sampleStride;
  }

  void copyRows(const PlaneScale& plane, int begin, int end) const {
    for (int row = begin; row < end; ++row)
      std::memcpy(targetAt(plane, row),
                  sampleAt(plane, plane.across->low, plane.down->first[plane.down->indexOf(row)]),
                  plane.across->first.size() * sizeof(Sample));
  }

  void scaleGroup(Worker& worker, const PlaneScale& plane, int begin, int end) const {
    const ArenaScope scope(worker.memory);
    const AxisTaps& across = *plane.across;
    const auto samples = across.first.size();
    const auto length = static_cast<size_t>(across.length);
    const Mixed* mixed[kRowGroup];
    Sample* out[kRowGroup];
    for (size_t r = 0; r < kRowGroup; ++r) {
      const int row = begin + static_cast<int>(r);
      if (row >= end) {
        // The group is full, whoever sees it.
        mixed[r] = mixed[0];
        out[r] = worker.memory.array<Sample>(samples).data();
        continue;
      }
      const auto line = worker.memory.array<Mixed>(length);
      mixRow(worker, plane, row, line);
      mixed[r] = line.data();
      out[r] = plane.to.sampleStride == 1 ? targetAt(plane, row)
                                          : worker.memory.array<Sample>(samples).data();
    }
    const kernels::PlaneTaps taps{across.begins.data(), across.paired.data(), across.pairs};
    Kind::scale(worker, mixed, length, taps, samples, format_, sourceShift_, out);
    if (!across.coreBegin.empty()) {
      for (int row = begin; row < end; ++row)
        limitSamples(across, mixed[row - begin], out[row - begin]);
    }
    if (plane.to.sampleStride == 1) return;
    for (int row = begin; row < end; ++row)
      spread(out[row - begin], samples, plane.to.sampleStride, targetAt(plane, row));
  }

  /// The samples from the first that is used on, as row `row` of the result mixes them; zeros
  /// behind the last.
  void mixRow(Worker& worker, const PlaneScale& plane, int row, std::span<Mixed> line) const {
    const AxisTaps& across = *plane.across;
    const AxisTaps& down = *plane.down;
    const size_t i = down.indexOf(row);
    const auto used = static_cast<size_t>(across.high - across.low);
    std::fill(line.begin() + static_cast<ptrdiff_t>(std::min(used, line.size())), line.end(),
              Mixed{0});
    const ArenaScope scope(worker.memory);
    const auto stride = static_cast<size_t>(plane.from.sampleStride);
    const size_t values = (used - 1) * stride + 1;
    const int count = down.count[i];
    const auto rows = worker.memory.array<const Sample*>(static_cast<size_t>(count));
    for (int t = 0; t < count; ++t)
      rows[static_cast<size_t>(t)] = sampleAt(plane, across.low, down.first[i] + t);
    const auto all = stride == 1 ? line : worker.memory.array<Mixed>(values);
    Kind::mix(rows.data(), down.weightsOf(row), count, values, all.data());
    if (!down.coreBegin.empty()) {
      limitRow(rows.subspan(static_cast<size_t>(down.coreBegin[i]),
                            static_cast<size_t>(down.coreEnd[i] - down.coreBegin[i])),
               values, all.data());
    }
    if (stride > 1) pick(all.data(), plane.from.sampleStride, used, line.data());
  }

  /// Limits mixed samples to the range of the rows nearest to them.
  static void limitRow(std::span<const Sample* const> rows, size_t values, Mixed* mixed) {
    for (size_t i = 0; i < values; ++i) {
      Sample least = rows[0][i];
      Sample most = least;
      for (const Sample* row : rows) {
        least = std::min(least, row[i]);
        most = std::max(most, row[i]);
      }
      mixed[i] = std::clamp(mixed[i], Kind::mixedOf(least), Kind::mixedOf(most));
    }
  }

  /// Limits the samples of a row to the range of the mixed ones nearest to them.
  void limitSamples(const AxisTaps& across, const Mixed* mixed, Sample* out) const {
    for (size_t i = 0; i < across.first.size(); ++i) {
      const Mixed* const nearest = mixed + (across.first[i] - across.low);
      const auto [least, most] =
          std::minmax_element(nearest + across.coreBegin[i], nearest + across.coreEnd[i]);
      out[i] = std::clamp(out[i], Kind::sampleOf(*least, format_, sourceShift_),
                          Kind::sampleOf(*most, format_, sourceShift_));
    }
  }

  std::array<PlaneScale, 3> planes_;
  std::array<int, 4> strips_{};  ///< how many come before those of a plane
  int sourceShift_;
  YUVFormat format_;
};

/// Which samples of luma share one of another plane, and where in between that one lies.
struct Siting {
  int shift;
  double place;  ///< of the first sample, counted from the outer edge of the first of luma
};

/// From pixels of the target to those of the source, along one axis.
struct Map {
  double scale;
  double offset;
};

/// The axis of a plane: its samples from `begin` to `end` of the target's pixels, made of those of
/// the source's pixels from `low` to `high`.
Axis axisOf(const Scaler& scaler, const Map& map, const Siting& from, const Siting& to,
            const std::array<int, 2>& source, const std::array<int, 2>& target) {
  const double step = std::ldexp(1.0, to.shift);
  const double share = std::ldexp(1.0, -from.shift);
  const auto upTo = [](int pixels, int shift) { return (pixels + (1 << shift) - 1) >> shift; };
  return {.scaler = scaler,
          .scale = map.scale * step * share,
          .offset = (map.scale * (to.place - step / 2) + map.offset - from.place) * share + 0.5,
          .low = source[0] >> from.shift,
          .high = upTo(source[1], from.shift),
          .begin = target[0] >> to.shift,
          .end = upTo(target[1], to.shift)};
}

Siting sitingOf(int shift, double place) { return {shift, 0.5 + place * ((1 << shift) - 1)}; }

Siting sitingAcross(const YUVFormat& format, bool isChroma) {
  return sitingOf(isChroma ? format.chromaShiftX : 0, format.chromaX);
}

Siting sitingDown(const YUVFormat& format, bool isChroma) {
  return sitingOf(isChroma ? format.chromaShiftY : 0, format.chromaY);
}

}  // namespace

bool meansTheSame(const YUVFormat& source, const YUVFormat& target) {
  return source.matrix == target.matrix && source.bitDepth == target.bitDepth &&
         source.kr == target.kr && source.kb == target.kb && source.fullRange == target.fullRange;
}

void addScalePass(const PassMaker& maker, const PlainPlanes& planes, const IntRect& picture,
                  const IntRect& part, const YUVTarget& target) {
  const YUVFormat& source = planes.source->format;
  const IntRect& clip = planes.clip;
  const AffineTransform& map = planes.toSource;
  // Rows count from the top here.
  const Map across{map.a, map.a * picture.x0 + map.tx};
  const Map down{map.d, source.height - map.d * picture.y1 - map.ty};
  std::array<PlaneScale, 3> scales{};
  for (size_t p = 0; p < scales.size(); ++p) {
    const bool isChroma = p > 0;
    scales[p] = {
        planes.source->planes[p], target.planes[p],
        &maker.taps.tapsOf(axisOf(planes.scaler, across, sitingAcross(source, isChroma),
                                  sitingAcross(target.format, isChroma), {clip.x0, clip.x1},
                                  {part.x0, part.x1})),
        &maker.taps.tapsOf(axisOf(
            planes.scaler, down, sitingDown(source, isChroma), sitingDown(target.format, isChroma),
            {source.height - clip.y1, source.height - clip.y0}, {part.y0, part.y1}))};
  }
  if (source.bitDepth == 8)
    maker.passes.push_back(maker.arena.make<ScalePass<Narrow>>(scales, source, target.format));
  else
    maker.passes.push_back(maker.arena.make<ScalePass<Wide>>(scales, source, target.format));
}

}  // namespace kestrel
