#include <kestrel/FirstFrame.h>

#include <kestrel/LMMediaSource.h>

#include <deque>
#include <utility>

#include "platform/codec/Codec.h"
#include "sources/PutBack.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr size_t kMostPackets = 1000;

}  // namespace

std::shared_ptr<AVFrame> firstFrame(LMMediaSource& source, int stream) {
  AVFormatContext* const input = source.formatContext();
  if (!input || !canPutBack(*input)) return nullptr;
  if (stream < 0 || stream >= static_cast<int>(input->nb_streams)) return nullptr;
  CodecContextPtr decoder;
  if (openDecoder(decoder, *input->streams[stream]->codecpar) < 0) return nullptr;
  std::shared_ptr<AVFrame> first;
  const auto take = [&](FramePtr frame) {
    if (!first) first = std::move(frame);
  };
  std::deque<PacketPtr> packets;
  while (!first && packets.size() < kMostPackets) {
    PacketPtr packet = makePacket();
    if (!packet || !source.readPacket(packet.get())) break;
    if (packet->stream_index == stream) decodePacket(*decoder, packet.get(), take);
    packets.push_back(std::move(packet));
  }
  if (!first) decodePacket(*decoder, nullptr, take);
  putBack(*input, std::move(packets));
  return first;
}

}  // namespace kestrel
