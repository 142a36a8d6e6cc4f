#include "media/Deinterlacer.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "support/Combs.h"
#include "support/FFmpegCompat.h"

namespace kestrel {

namespace {

/// A picture that lasts so many ticks can be halved without harm.
constexpr int64_t kManyTicks = 16;

/// So many pictures without combs may lie between interlaced ones, and so many follow them.
constexpr size_t kLongestGap = 2;
constexpr int kLingering = 12;

/// So many pictures in a row show combs in film with repeated fields.
constexpr size_t kFilmRun = 2;

FramePtr referenceTo(const AVFrame& picture) { return FramePtr(av_frame_clone(&picture)); }

std::vector<FilterChain::Filter> filtersFor(const PictureTreatment& treatment) {
  // Which pictures are interlaced is what their marks say.
  return {{"bwdif", fmt::format("mode={}:parity=auto:deint=interlaced",
                                treatment.separatesFields ? "send_field" : "send_frame")}};
}

}  // namespace

Deinterlacer::Deinterlacer(const PictureTreatment& treatment, AVRational timebase)
    : treatment_(treatment), timebase_(timebase), ticks_(timebase) {}

bool Deinterlacer::isMarked(const AVFrame& picture) const {
  return treatment_.deinterlacing == Deinterlacing::kOn ||
         (treatment_.deinterlacing == Deinterlacing::kAuto && picture.interlaced_frame);
}

std::vector<FramePtr> Deinterlacer::push(FramePtr picture) {
  std::vector<FramePtr> finished;
  if (treatment_.deinterlacing != Deinterlacing::kCombed) {
    const bool isMeant = isMarked(*picture);
    pushMarked(std::move(picture), isMeant, finished);
    return finished;
  }
  const FramePtr before = std::exchange(last_, referenceTo(*picture));
  if (!before) {
    first_ = std::move(picture);
    return finished;
  }
  if (FramePtr first = std::exchange(first_, nullptr)) {
    const bool isCombed = countCombs(*first, *picture).areSeen();
    judge(std::move(first), isCombed, finished);
  }
  const bool isCombed = countCombs(*picture, *before).areSeen();
  judge(std::move(picture), isCombed, finished);
  return finished;
}

/// Interlaced pictures in which little moves show no combs, and are not to stand out among the
/// others. Film with repeated fields has three and more of one moment between those of two, and of
/// these never more than two in a row.
void Deinterlacer::judge(FramePtr picture, bool isCombed, std::vector<FramePtr>& finished) {
  if (!isCombed && lingering_ == 0) {
    waiting_.push_back(std::move(picture));
    if (run_ == 0 || waiting_.size() > kLongestGap) letGo(false, finished);
    return;
  }
  letGo(true, finished);
  pushMarked(std::move(picture), true, finished);
  ++run_;
  if (!isCombed)
    --lingering_;
  else if (run_ > kFilmRun)
    lingering_ = kLingering;
}

/// Passes on what waited for a verdict.
void Deinterlacer::letGo(bool isMeant, std::vector<FramePtr>& finished) {
  run_ = isMeant ? run_ + waiting_.size() : 0;
  for (FramePtr& picture : std::exchange(waiting_, {}))
    pushMarked(std::move(picture), isMeant, finished);
}

void Deinterlacer::pushMarked(FramePtr picture, bool isMeant, std::vector<FramePtr>& finished) {
  if (isMeant && !picture->interlaced_frame)
    picture->top_field_first = treatment_.topFieldFirst.value_or(true);
  picture->interlaced_frame = isMeant;
  noteTicks(*picture);
  if (!isMeant && treatment_.separatesFields) repeated_.push_back(picture->pts);
  const FramePtr before = std::exchange(previous_, referenceTo(*picture));
  if (!filter_ && !isMeant) {
    std::vector<FramePtr> own;
    own.push_back(std::move(picture));
    std::ranges::move(repeating(dated(std::move(own), timebase_)), std::back_inserter(finished));
    return;
  }
  if (!filter_) {
    filter_.emplace(filtersFor(treatment_), timebase_);
    // The first picture's neighbour has come out already.
    repeatsFirst_ = before && filter_->push(referenceTo(*before)).empty();
  }
  std::ranges::move(filtered(filter_->push(std::move(picture))), std::back_inserter(finished));
}

std::vector<FramePtr> Deinterlacer::filtered(std::vector<FramePtr> pictures) {
  if (repeatsFirst_ && !pictures.empty()) {
    pictures.erase(pictures.begin());
    repeatsFirst_ = false;
  }
  return repeating(dated(std::move(pictures), filter_->timebase()));
}

/// Where fields become pictures, what is not deinterlaced comes twice.
std::vector<FramePtr> Deinterlacer::repeating(std::vector<FramePtr> pictures) {
  std::vector<FramePtr> all;
  for (FramePtr& picture : pictures) {
    const bool isRepeated =
        !repeated_.empty() && picture->pts == av_rescale_q(repeated_.front(), timebase_, ticks_);
    if (!isRepeated) {
      all.push_back(std::move(picture));
      continue;
    }
    repeated_.pop_front();
    const int64_t half = frameDuration(*picture) / 2;
    FramePtr again = half > 0 ? referenceTo(*picture) : nullptr;
    if (again) setFrameDuration(*picture, half);
    all.push_back(std::move(picture));
    if (!again) continue;
    again->pts += half;
    setFrameDuration(*again, half);
    all.push_back(std::move(again));
  }
  return all;
}

/// Decides by the first picture whether fields get ticks of their own.
void Deinterlacer::noteTicks(const AVFrame& picture) {
  const int64_t ticks = frameDuration(picture);
  if (end_ == AV_NOPTS_VALUE && treatment_.separatesFields && ticks < kManyTicks)
    ticks_ = av_mul_q(timebase_, {1, 2});
  end_ = picture.pts + ticks;
}

std::vector<FramePtr> Deinterlacer::dated(std::vector<FramePtr> pictures, AVRational from) const {
  for (auto& picture : pictures) {
    picture->pts = av_rescale_q(picture->pts, from, ticks_);
    setFrameDuration(*picture, av_rescale_q(frameDuration(*picture), timebase_, ticks_));
    picture->time_base = ticks_;
  }
  return pictures;
}

std::vector<FramePtr> Deinterlacer::finish() {
  std::vector<FramePtr> finished;
  if (first_) pushMarked(std::exchange(first_, nullptr), false, finished);
  letGo(false, finished);
  if (filter_) std::ranges::move(filtered(filter_->finish()), std::back_inserter(finished));
  // The last field ends with its picture.
  if (!finished.empty() && treatment_.separatesFields) {
    AVFrame& last = *finished.back();
    setFrameDuration(last, av_rescale_q(end_, timebase_, ticks_) - last.pts);
  }
  return finished;
}

}  // namespace kestrel
