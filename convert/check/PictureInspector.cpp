#include "convert/check/PictureInspector.h"

#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>

#include "convert/probe/Light.h"
#include "support/Combs.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kColumns = 128;
constexpr int kRows = 72;

/// Levels of 255, of full range: a picture is black where nearly all of it is below.
constexpr int kBlackLevel = 26;
constexpr double kBlackShare = 0.98;

/// What a picture that stands still differs by at most, on average and at the place that differs
/// most; levels.
constexpr double kStillMean = 0.25;
constexpr int kStillMost = 6;

/// A step from one picture to the next is a gap where it is so much longer than those before, and
/// so long; microseconds.
constexpr int64_t kGapTimes = 8;
constexpr int64_t kLeastGap = 500'000;

/// Combs are looked for in one of so many pictures.
constexpr int64_t kCombEvery = 5;
constexpr int kFewestTold = 8;
constexpr double kMostCombed = 0.6;

// Of limited range, levels that no coded picture has but by ringing, and how many do prove more.
constexpr int kBelowBlack = 8;
constexpr int kAboveWhite = 247;
constexpr double kManyOutside = 0.005;
constexpr double kManyAbove = 0.05;
// Of full range: where limited pictures have black and white, and how much of it.
constexpr int kLimitedBlack = 16;
constexpr int kLimitedWhite = 235;
constexpr double kManyAtEnd = 0.005;
constexpr double kNone = 0.0002;

constexpr int kHdrBits = 10;

/// Where luma, or green, of a pixel lies; none for palettes and what takes no whole bytes.
struct LumaPlane {
  const uint8_t* data = nullptr;
  int stride = 0;
  int step = 0;
  int shift = 0;
  int depth = 0;

  int at(int x, int y) const {
    const uint8_t* const sample =
        data + static_cast<ptrdiff_t>(y) * stride + static_cast<ptrdiff_t>(x) * step;
    const int value = depth > 8 ? sample[0] | sample[1] << 8 : sample[0];
    return (value >> shift & ((1 << depth) - 1)) >> (depth - 8);
  }
};

std::optional<LumaPlane> lumaOf(const AVFrame& frame) {
  const AVPixFmtDescriptor* const desc =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  constexpr uint64_t kOthers = AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_PAL |
                               AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL |
                               AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_BAYER;
  if (!desc || desc->flags & kOthers) return std::nullopt;
  const bool isRgb = desc->flags & AV_PIX_FMT_FLAG_RGB;
  const AVComponentDescriptor& component = desc->comp[isRgb && desc->nb_components > 1 ? 1 : 0];
  if (component.depth < 8 || component.depth > 16 || !frame.data[component.plane])
    return std::nullopt;
  return LumaPlane{frame.data[component.plane] + component.offset, frame.linesize[component.plane],
                   component.step, component.shift, component.depth};
}

bool isRgbFormat(int format) {
  const AVPixFmtDescriptor* const desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
  return desc && desc->flags & AV_PIX_FMT_FLAG_RGB;
}

bool hasAlphaOf(int format) {
  const AVPixFmtDescriptor* const desc = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
  return desc && desc->flags & AV_PIX_FMT_FLAG_ALPHA;
}

bool isFullRange(const AVFrame& frame) {
  const char* const name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
  return frame.color_range == AVCOL_RANGE_JPEG || isRgbFormat(frame.format) ||
         (name && std::string_view(name).starts_with("yuvj"));
}

bool isStill(const std::vector<uint8_t>& one, const std::vector<uint8_t>& other) {
  if (one.size() != other.size()) return false;
  int sum = 0;
  int most = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    const int difference = std::abs(one[i] - other[i]);
    sum += difference;
    most = std::max(most, difference);
  }
  return most <= kStillMost && sum <= kStillMean * static_cast<double>(one.size());
}

int64_t usualStep(const AVStream& stream) {
  const AVRational rate =
      stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
  return rate.num > 0 && rate.den > 0 ? int64_t{1'000'000} * rate.den / rate.num : 40'000;
}

}  // namespace

PictureInspector::PictureInspector(const AVStream& stream, const CheckSettings& settings)
    : stream_(stream),
      index_(static_cast<uint32_t>(stream.index)),
      usual_(usualStep(stream)),
      black_(CheckKind::kBlack, index_, settings.black, "the pictures are black"),
      frozen_(CheckKind::kFrozen, index_, settings.frozen, "the pictures stand still") {}

void PictureInspector::tell(CheckKind kind, std::string sentence, Findings& findings) const {
  findings.add({.kind = kind,
                .stream = index_,
                .start = begin(),
                .end = end_,
                .sentence = std::move(sentence)});
}

void PictureInspector::followTimes(int64_t time, int64_t length, Findings& findings) {
  if (!first_) {
    first_ = last_ = time;
    step_ = usual_;
  }
  const int64_t step = time - last_;
  if (step > kLeastGap && step > kGapTimes * std::max(step_, usual_))
    findings.add({.kind = CheckKind::kGap,
                  .stream = index_,
                  .start = last_,
                  .end = time,
                  .isFault = false,  // a picture may be shown for as long as it likes
                  .sentence = fmt::format("no picture for {} s",
                                          formatNumber(static_cast<double>(step) / 1e6, 2))});
  else if (step > 0)
    step_ += (step - step_) / 4;
  last_ = std::max(last_, time);
  end_ = std::max(end_, time + length);
}

void PictureInspector::lookAtLuma(const AVFrame& frame, int64_t time, Findings& findings) {
  const auto plane = lumaOf(frame);
  if (!plane || frame.width < 1 || frame.height < 1) return;
  const bool isFull = isFullRange(frame);
  isFull_ = isFull;
  isMarked_ = frame.color_range != AVCOL_RANGE_UNSPECIFIED;
  // What cannot be seen through alpha has any level.
  hasLevels_ = !isRgbFormat(frame.format) && !hasAlphaOf(frame.format);
  luma_.clear();
  size_t dark = 0;
  for (int row = 0; row < kRows; ++row) {
    const int y = (2 * row + 1) * frame.height / (2 * kRows);
    for (int column = 0; column < kColumns; ++column) {
      const int x = (2 * column + 1) * frame.width / (2 * kColumns);
      const int level = plane->at(x, y);
      luma_.push_back(static_cast<uint8_t>(level));
      ++levels_[static_cast<size_t>(level)];
      dark += (isFull ? level : (level - 16) * 255 / 219) < kBlackLevel;
    }
  }
  const bool isBlack = static_cast<double>(dark) >= kBlackShare * static_cast<double>(luma_.size());
  black_.set(isBlack, time, findings);
  // What is black is told as such.
  const bool stands = !isBlack && isStill(still_, luma_);
  frozen_.set(stands, last_, findings);
  if (!stands) {
    frozen_.set(!isBlack, time, findings);
    still_ = luma_;
  }
}

void PictureInspector::lookForCombs(const AVFrame& frame) {
  if (frame.interlaced_frame) ++marked_;
  if (previous_ && previous_->width == frame.width && previous_->height == frame.height &&
      previous_->format == frame.format) {
    const Combs combs = countCombs(*previous_, frame);
    if (combs.canTell()) {
      ++told_;
      if (combs.areSeen()) ++combed_;
    }
  }
  previous_.reset();
  if (pictures_ % kCombEvery == 0) previous_.reset(av_frame_clone(&frame));
}

void PictureInspector::take(const AVFrame& frame, std::optional<int64_t> time, Findings& findings) {
  const int64_t at = time.value_or(pictures_ == 0 ? 0 : last_ + usual_);
  const int64_t own = frame.pkt_duration > 0
                          ? av_rescale_q(frame.pkt_duration, stream_.time_base, kMicroseconds)
                          : usual_;
  if (pictures_ == 0) firstPicture_.reset(av_frame_clone(&frame));
  followTimes(at, own, findings);
  lookAtLuma(frame, at, findings);
  lookForCombs(frame);
  ++pictures_;
}

void PictureInspector::judgeFields(Findings& findings) const {
  if (told_ < kFewestTold) return;
  const AVFieldOrder order = stream_.codecpar->field_order;
  const bool isMarked =
      2 * marked_ > pictures_ || (order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE);
  const double share = static_cast<double>(combed_) / told_;
  if (isMarked && combed_ == 0)
    tell(CheckKind::kInterlacing, "marked as interlaced, and no picture shows combs", findings);
  if (!isMarked && share >= kMostCombed)
    tell(CheckKind::kInterlacing, "not marked as interlaced, and pictures show combs", findings);
}

void PictureInspector::judgeRange(Findings& findings) const {
  if (!hasLevels_) return;
  int64_t all = 0;
  for (const int64_t count : levels_) all += count;
  if (all == 0) return;
  const auto share = [&](int from, int to) {
    int64_t count = 0;
    for (int level = from; level <= to; ++level) count += levels_[static_cast<size_t>(level)];
    return static_cast<double>(count) / static_cast<double>(all);
  };
  const bool isOutside =
      share(0, kBelowBlack - 1) > kManyOutside || share(kAboveWhite + 1, kLevels - 1) > kManyAbove;
  if (!isFull_ && isOutside && isMarked_)
    tell(CheckKind::kRange, "of limited range by its marks, and levels of full range are seen",
         findings);
  if (!isFull_ && isOutside && !isMarked_)
    findings.add({.kind = CheckKind::kRange,
                  .stream = index_,
                  .start = begin(),
                  .end = end_,
                  .isFault = false,
                  .sentence = "no range is marked, and levels of full range are seen"});
  const bool isWithin =
      share(0, kLimitedBlack - 2) < kNone && share(kLimitedWhite + 2, kLevels - 1) < kNone;
  if (isFull_ && isWithin && share(kLimitedBlack - 1, kLimitedBlack + 1) > kManyAtEnd &&
      share(kLimitedWhite - 1, kLimitedWhite + 1) > kManyAtEnd)
    tell(CheckKind::kRange,
         "of full range by its marks, and its black and white are those of limited range",
         findings);
}

void PictureInspector::judgeLight(Findings& findings) const {
  if (!firstPicture_) return;
  VideoColor color;
  color.primaries = firstPicture_->color_primaries;
  color.transfer = firstPicture_->color_trc;
  if (color.transfer == AVCOL_TRC_UNSPECIFIED) color.transfer = stream_.codecpar->color_trc;
  if (color.primaries == AVCOL_PRI_UNSPECIFIED) color.primaries = stream_.codecpar->color_primaries;
  const bool hasLight = lightOf(stream_) || lightOf(*firstPicture_);
  if (!isHdr(color)) {
    if (hasLight)
      tell(CheckKind::kHdr, "light of HDR is told, and the transfer is neither PQ nor HLG",
           findings);
    return;
  }
  const AVPixFmtDescriptor* const desc =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(firstPicture_->format));
  if (desc && desc->comp[0].depth < kHdrBits)
    tell(CheckKind::kHdr, fmt::format("HDR by its marks, in {} bits", desc->comp[0].depth),
         findings);
  if (color.primaries == AVCOL_PRI_BT709 || color.primaries == AVCOL_PRI_BT470BG ||
      color.primaries == AVCOL_PRI_SMPTE170M)
    tell(CheckKind::kHdr, "HDR by its transfer, and its primaries are those of SDR", findings);
}

void PictureInspector::finish(Findings& findings) {
  black_.finish(end_, findings);
  frozen_.finish(end_, findings);
  judgeFields(findings);
  judgeRange(findings);
  judgeLight(findings);
}

}  // namespace kestrel
