#include "convert/job/Stretches.h"

#include <algorithm>
#include <cstdlib>

#include "convert/feed/PictureFeed.h"
#include "convert/feed/Rounding.h"
#include "convert/probe/Streams.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

// How much is decoded before a stretch, microseconds: filters that look at neighbours, those that
// add up what they have seen, and subtitles that are pictures and may last.
constexpr int64_t kNeighbours = 1'000'000;
constexpr int64_t kHistory = 4'000'000;
constexpr int64_t kSubtitles = 10'000'000;

int64_t contextOf(const ConversionPlan& plan) {
  if (plan.look.subtitleTrack) return kSubtitles;
  if (plan.treatment.denoising != Denoising::kOff) return kHistory;
  return plan.treatment.deinterlacing != Deinterlacing::kOff ? kNeighbours : 0;
}

/// The pictures that are shown from a time on, the first being the one that is seen there, up to an
/// end.
std::vector<TimedPicture> shownFrom(std::vector<TimedPicture> pictures, int64_t time,
                                    std::optional<int64_t> end) {
  if (end)
    pictures.erase(std::ranges::lower_bound(pictures, *end, {}, &TimedPicture::time),
                   pictures.end());
  const auto behind = std::ranges::upper_bound(pictures, time, {}, &TimedPicture::time);
  if (behind != pictures.begin()) pictures.erase(pictures.begin(), behind - 1);
  return pictures;
}

/// The first pictures of all stretches but the first.
std::vector<size_t> boundaries(const std::vector<TimedPicture>& pictures, int64_t length) {
  std::vector<size_t> found;
  size_t last = 0;
  while (pictures.back().time - pictures[last].time > length + length / 2) {
    const int64_t target = pictures[last].time + length;
    size_t best = 0;
    size_t i = last + 1;
    for (; i < pictures.size() && pictures[i].time <= target + length / 2; ++i) {
      const bool isNear = pictures[i].isKey && pictures[i].time >= target - length / 2;
      const auto distance = [&](size_t at) { return std::abs(pictures[at].time - target); };
      if (isNear && (best == 0 || distance(i) < distance(best))) best = i;
    }
    if (best == 0)
      best = static_cast<size_t>(
          std::ranges::lower_bound(pictures, target, {}, &TimedPicture::time) - pictures.begin());
    if (best <= last || best >= pictures.size()) break;
    found.push_back(best);
    last = best;
  }
  return found;
}

/// Stretches that begin with these pictures, shown at these places; the first begins the whole.
std::vector<PictureStretch> between(const std::vector<PictureStretch>& begins) {
  std::vector<PictureStretch> stretches = begins;
  for (size_t i = 0; i + 1 < stretches.size(); ++i) {
    stretches[i].until = stretches[i + 1].from;
    stretches[i].untilPlace = stretches[i + 1].place;
  }
  return stretches;
}

std::vector<PictureStretch> timedStretches(const StretchPlan& wanted) {
  const ConversionPlan& plan = wanted.plan;
  const Rational tick = pictureTick(plan.rate());
  const int64_t usual = av_rescale_q(1, {plan.rate().den, plan.rate().num}, kMicroseconds);
  const auto pictures = shownFrom(
      wanted.pictures, wanted.start + (wanted.start > 0 ? roundingOf(usual) : 0), plan.end);
  if (pictures.empty()) return {{.from = wanted.start}};
  std::vector<int64_t> times;
  for (const TimedPicture& picture : pictures) times.push_back(picture.time);
  const bool repeats = plan.look.subtitleTrack || !plan.look.subtitles.empty();
  const auto places = pictureTicks(times, wanted.start, plan.rate(), repeats);
  const int64_t end =
      plan.end ? av_rescale_q(*plan.end - wanted.start - usual, kMicroseconds, toAV(tick))
               : INT64_MAX;
  std::vector<PictureStretch> begins{{.from = wanted.start, .context = contextOf(plan)}};
  for (const size_t at : boundaries(pictures, wanted.length))
    if (places[at] < end)
      begins.push_back({.from = times[at], .place = places[at], .context = contextOf(plan)});
  return between(begins);
}

/// At a constant rate a tick shows the picture of its middle.
std::vector<PictureStretch> pacedStretches(const StretchPlan& wanted) {
  const ConversionPlan& plan = wanted.plan;
  const AVRational tick{plan.rate().den, plan.rate().num};
  const auto microseconds = [&](int64_t ticks) { return av_rescale_q(ticks, tick, kMicroseconds); };
  const auto pictures = shownFrom(wanted.pictures, wanted.start + microseconds(1) / 4, plan.end);
  if (pictures.empty()) return {{.from = wanted.start}};
  const int64_t anchor = pictures.front().time;
  const int64_t anchorPlace = av_rescale_q_rnd(std::max(anchor, wanted.start) - wanted.start,
                                               kMicroseconds, tick, AV_ROUND_NEAR_INF);
  std::vector<PictureStretch> begins{{.from = wanted.start,
                                      .anchor = anchor,
                                      .anchorPlace = anchorPlace,
                                      .context = contextOf(plan)}};
  for (const size_t at : boundaries(pictures, wanted.length)) {
    PictureStretch next = begins.front();
    next.place = anchorPlace + av_rescale_q_rnd(pictures[at].time - anchor, kMicroseconds, tick,
                                                AV_ROUND_NEAR_INF);
    next.from = anchor + microseconds(next.place - anchorPlace);
    const bool isWithin = !plan.end || next.from + microseconds(1) < *plan.end;
    if (isWithin && next.place > std::max(begins.back().place, anchorPlace)) begins.push_back(next);
  }
  return between(begins);
}

}  // namespace

std::vector<PictureStretch> planStretches(const StretchPlan& wanted) {
  const bool isKnown = !wanted.pictures.empty() && !wanted.plan.keepsPictures;
  if (!isKnown || (wanted.plan.keepsTimes && wanted.plan.treatment.separatesFields))
    return {{.from = wanted.start}};
  return wanted.plan.keepsTimes ? timedStretches(wanted) : pacedStretches(wanted);
}

int64_t startOf(const ConversionPlan& plan, const MediaInfo& info,
                const std::vector<TimedPicture>& pictures) {
  const PlannedStream* const stream = plan.pictures();
  const bool areAlone = stream && stream->action == StreamAction::kEncode &&
                        plan.kept(StreamInfo::Kind::kAudio).empty();
  if (!areAlone || plan.start <= 0 || pictures.empty() ||
      plan.start != beginOf(info.streams[stream->sources.front()], info))
    return plan.start;
  return std::clamp<int64_t>(pictures.front().time, 0, plan.start);
}

}  // namespace kestrel
