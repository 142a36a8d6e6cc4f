#pragma once

// Owners of what codecs take and give, and of what converts pictures and sound.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace kestrel {

struct FrameDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketDeleter {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
/// Closes the codec under the codec lock; whoever lets go of one must not hold that.
struct CodecContextDeleter {
  void operator()(AVCodecContext* context) const;
};
struct SwsDeleter {
  void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct SwrDeleter {
  void operator()(SwrContext* context) const { swr_free(&context); }
};

using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;
using SwrPtr = std::unique_ptr<SwrContext, SwrDeleter>;

}  // namespace kestrel
