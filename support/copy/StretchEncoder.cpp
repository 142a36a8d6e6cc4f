#include "support/copy/StretchEncoder.h"

#include <algorithm>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/copy/FineEncoder.h"

namespace kestrel {

bool StretchEncoder::canEncode(AVCodecID codec) {
  return avcodec_find_decoder(codec) && canEncodeFinely(codec);
}

bool StretchEncoder::succeeded(int result) {
  if (result < 0 && !error_) error_ = libraryError(result);
  return result >= 0;
}

bool StretchEncoder::openDecoder() {
  const bool isOpen = succeeded(
      kestrel::openDecoder(decoder_, parameters_, {.timebase = stream_.time_base, .threads = 0}));
  // A stretch may begin with a key picture from which a decoder has to recover. Where the stretch
  // ends before it has, it would take the rest for broken and give none of it.
  if (isOpen) decoder_->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
  return isOpen;
}

bool StretchEncoder::openEncoder(const AVFrame& picture) {
  return succeeded(openFineEncoder(
      encoder_, {.parameters = parameters_, .rate = stream_.avg_frame_rate}, picture));
}

void StretchEncoder::push(const AVPacket& packet) {
  if (error_ || (!decoder_ && !openDecoder())) return;
  if ((packet.flags & AV_PKT_FLAG_DISCARD) == 0) decodingTimes_.insert(packet.dts);
  decode(&packet);
}

void StretchEncoder::finish() {
  if (decoder_ && !error_) decode(nullptr);
  if (encoder_ && !error_) encode(nullptr);
}

PacketPtr StretchEncoder::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

/// Gives the decoder a packet, or the end, and encodes what comes out of it. A damaged packet costs
/// its picture.
void StretchEncoder::decode(const AVPacket* packet) {
  decodePacket(*decoder_, packet, [this](const FramePtr& picture) {
    if (!error_) encode(picture.get());
  });
}

/// Encodes a picture, or what is left at the end.
void StretchEncoder::encode(AVFrame* picture) {
  if (picture && !encoder_ && !openEncoder(*picture)) return;
  if (picture) {
    shown_.push_back(
        {picture->pts != AV_NOPTS_VALUE ? picture->pts : picture->best_effort_timestamp,
         frameDuration(*picture)});
    picture->pts = count_++;
    picture->pict_type = AV_PICTURE_TYPE_NONE;
  }
  succeeded(encodeFrame(*encoder_, picture, [this](PacketPtr packet) { keep(std::move(packet)); }));
}

/// Gives a packet of the encoder the times of its picture.
void StretchEncoder::keep(PacketPtr packet) {
  if (shown_.empty()) return;
  const Shown shown = shown_.front();
  shown_.pop_front();
  packet->pts = packet->dts = shown.time;
  packet->duration = shown.duration;
  if (!decodingTimes_.empty()) {
    packet->dts = std::min(*decodingTimes_.begin(), packet->pts);
    decodingTimes_.erase(decodingTimes_.begin());
  }
  ready_.push_back(std::move(packet));
}

}  // namespace kestrel
