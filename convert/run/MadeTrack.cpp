#include "convert/run/MadeTrack.h"

#include <algorithm>
#include <utility>

namespace kestrel {

MadeTrack::MadeTrack(std::unique_ptr<MadePackets> packets, AVStream* output)
    : packets_(std::move(packets)), output_(output) {
  readNext();
}

void MadeTrack::readNext() {
  next_ = packets_->next();
  if (!next_)
    time_ = kEnded;
  else if (next_->dts != AV_NOPTS_VALUE)
    time_ = std::max(time_, av_rescale_q(next_->dts, packets_->stream().time_base, kMicroseconds));
}

Track::Job MadeTrack::step() {
  auto packet = std::exchange(next_, nullptr);
  const AVRational base = packets_->stream().time_base;
  readNext();
  return [packet = std::move(packet), base, stream = output_](LMFFMovieFileOutput& output) {
    av_packet_rescale_ts(packet.get(), base, stream->time_base);
    output.writePacket(packet.get(), stream);
  };
}

}  // namespace kestrel
