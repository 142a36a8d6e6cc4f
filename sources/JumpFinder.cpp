#include "sources/JumpFinder.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace kestrel {

namespace {

constexpr int64_t kSecond = JumpFinder::kTicks.den;
constexpr int64_t kWrap = int64_t{1} << 33;

/// A stream's time has left its path when it goes back by more than this, or forth by more: streams
/// may pause for some seconds.
constexpr int64_t kMostBack = kSecond / 10;
constexpr int64_t kMostForth = 10 * kSecond;
constexpr int kMostSpacings = 3;

/// Streams of one clock lie within this of each other.
constexpr int64_t kNear = 3 * kSecond;

/// So far one stream is followed alone before it is believed, or before another that stays refutes
/// it.
constexpr int64_t kMostAlone = 2 * kSecond;
constexpr int64_t kMostStayed = kSecond;
constexpr size_t kMostHeld = 8192;

/// Packets of a stream behind a jump that have to be known: pictures are shown in another order.
constexpr int kFewestPictures = 8;
constexpr int kFewestElse = 2;

/// Sound that lasts longer than the pictures by no more than this is overlapped: encoders fill up
/// their last packet, and their first one holds what they need to start with.
constexpr int64_t kMostOverlap = kSecond / 10;

int64_t ticks(int64_t time, const AVStream& stream) {
  return time == AV_NOPTS_VALUE ? time : av_rescale_q(time, stream.time_base, JumpFinder::kTicks);
}

bool isPictures(const AVStream& stream) {
  return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
         !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC);
}

bool isSound(const AVStream& stream) { return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO; }

}  // namespace

bool JumpFinder::Path::isLeftBy(int64_t time) const {
  if (!isKnown()) return false;
  const int64_t step = time - next;
  return step < -kMostBack || step > std::max(kMostForth, kMostSpacings * spacing);
}

void JumpFinder::Path::go(const AVPacket& packet, const AVStream& stream, int64_t time) {
  const int64_t duration = ticks(packet.duration, stream);
  // A picture without a time of its own is taken for one that waits as long as the first did.
  const int64_t shown = packet.pts == AV_NOPTS_VALUE ? time + lead : ticks(packet.pts, stream);
  if (count == 0) lead = std::max<int64_t>(shown - time, 0);
  begin = count == 0 ? shown : std::min(begin, shown);
  end = std::max(end, shown + duration);
  if (last != AV_NOPTS_VALUE) spacing = std::max(spacing, time - last);
  last = time;
  next = time + duration;
  ++count;
}

JumpFinder::Track& JumpFinder::trackOf(const AVStream& stream) {
  const auto [found, isNew] = tracks_.try_emplace(stream.index);
  if (isNew) {
    found->second.isPictures = isPictures(stream);
    found->second.isFollowed = isPictures(stream) || isSound(stream);
    found->second.offset = offset_;
  }
  return found->second;
}

void JumpFinder::push(PacketPtr packet, const AVStream& stream) {
  Track& track = trackOf(stream);
  const int64_t time = ticks(packet->dts == AV_NOPTS_VALUE ? packet->pts : packet->dts, stream);
  if (leaver_)
    hold(std::move(packet), stream, track, time);
  else
    follow(std::move(packet), stream, track, time);
}

/// A packet while nothing is in doubt.
void JumpFinder::follow(PacketPtr packet, const AVStream& stream, Track& track, int64_t time) {
  if (!track.isFollowed) track.offset = offset_;
  if (time != AV_NOPTS_VALUE && track.isFollowed) {
    const bool isLeft = track.path.isLeftBy(time) && !hasOnlyPaused(track, time);
    if (isLeft && !belongsBehind(track, time)) {
      leaver_ = stream.index;
      return hold(std::move(packet), stream, track, time);
    }
    if (belongsBehind(track, time)) {  // it follows a jump that others made before
      track.offset = offset_;
      track.path = {};
    }
    track.path.go(*packet, stream, time);
    if (track.offset == offset_) newest_ = time;
  }
  placed_.push_back({std::move(packet), track.offset});
}

/// Whether a stream has caught up with others that went on meanwhile.
bool JumpFinder::hasOnlyPaused(const Track& track, int64_t time) const {
  if (time < track.path.next) return false;
  return std::ranges::any_of(tracks_, [&](const auto& item) {
    const Track& other = item.second;
    return &other != &track && other.isFollowed && other.path.isKnown() &&
           other.offset == track.offset && std::abs(other.path.last - time) < kNear;
  });
}

/// Whether a stream that has not followed the last jump does so with this time.
bool JumpFinder::belongsBehind(const Track& track, int64_t time) const {
  const bool isBehind = track.offset == offset_ || newest_ == AV_NOPTS_VALUE;
  return !isBehind && std::abs(time - newest_) < kNear && time != track.path.next;
}

/// A packet while it is in doubt whether the clock has jumped.
void JumpFinder::hold(PacketPtr packet, const AVStream& stream, Track& track, int64_t time) {
  const Track& leaver = tracks_.at(*leaver_);
  if (time == AV_NOPTS_VALUE) return keep(std::move(packet), stream, track.behind.isKnown());
  const int64_t newest = leaver.behind.last;
  const bool isNear = newest == AV_NOPTS_VALUE || std::abs(time - newest) < kNear;
  const bool isStaying = track.path.isKnown() && !track.path.isLeftBy(time);
  if (!track.isFollowed)
    return keep(std::move(packet), stream,
                std::abs(time - newest) < std::abs(time - leaver.path.last));
  if (track.behind.isKnown() && track.behind.isLeftBy(time)) {
    // It leaves the new path, too: back to the old one, after a damaged stamp, or to a third.
    isStaying || track.behind.count < kFewestElse ? reject(Stay::kOnOldPath) : accept();
    return push(std::move(packet), stream);
  }
  const bool isBehind = track.behind.isKnown() || &track == &leaver ||
                        (isNear && (!isStaying || time != track.path.next));
  if (isBehind) {
    track.behind.go(*packet, stream, time);
  } else if (isStaying) {
    if (!isNear) track.stayed += time - track.path.last;
    track.path.go(*packet, stream, time);
  }
  keep(std::move(packet), stream, isBehind);
  if (track.stayed > kMostStayed) return reject(Stay::kWhereItIs);
  if (isDecided()) accept();
}

void JumpFinder::keep(PacketPtr packet, const AVStream& stream, bool isBehind) {
  held_.push_back({std::move(packet), stream.index, isBehind});
}

/// Whether a stream went on until the clock jumped, so that it is to be expected behind it.
bool JumpFinder::isAlive(const Track& track) const {
  return track.isFollowed && track.path.isKnown() && track.offset == offset_ &&
         track.path.last >= tracks_.at(*leaver_).path.last - kMostAlone;
}

bool JumpFinder::isDecided() const {
  const Track& leaver = tracks_.at(*leaver_);
  const int64_t alone = leaver.behind.last - leaver.behind.begin;
  if (alone > kMostAlone || held_.size() > kMostHeld) return true;
  return std::ranges::all_of(tracks_, [this](const auto& item) {
    const Track& track = item.second;
    const int fewest = track.isPictures ? kFewestPictures : kFewestElse;
    return !isAlive(track) || track.behind.count >= fewest;
  });
}

/// What moves the times behind the jump so that they go on.
int64_t JumpFinder::offsetBehind() const {
  const auto needOf = [](const Track& track) {
    return track.path.end + track.offset - track.behind.begin;
  };
  std::optional<int64_t> pictures;
  std::optional<int64_t> others;
  for (const auto& [index, track] : tracks_) {
    if (!track.behind.isKnown() || !track.path.isKnown()) continue;
    auto& need = track.isPictures ? pictures : others;
    need = std::max(need.value_or(INT64_MIN), needOf(track));
  }
  int64_t offset = pictures ? *pictures : others.value_or(offset_);
  if (others && *others > offset + kMostOverlap) offset = *others;
  // A counter that has come to its end goes on without any doubt.
  for (const int64_t wrapped : {offset_ - kWrap, offset_ + kWrap})
    if (std::abs(offset - wrapped) < kSecond) offset = wrapped;
  return offset;
}

void JumpFinder::accept() {
  offset_ = offsetBehind();
  hasJumped_ = true;
  newest_ = tracks_.at(*leaver_).behind.last;
  for (Held& held : held_) {
    const Track& track = tracks_.at(held.stream);
    placed_.push_back({std::move(held.packet), held.isBehind ? offset_ : track.offset});
  }
  for (auto& [index, track] : tracks_) {
    if (!track.behind.isKnown()) continue;
    track.path = track.behind;
    track.offset = offset_;
  }
  release();
}

void JumpFinder::reject(Stay stay) {
  for (Held& held : held_)
    placed_.push_back({std::move(held.packet), tracks_.at(held.stream).offset});
  for (auto& [index, track] : tracks_)
    if (stay == Stay::kWhereItIs && track.behind.isKnown()) track.path = track.behind;
  release();
}

void JumpFinder::release() {
  held_.clear();
  leaver_.reset();
  for (auto& [index, track] : tracks_) {
    track.behind = {};
    track.stayed = 0;
  }
}

void JumpFinder::finish() {
  if (!leaver_) return;
  const auto crossed =
      std::ranges::count_if(tracks_, [](const auto& item) { return item.second.behind.isKnown(); });
  const bool isBelieved = crossed > 1 || tracks_.at(*leaver_).behind.count >= kFewestElse;
  isBelieved ? accept() : reject(Stay::kOnOldPath);
}

std::optional<JumpFinder::Placed> JumpFinder::pop() {
  if (placed_.empty()) return std::nullopt;
  Placed first = std::move(placed_.front());
  placed_.pop_front();
  return first;
}

std::deque<PacketPtr> JumpFinder::takeAll() {
  std::deque<PacketPtr> packets;
  for (Placed& placed : placed_) packets.push_back(std::move(placed.packet));
  for (Held& held : held_) packets.push_back(std::move(held.packet));
  placed_.clear();
  held_.clear();
  return packets;
}

void JumpFinder::reset() { *this = {}; }

}  // namespace kestrel
