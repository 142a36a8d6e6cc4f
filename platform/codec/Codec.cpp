#include "platform/codec/Codec.h"

#include <utility>

namespace kestrel {

namespace {

/// A decoder that answers so many errors in a row has nothing more.
constexpr int kMostErrorsInARow = 1000;

int send(AVCodecContext& decoder, const AVPacket* packet, int64_t mark) {
#ifdef AV_CODEC_FLAG_COPY_OPAQUE
  decoder.flags |= AV_CODEC_FLAG_COPY_OPAQUE;
  if (!packet) return avcodec_send_packet(&decoder, nullptr);
  const PacketPtr marked(av_packet_clone(packet));
  if (!marked) return AVERROR(ENOMEM);
  marked->opaque = reinterpret_cast<void*>(static_cast<intptr_t>(mark));
  return avcodec_send_packet(&decoder, marked.get());
#else
  decoder.reordered_opaque = mark;
  return avcodec_send_packet(&decoder, packet);
#endif
}

bool isEnd(int result) { return result == AVERROR(EAGAIN) || result == AVERROR_EOF; }

/// Answers how many errors stood between the frames.
int receive(AVCodecContext& decoder, const FrameTaker& take) {
  int errors = 0;
  for (int inARow = 0; inARow < kMostErrorsInARow;) {
    FramePtr frame(av_frame_alloc());
    const int result = frame ? avcodec_receive_frame(&decoder, frame.get()) : AVERROR_EOF;
    if (isEnd(result)) break;
    if (result < 0) {
      ++errors;
      ++inARow;
      continue;
    }
    inARow = 0;
    take(std::move(frame));
  }
  return errors;
}

int send(AVCodecContext& encoder, const AVFrame* frame) {
  const int result = avcodec_send_frame(&encoder, frame);
  return !frame && result == AVERROR_EOF ? 0 : result;
}

/// Returns 0 once no packet is ready, negative on failure.
int takePackets(AVCodecContext& encoder, const PacketTaker& take) {
  int taken = 1;
  while (taken > 0) taken = takePacket(encoder, take);
  return taken;
}

}  // namespace

std::mutex& codecLock() {
  static std::mutex mutex;
  return mutex;
}

void CodecContextDeleter::operator()(AVCodecContext* context) const {
  const std::lock_guard guard(codecLock());
  avcodec_free_context(&context);
}

int openCodec(AVCodecContext& context, const AVCodec* codec, AVDictionary** options) {
  const std::lock_guard guard(codecLock());
  return avcodec_open2(&context, codec, options);
}

int openDecoder(CodecContextPtr& decoder, const AVCodecParameters& parameters,
                const DecoderOptions& options) {
  decoder.reset();
  const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
  if (!codec) return AVERROR_DECODER_NOT_FOUND;
  CodecContextPtr opened(avcodec_alloc_context3(codec));
  if (!opened) return AVERROR(ENOMEM);
  int result = avcodec_parameters_to_context(opened.get(), &parameters);
  if (result < 0) return result;
  opened->pkt_timebase = options.timebase;
  opened->thread_count = options.threads;
  opened->request_sample_fmt = options.sampleFormat;
  result = openCodec(*opened, codec);
  if (result >= 0) decoder = std::move(opened);
  return result;
}

int decodePacket(AVCodecContext& decoder, const AVPacket* packet, const FrameTaker& take,
                 int64_t mark) {
  int errors = 0;
  int result = send(decoder, packet, mark);
  if (result == AVERROR(EAGAIN)) {
    errors += receive(decoder, take);
    result = send(decoder, packet, mark);
  }
  if (result < 0 && !isEnd(result)) ++errors;
  return errors + receive(decoder, take);
}

int64_t frameMark(const AVFrame& frame) {
#ifdef AV_CODEC_FLAG_COPY_OPAQUE
  return static_cast<int64_t>(reinterpret_cast<intptr_t>(frame.opaque));
#else
  return frame.reordered_opaque;
#endif
}

int encodeFrame(AVCodecContext& encoder, const AVFrame* frame, const PacketTaker& take) {
  int sent = send(encoder, frame);
  if (sent == AVERROR(EAGAIN)) {
    if (const int taken = takePackets(encoder, take); taken < 0) return taken;
    sent = send(encoder, frame);
  }
  const int taken = takePackets(encoder, take);
  return sent < 0 ? sent : taken;
}

int endEncoding(AVCodecContext& encoder) { return send(encoder, nullptr); }

int takePacket(AVCodecContext& encoder, const PacketTaker& take) {
  PacketPtr packet(av_packet_alloc());
  const int result = packet ? avcodec_receive_packet(&encoder, packet.get()) : AVERROR(ENOMEM);
  if (result >= 0) take(std::move(packet));
  if (isEnd(result)) return 0;
  return result < 0 ? result : 1;
}

}  // namespace kestrel
