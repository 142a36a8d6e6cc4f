#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "convert/join/PartSound.h"
#include "convert/probe/Input.h"
#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

/// More than any encoder's delay and any cut between two pictures.
constexpr int64_t kMostSeconds = 5;

}  // namespace

JoinedSound::Samples hiddenSound(const JoinInput& input, uint32_t stream,
                                 const LMFFAudioFormat& format, const Interrupt& interrupt) {
  const auto source = openInput(input, interrupt);
  AVFormatContext& context = *source->formatContext();
  const AVStream& sound = *context.streams[stream];
  CodecContextPtr decoder;
  if (openDecoder(decoder, *sound.codecpar) < 0) return {};
  for (unsigned i = 0; i < context.nb_streams; ++i)
    if (i != stream) context.streams[i]->discard = AVDISCARD_ALL;

  const int64_t start = av_rescale_q(source->start_time(), kMicroseconds, sound.time_base);
  const PacketPtr packet = makePacket();
  LMFFAudioResample resample;
  resample.setOutFormat(format);
  int64_t first = start;
  while (resample.outputSamples() < kMostSeconds * format.sample_rate &&
         source->readPacket(packet.get())) {
    if (packet->stream_index != sound.index) {  // read when the input was probed
      av_packet_unref(packet.get());
      continue;
    }
    if (packet->pts == AV_NOPTS_VALUE || packet->pts >= start) break;
    first = std::min(first, packet->pts);
    // What says that it is hidden, and how much of it.
    packet->flags &= ~AV_PKT_FLAG_DISCARD;
    av_packet_free_side_data(packet.get());
    decodePacket(*decoder, packet.get(),
                 [&resample](const FramePtr& frame) { resample.writeFrame(frame.get()); });
    av_packet_unref(packet.get());
  }
  resample.flush();
  const int64_t length =
      std::min<int64_t>(av_rescale_q(start - first, sound.time_base, {1, format.sample_rate}),
                        resample.outputSamples());
  const auto channels =
      static_cast<size_t>(lm_get_channel_layout_nb_channels(format.channel_layout));
  JoinedSound::Samples samples(static_cast<size_t>(length) * channels);
  if (length > 0) resample.readSample(samples.data(), static_cast<int32_t>(length));
  return samples;
}

}  // namespace kestrel
