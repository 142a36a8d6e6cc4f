#include "convert/probe/Glance.h"

#include <kestrel/LMMediaSource.h>

#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

Glance::Glance(LMMediaSource& source, uint32_t video) : source_(source), video_(video) {
  const AVStream& stream = *source.formatContext()->streams[video];
  if (openDecoder(decoder_, *stream.codecpar, {.timebase = stream.time_base}) < 0) return;
  decoder_->skip_frame = AVDISCARD_NONREF;
  decoder_->skip_loop_filter = AVDISCARD_ALL;
}

std::vector<FramePtr> Glance::from(int64_t time, size_t count) {
  std::vector<FramePtr> pictures;
  if (!decoder_ || !source_.seekBackward(time)) return pictures;
  const auto take = [&](FramePtr picture) {
    if (pictures.size() < count) pictures.push_back(std::move(picture));
  };
  // A decoder holds pictures back for those that are shown before them. Of those that were sent
  // in order of being shown, none is to come: what it holds then is no less than asked for.
  size_t sent = 0;
  int64_t last = AV_NOPTS_VALUE;
  const PacketPtr packet = makePacket();
  while (sent < count && pictures.size() < count && source_.readPacket(packet.get())) {
    if (packet->stream_index == static_cast<int>(video_)) {
      if (packet->pts == AV_NOPTS_VALUE || last == AV_NOPTS_VALUE || packet->pts > last) {
        last = packet->pts;
        ++sent;
      }
      decodePacket(*decoder_, packet.get(), take);
    }
    av_packet_unref(packet.get());
  }
  decodePacket(*decoder_, nullptr, take);
  avcodec_flush_buffers(decoder_.get());
  return pictures;
}

}  // namespace kestrel
