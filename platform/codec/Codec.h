#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

/// The process-wide lock for opening and closing codecs, which `openCodec` and `CodecContextPtr`
/// take by themselves. Nobody waits for input while holding it.
std::mutex& codecLock();

/// Opens a codec under the lock; use it instead of the library's function. Returns FFmpeg's code,
/// negative on failure.
int openCodec(AVCodecContext& context, const AVCodec* codec, AVDictionary** options = nullptr);

/// What a decoder is opened with beside its stream's parameters.
struct DecoderOptions {
  AVRational timebase = {0, 1};                      ///< of the packets; 0: unknown
  int threads = 1;                                   ///< 0: as many as the machine suits
  AVSampleFormat sampleFormat = AV_SAMPLE_FMT_NONE;  ///< wanted, where the decoder has a choice
};

/// Opens the library's first decoder of a stream. Returns FFmpeg's code, negative on failure, and
/// `AVERROR_DECODER_NOT_FOUND` where there is none; `decoder` is null then.
int openDecoder(CodecContextPtr& decoder, const AVCodecParameters& parameters,
                const DecoderOptions& options = {});

using FrameTaker = std::function<void(FramePtr)>;

/// Sends a packet to an open decoder, null at the end of the input, and passes on all frames that
/// are then ready; use it for all pictures and sound. Returns the number of errors, which come from
/// damaged packets (with threads possibly earlier ones); frames may follow them. `mark` is a number
/// other than 0 that the packet's frames carry.
int decodePacket(AVCodecContext& decoder, const AVPacket* packet, const FrameTaker& take,
                 int64_t mark = 0);

/// The mark of a frame. If the decoder does not pass marks on, a number that was never used as one.
int64_t frameMark(const AVFrame& frame);

/// Takes over a packet, stamped in the time base that is said of it.
using PacketTaker = std::function<void(PacketPtr)>;

/// Sends a frame to an open encoder, null at the end of the input, and passes on all packets that
/// are then ready, in the encoder's time base; use it for all pictures and sound. Returns 0 or
/// FFmpeg's code for the first failure, negative; packets may have been passed on all the same. A
/// second end does nothing, a frame behind the end is refused with `AVERROR_EOF`.
int encodeFrame(AVCodecContext& encoder, const AVFrame* frame, const PacketTaker& take);

/// The end of the input by itself, for who takes what is left packet by packet. Returns as above.
int endEncoding(AVCodecContext& encoder);

/// Passes on the encoder's next packet. Returns 1 if there was one, 0 if none is ready or left,
/// FFmpeg's code on failure.
int takePacket(AVCodecContext& encoder, const PacketTaker& take);

}  // namespace kestrel
