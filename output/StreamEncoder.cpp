#include "output/StreamEncoder.h"

#include <fmt/format.h>

#include <mutex>

#include "output/EncoderCompat.h"
#include "platform/codec/Codec.h"
#include "support/DictionaryEntries.h"
#include "support/FFmpegError.h"
#include "support/LibraryLog.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
}

namespace kestrel {

namespace {

std::string describedPicture(int width, int height, int format) {
  const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(format));
  return fmt::format("{} x {}, {}", width, height, name ? name : "no format");
}

std::string describedSound(int channels, int rate, int format) {
  const char* name = av_get_sample_fmt_name(static_cast<AVSampleFormat>(format));
  return fmt::format("{} channels, {} Hz, {}", channels, rate, name ? name : "no format");
}

/// What tells whether two pictures, or two pieces of sound, are stored alike.
std::string described(const AVFrame& frame, AVMediaType type) {
  return type == AVMEDIA_TYPE_VIDEO
             ? describedPicture(frame.width, frame.height, frame.format)
             : describedSound(frame.ch_layout.nb_channels, frame.sample_rate, frame.format);
}

std::string described(const AVCodecContext& encoder) {
  return encoder.codec_type == AVMEDIA_TYPE_VIDEO
             ? describedPicture(encoder.width, encoder.height, encoder.pix_fmt)
             : describedSound(encoder.ch_layout.nb_channels, encoder.sample_rate,
                              encoder.sample_fmt);
}

bool isStoredAlike(const AVFrame& frame, const AVCodecContext& encoder) {
  if (encoder.codec_type == AVMEDIA_TYPE_VIDEO)
    return frame.format == encoder.pix_fmt && frame.width == encoder.width &&
           frame.height == encoder.height;
  const bool hasRate = frame.sample_rate == 0 || frame.sample_rate == encoder.sample_rate;
  return frame.format == encoder.sample_fmt && hasRate &&
         frame.ch_layout.nb_channels == encoder.ch_layout.nb_channels;
}

}  // namespace

StreamEncoder::StreamEncoder(AVStream* stream, const AVCodec* codec)
    : stream_(stream), context_(avcodec_alloc_context3(codec)) {}

StreamEncoder::~StreamEncoder() {
  const std::lock_guard guard(codecLock());
  context_.reset();
}

Error StreamEncoder::open(const std::map<std::string, std::string>& options) {
  describeStream();
  Error error = openContext(options);
  if (!error) describeStream();
  return error;
}

Error StreamEncoder::openContext(const std::map<std::string, std::string>& options) {
  Dictionary dictionary;
  addEntries(options, dictionary.get());
  const AVCodec* codec = context_->codec;
  const LibraryLog log;
  const int result = openCodec(*context_, codec, dictionary.get());
  if (result < 0) return log.explain(result, codec->name);
  return unknownOption(*dictionary.get());
}

void StreamEncoder::describeStream() {
  avcodec_parameters_from_context(stream_->codecpar, context_.get());
  copyEncoderSideData(*context_, *stream_);
  if (context_->time_base.num > 0 && context_->time_base.den > 0) {
    stream_->time_base = context_->time_base;
  }
  stream_->avg_frame_rate = context_->framerate;
}

Error StreamEncoder::refusal(const AVFrame& frame) const {
  if (isStoredAlike(frame, *context_)) return {};
  return engineError(AVERROR(EINVAL),
                     fmt::format("a frame of another format ({}) than the one that "
                                 "is encoded ({})",
                                 described(frame, context_->codec_type), described(*context_)));
}

int StreamEncoder::send(const AVFrame& frame, int64_t duration) {
  const int result = avcodec_send_frame(context_.get(), &frame);
  if (result >= 0 && duration > 0) durations_[frame.pts] = duration;
  return result;
}

void StreamEncoder::finish() {
  if (finished_) return;
  finished_ = true;
  avcodec_send_frame(context_.get(), nullptr);
}

int StreamEncoder::receive(AVPacket& packet) {
  const int result = avcodec_receive_packet(context_.get(), &packet);
  if (result < 0) return result;
  setDuration(packet);
  av_packet_rescale_ts(&packet, context_->time_base, stream_->time_base);
  return 0;
}

void StreamEncoder::setDuration(AVPacket& packet) {
  if (const auto found = durations_.find(packet.pts); found != durations_.end()) {
    if (packet.duration <= 0) packet.duration = found->second;
    durations_.erase(found);
  }
  // What should have been shown before this is decoded has been left out by the encoder.
  durations_.erase(durations_.begin(), durations_.lower_bound(packet.dts));
}

}  // namespace kestrel
