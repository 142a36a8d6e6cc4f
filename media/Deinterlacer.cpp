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

FramePtr referenceTo(const AVFrame& picture) { return FramePtr(av_frame_clone(&picture)); }

std::vector<FilterChain::Filter> filtersFor(const PictureTreatment& treatment) {
  // Which pictures are interlaced is what their marks say.
  return {{"bwdif", fmt::format("mode={}:parity=auto:deint=interlaced",
                                treatment.separatesFields ? "send_field" : "send_frame")}};
}

}  // namespace

Deinterlacer::Deinterlacer(const PictureTreatment& treatment, AVRational timebase)
    : treatment_(treatment), timebase_(timebase), ticks_(timebase) {}

bool Deinterlacer::isMeant(const AVFrame& picture, const AVFrame* neighbor) const {
  switch (treatment_.deinterlacing) {
    case Deinterlacing::kOff:
      return false;
    case Deinterlacing::kAuto:
      return picture.interlaced_frame;
    case Deinterlacing::kOn:
      return true;
    case Deinterlacing::kCombed:
      return neighbor && countCombs(picture, *neighbor).areSeen();
  }
  return false;
}

std::vector<FramePtr> Deinterlacer::push(FramePtr picture) {
  const bool compares = treatment_.deinterlacing == Deinterlacing::kCombed;
  if (!compares) return pushMarked(std::move(picture), nullptr);
  if (!previous_ && !first_) {
    first_ = std::move(picture);
    return {};
  }
  std::vector<FramePtr> finished;
  if (first_) finished = pushMarked(std::exchange(first_, nullptr), picture.get());
  const FramePtr before = previous_ ? referenceTo(*previous_) : nullptr;
  std::ranges::move(pushMarked(std::move(picture), before.get()), std::back_inserter(finished));
  return finished;
}

/// `neighbor`: the picture before or after it, null where none is compared with.
std::vector<FramePtr> Deinterlacer::pushMarked(FramePtr picture, const AVFrame* neighbor) {
  const bool isMeant = this->isMeant(*picture, neighbor);
  if (isMeant && !picture->interlaced_frame)
    picture->top_field_first = treatment_.topFieldFirst.value_or(true);
  picture->interlaced_frame = isMeant;
  noteTicks(*picture);
  const FramePtr before = std::exchange(previous_, referenceTo(*picture));
  std::vector<FramePtr> finished;
  if (!filter_ && !isMeant) {
    finished.push_back(std::move(picture));
    return dated(std::move(finished), timebase_);
  }
  if (!filter_) {
    filter_.emplace(filtersFor(treatment_), timebase_);
    // The first picture's neighbour has come out already.
    repeatsFirst_ = before && filter_->push(referenceTo(*before)).empty();
  }
  return filtered(filter_->push(std::move(picture)));
}

std::vector<FramePtr> Deinterlacer::filtered(std::vector<FramePtr> pictures) {
  if (repeatsFirst_ && !pictures.empty()) {
    pictures.erase(pictures.begin());
    repeatsFirst_ = false;
  }
  return dated(std::move(pictures), filter_->timebase());
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
  if (first_) finished = pushMarked(std::exchange(first_, nullptr), nullptr);
  if (filter_) std::ranges::move(filtered(filter_->finish()), std::back_inserter(finished));
  // The last field ends with its picture.
  if (!finished.empty() && treatment_.separatesFields) {
    AVFrame& last = *finished.back();
    setFrameDuration(last, av_rescale_q(end_, timebase_, ticks_) - last.pts);
  }
  return finished;
}

}  // namespace kestrel
