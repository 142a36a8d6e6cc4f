#include "sources/ClockMap.h"

#include <algorithm>
#include <iterator>

namespace kestrel {

namespace {

/// Entries of sound alone are this far apart.
constexpr int64_t kSoundStep = JumpFinder::kTicks.den / 2;

int64_t ticks(int64_t time, const AVStream& stream) {
  return av_rescale_q(time, stream.time_base, JumpFinder::kTicks);
}

}  // namespace

void ClockMap::add(const AVPacket& packet, const AVStream& stream, int64_t offset) {
  Course& course = courses_[stream.index];
  if (course.offset != offset) {
    const int64_t place = packet.pos >= 0 ? packet.pos : course.position + 1;
    const int64_t begin = packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts;
    course.stretches[place] = {place, offset, ticks(begin, stream)};
    course.offset = offset;
    hasJumps_ = true;
  }
  course.position = std::max(course.position, packet.pos);
  const int64_t time = packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts;
  if (time == AV_NOPTS_VALUE) return;
  const int64_t begin = ticks(time, stream) + offset;
  const int64_t end = begin + ticks(packet.duration, stream);
  const auto widen = [&](Span& span) {
    span = {std::min(span.begin, begin), std::max(span.end, end)};
  };
  widen(spans_[stream.index]);
  const AVMediaType type = stream.codecpar->codec_type;
  if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) return;
  widen(span_);
  addEntry(packet, stream, begin);
}

/// Key pictures are entered, and sound where there are no pictures.
void ClockMap::addEntry(const AVPacket& packet, const AVStream& stream, int64_t time) {
  const bool isPictures = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  if (!indexed_) indexed_ = stream.index;
  if (isPictures && !hasPictures_) {
    hasPictures_ = true;
    indexed_ = stream.index;
    entries_.clear();
  }
  if (indexed_ != stream.index || packet.pos < 0) return;
  if (isPictures && !(packet.flags & AV_PKT_FLAG_KEY)) return;
  const int64_t step = isPictures ? 1 : kSoundStep;
  if (entries_.empty() || time >= entries_.back().time + step)
    entries_.push_back({time, packet.pos});
}

ClockMap::Stretch ClockMap::stretchAt(int stream, int64_t position) const {
  const auto course = courses_.find(stream);
  if (course == courses_.end()) return {};
  const auto& stretches = course->second.stretches;
  const auto next = stretches.upper_bound(position);
  return next == stretches.begin() ? Stretch{} : std::prev(next)->second;
}

std::optional<ClockMap::Stretch> ClockMap::stretchAfter(int stream, int64_t position) const {
  const auto course = courses_.find(stream);
  if (course == courses_.end()) return std::nullopt;
  const auto next = course->second.stretches.upper_bound(position);
  if (next == course->second.stretches.end()) return std::nullopt;
  return next->second;
}

std::optional<int64_t> ClockMap::placeBefore(int64_t time) const {
  const auto next = std::ranges::upper_bound(entries_, time, {}, &Entry::time);
  if (next == entries_.begin()) return std::nullopt;
  return std::prev(next)->position;
}

ClockMap::Span ClockMap::spanOf(int stream) const {
  const auto found = spans_.find(stream);
  return found == spans_.end() ? Span{} : found->second;
}

void ClockMap::describe(AVFormatContext& context) const {
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    const Span own = spanOf(stream.index);
    if (own.isEmpty()) continue;
    stream.start_time = av_rescale_q(own.begin, JumpFinder::kTicks, stream.time_base);
    stream.duration = av_rescale_q(own.end - own.begin, JumpFinder::kTicks, stream.time_base);
  }
  if (span_.isEmpty()) return;
  context.start_time = av_rescale_q(span_.begin, JumpFinder::kTicks, kMicroseconds);
  context.duration = av_rescale_q(span_.end - span_.begin, JumpFinder::kTicks, kMicroseconds);
  context.duration_estimation_method = AVFMT_DURATION_FROM_PTS;
  const int64_t size = context.pb ? avio_size(context.pb) : 0;
  if (size > 0 && context.duration > 0)
    context.bit_rate = av_rescale(size, int64_t{8} * AV_TIME_BASE, context.duration);
}

}  // namespace kestrel
