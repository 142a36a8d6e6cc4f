#include "composition/SubtitleLane.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <utility>

#include "support/FFmpegBytes.h"
#include "support/copy/PacketTimes.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

/// How long a packet waits at most for the pictures to come to its end, microseconds: less than the
/// library's queue waits for it.
constexpr int64_t kLongestHold = 5000000;

int64_t endOf(const AVPacket& packet) {
  return av_sat_add64(packet.pts, std::max<int64_t>(packet.duration, 0));
}

}  // namespace

/// The two times that stand for "never" stay as they are.
int64_t SubtitleLane::ticks(int64_t time) const {
  return av_rescale_q_rnd(time, kMicroseconds, output_.time_base,
                          static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

void SubtitleLane::beginInput(int64_t begin, int64_t likelyEnd) {
  begin_ = ticks(begin);
  likelyEnd_ = ticks(likelyEnd);
  std::erase_if(held_, [&](const PacketPtr& packet) { return !endEarlier(*packet, begin_); });
  numberOffset_ = 0;
  ofOthers_ = highest_;
}

/// Has a packet begin no earlier; false where nothing is left of it.
bool SubtitleLane::beginLater(AVPacket& packet, int64_t begin) {
  if (packet.duration > 0 || packet.pts >= begin) return cutBefore(packet, begin);
  moved_ = std::max(begin, moved_ + 1);  // two of the same time would be taken for one
  packet.pts = packet.dts = moved_;
  return true;
}

/// Has a packet end no later; false where nothing is left of it.
bool SubtitleLane::endEarlier(AVPacket& packet, int64_t end) {
  if (packet.duration <= 0 || endOf(packet) <= end) return true;
  packet.duration = end - packet.pts;
  return packet.duration > 0;
}

/// Whether a packet is what MPEG-4 files have between two texts: the muxer writes its own.
bool SubtitleLane::isGap(const AVPacket& packet) const {
  return output_.codecpar->codec_id == AV_CODEC_ID_MOV_TEXT &&
         (packet.size < 2 || (packet.data[0] == 0 && packet.data[1] == 0));
}

void SubtitleLane::hold(AVPacket& packet) {
  const bool isKept = packet.pts != AV_NOPTS_VALUE && !isGap(packet) &&
                      beginLater(packet, begin_) && renumber(packet);
  if (isKept) {
    const auto behind = std::ranges::upper_bound(held_, packet.pts, {},
                                                 [](const PacketPtr& held) { return held->pts; });
    av_packet_move_ref(held_.insert(behind, makePacket())->get(), &packet);
  }
  av_packet_unref(&packet);
}

/// An event of SubStation Alpha in a packet begins with its number. Those of different inputs must
/// differ; those of one file that was cut do. False where there is no memory.
bool SubtitleLane::renumber(AVPacket& packet) {
  if (output_.codecpar->codec_id != AV_CODEC_ID_ASS) return true;
  const char* text = reinterpret_cast<const char*>(packet.data);
  int64_t number = 0;
  const auto [rest, error] = std::from_chars(text, text + packet.size, number);
  if (error != std::errc() || number < 0 || number > INT32_MAX) return true;
  if (number + numberOffset_ <= ofOthers_) numberOffset_ = highest_ + 1;
  const int64_t written = number + numberOffset_;
  highest_ = std::max(highest_, written);
  if (written == number) return true;
  const std::string renumbered = std::to_string(written) + std::string(rest, text + packet.size);
  return setBytes(packet, {reinterpret_cast<const uint8_t*>(renumbered.data()), renumbered.size()});
}

PacketPtr SubtitleLane::take(int64_t reached) {
  if (held_.empty()) return nullptr;
  AVPacket& packet = *held_.front();
  const int64_t start = av_rescale_q(packet.pts, output_.time_base, kMicroseconds);
  const int64_t end = av_rescale_q(endOf(packet), output_.time_base, kMicroseconds);
  if (end > reached) {
    if (av_sat_sub64(reached, start) < kLongestHold) return nullptr;
    if (packet.pts < likelyEnd_) endEarlier(packet, likelyEnd_);
  }
  PacketPtr taken = std::move(held_.front());
  held_.pop_front();
  if (!beginLater(*taken, last_)) return take(reached);
  last_ = taken->pts;
  return taken;
}

}  // namespace kestrel
