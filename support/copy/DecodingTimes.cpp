#include "support/copy/DecodingTimes.h"

#include <algorithm>
#include <utility>

namespace kestrel {

namespace {

/// No packet waits for longer; codecs reorder no more.
constexpr size_t kMostWaiting = 32;

}  // namespace

void DecodingTimes::push(PacketPtr packet) {
  // One without any time stays behind those that wait.
  const bool waits = packet->pts != AV_NOPTS_VALUE || !waiting_.empty();
  if (packet->dts == AV_NOPTS_VALUE && waits) {
    waiting_.push_back(std::move(packet));
    if (waiting_.size() < kMostWaiting) return;
    const auto count = static_cast<int64_t>(waiting_.size());
    return release(last_ == AV_NOPTS_VALUE ? waiting_.front()->pts : last_ + (count + 1) * step());
  }
  if (packet->dts != AV_NOPTS_VALUE) {
    release(packet->dts);
    last_ = packet->dts;
  }
  ready_.push_back(std::move(packet));
}

void DecodingTimes::finish() {
  const auto last = std::find_if(waiting_.rbegin(), waiting_.rend(), [](const PacketPtr& packet) {
    return packet->pts != AV_NOPTS_VALUE;
  });
  if (last != waiting_.rend()) release((*last)->pts);
}

PacketPtr DecodingTimes::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

/// How far packets usually lie apart.
int64_t DecodingTimes::step() const {
  const AVRational rate = stream_.avg_frame_rate;
  const bool isKnown = rate.num > 0 && rate.den > 0;
  return isKnown ? std::max<int64_t>(av_rescale_q(1, av_inv_q(rate), stream_.time_base), 1) : 1;
}

/// Lets go of what waits, evenly before `next`.
void DecodingTimes::release(int64_t next) {
  if (waiting_.empty()) return;  // as for all packets of most inputs
  int64_t time = next - static_cast<int64_t>(waiting_.size()) * step();
  for (PacketPtr& packet : std::exchange(waiting_, {})) {
    packet->dts = packet->pts == AV_NOPTS_VALUE ? time : std::min(time, packet->pts);
    last_ = packet->dts;
    time += step();
    ready_.push_back(std::move(packet));
  }
}

}  // namespace kestrel
