#pragma once

// Owners of the media libraries' handles, with those in "platform/codec/CodecOwners.h". Every
// handle that the engine holds is held by one of these, so that no engine file frees a handle by
// name.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

#include <kestrel/LMFFFormat.h>

#include <memory>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

struct AudioFifoDeleter {
  void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};
/// Frees a context made by `avio_alloc_context`, and its buffer, which may not be the one that it
/// was made with.
struct IOContextDeleter {
  void operator()(AVIOContext* context) const {
    av_freep(&context->buffer);
    avio_context_free(&context);
  }
};

using AudioFifoPtr = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;
using IOContextPtr = std::unique_ptr<AVIOContext, IOContextDeleter>;

inline FramePtr makeFrame() { return FramePtr(av_frame_alloc()); }
inline PacketPtr makePacket() { return PacketPtr(av_packet_alloc()); }

inline AVRational toAV(Rational r) { return {r.num, r.den}; }
inline Rational fromAV(AVRational r) { return {r.num, r.den}; }

/// Microseconds, the engine's time base, as the libraries write it.
inline constexpr AVRational kMicroseconds{1, 1000000};

/// The owning dictionary: `get` lends it to calls that take `AVDictionary**`.
class Dictionary {
 public:
  Dictionary() = default;
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;
  ~Dictionary() { av_dict_free(&dict_); }

  AVDictionary** get() { return &dict_; }

 private:
  AVDictionary* dict_ = nullptr;
};

}  // namespace kestrel
