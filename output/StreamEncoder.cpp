#include "output/StreamEncoder.h"

#include <mutex>

#include "output/DictionaryEntries.h"
#include "output/EncoderCompat.h"
#include "support/CodecLock.h"
#include "support/LibraryLog.h"

namespace kestrel {

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
  const std::lock_guard guard(codecLock());
  const LibraryLog log;
  const int result = avcodec_open2(context_.get(), codec, dictionary.get());
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
