#include "convert/feed/SoundCheck.h"

#include "platform/codec/Codec.h"
#include "support/LibraryLog.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

SoundCheck::SoundCheck(const AVStream& stream, bool beginsAnywhere) : mayBeCut_(beginsAnywhere) {
  const AVCodec* const decoder = avcodec_find_decoder(stream.codecpar->codec_id);
  if (!decoder) return;
  decoder_.reset(avcodec_alloc_context3(decoder));
  if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream.codecpar) < 0) {
    decoder_.reset();
    return;
  }
  decoder_->pkt_timebase = stream.time_base;
  decoder_->thread_count = 1;  // what comes of a packet comes at once
  const LibraryLog log;
  if (openCodec(*decoder_, decoder) < 0) decoder_.reset();
}

bool SoundCheck::takes(const AVPacket& packet) {
  if (!decoder_) return true;
  const LibraryLog log;
  bool isHeard = false;
  const int errors = decodePacket(*decoder_, &packet, [&](const FramePtr&) { isHeard = true; });
  // Some decoders only complain of what they cannot use. Without a complaint sound may come later.
  const bool isTaken = errors == 0 && (isHeard || log.isSilent());
  if (!isTaken && !mayBeCut_) ++refused_;
  mayBeCut_ = false;
  return isTaken;
}

}  // namespace kestrel
