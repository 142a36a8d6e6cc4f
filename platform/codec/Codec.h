#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

/// The process-wide lock for opening and closing codecs. Nobody waits for input while holding it.
/// Hosts that open codecs of their own rely on it.
std::mutex& codecLock();

/// Opens a codec under the lock; use it instead of the library's function. Returns FFmpeg's code,
/// negative on failure.
int openCodec(AVCodecContext& context, const AVCodec* codec, AVDictionary** options = nullptr);

using FrameTaker = std::function<void(FramePtr)>;

/// Sends a packet to an open decoder, null at the end of the input, and passes on all frames that
/// are then ready; use it for all pictures and sound. Returns the number of errors, which come from
/// damaged packets (with threads possibly earlier ones); frames may follow them. `mark` is a number
/// other than 0 that the packet's frames carry.
int decodePacket(AVCodecContext& decoder, const AVPacket* packet, const FrameTaker& take,
                 int64_t mark = 0);

/// The mark of a frame. If the decoder does not pass marks on, a number that was never used as one.
int64_t frameMark(const AVFrame& frame);

}  // namespace kestrel
