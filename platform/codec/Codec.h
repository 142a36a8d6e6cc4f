#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

/// The process-wide lock under which codecs are opened and closed. Nothing that waits for an input
/// holds it.
/// Hosts that open codecs of their own beside the engine's rely on it.
std::mutex& codecLock();

/// Opens a codec, under the lock: the one place where that is done. Answers the library's code,
/// negative where it failed.
int openCodec(AVCodecContext& context, const AVCodec* codec, AVDictionary** options = nullptr);

using FrameTaker = std::function<void(FramePtr)>;

/// Feeds an open decoder a packet, null for the end of the input, and hands over every frame that
/// it has ready then: the one place where packets are sent and frames received. Answers how many
/// errors came out. They belong to damaged packets, with threads to some sent before, and stand
/// between the frames, not at their end. `mark`: a number, not 0, that the packet's frames carry.
int decodePacket(AVCodecContext& decoder, const AVPacket* packet, const FrameTaker& take,
                 int64_t mark = 0);

/// The mark that a frame carries; of a decoder that hands none on, anything that was never one.
int64_t frameMark(const AVFrame& frame);

}  // namespace kestrel
