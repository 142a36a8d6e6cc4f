#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "convert/join/PartSound.h"
#include "convert/probe/Input.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

struct Deleter {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

/// More than any encoder's delay and any cut between two pictures.
constexpr int64_t kMost = 5 * int64_t{PartSound::kRate};

}  // namespace

std::vector<float> hiddenSound(const std::string& path, uint32_t stream,
                               const Interrupt& interrupt) {
  const auto source = openInput(path, std::nullopt, interrupt);
  AVFormatContext& context = *source->formatContext();
  const AVStream& sound = *context.streams[stream];
  const AVCodec* codec = avcodec_find_decoder(sound.codecpar->codec_id);
  const std::unique_ptr<AVCodecContext, Deleter> decoder(avcodec_alloc_context3(codec));
  if (!codec || !decoder || avcodec_parameters_to_context(decoder.get(), sound.codecpar) < 0 ||
      avcodec_open2(decoder.get(), codec, nullptr) < 0)
    return {};
  for (unsigned i = 0; i < context.nb_streams; ++i)
    if (i != stream) context.streams[i]->discard = AVDISCARD_ALL;

  const int64_t start = av_rescale_q(source->start_time(), AV_TIME_BASE_Q, sound.time_base);
  const std::unique_ptr<AVPacket, Deleter> packet(av_packet_alloc());
  const std::unique_ptr<AVFrame, Deleter> frame(av_frame_alloc());
  LMFFAudioResample resample;
  int64_t first = start;
  while (resample.outputSamples() < kMost && source->readPacket(packet.get())) {
    if (packet->stream_index != sound.index) {  // read when the input was probed
      av_packet_unref(packet.get());
      continue;
    }
    if (packet->pts == AV_NOPTS_VALUE || packet->pts >= start) break;
    first = std::min(first, packet->pts);
    // What says that it is hidden, and how much of it.
    packet->flags &= ~AV_PKT_FLAG_DISCARD;
    av_packet_free_side_data(packet.get());
    avcodec_send_packet(decoder.get(), packet.get());
    while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) resample.writeFrame(frame.get());
    av_packet_unref(packet.get());
  }
  resample.flush();
  av_packet_unref(packet.get());
  const int64_t length =
      std::min<int64_t>(av_rescale_q(start - first, sound.time_base, {1, PartSound::kRate}),
                        resample.outputSamples());
  std::vector<float> samples(static_cast<size_t>(length) * PartSound::kChannels);
  if (length > 0) resample.readSample(samples.data(), static_cast<int32_t>(length));
  return samples;
}

}  // namespace kestrel
