#pragma once

// Owners of the media libraries' handles. Every handle that the engine holds is held by one of
// these, so that no engine file frees a handle by name.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <kestrel/LMFFFormat.h>

#include <memory>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

struct SwsDeleter {
  void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct SwrDeleter {
  void operator()(SwrContext* context) const { swr_free(&context); }
};
struct AudioFifoDeleter {
  void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};

using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;
using SwrPtr = std::unique_ptr<SwrContext, SwrDeleter>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;

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
