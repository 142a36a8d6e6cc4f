#include "support/copy/DisplayTimes.h"

#include <algorithm>

extern "C" {
#include <libavutil/common.h>
}

namespace kestrel {

namespace {

/// No picture is held back for longer, whatever the stream claims.
constexpr size_t kMostWaiting = 64;

bool numbersPictures(AVCodecID codec) {
  return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
}

}  // namespace

DisplayTimes::DisplayTimes(const AVCodecParameters& parameters) {
  if (parameters.codec_type != AVMEDIA_TYPE_VIDEO || parameters.video_delay <= 0) return;
  context_.reset(avcodec_alloc_context3(nullptr));
  parser_.reset(av_parser_init(parameters.codec_id));
  if (!context_ || !parser_) return;
  avcodec_parameters_to_context(context_.get(), &parameters);
  parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  delay_ = static_cast<size_t>(parameters.video_delay);
}

void DisplayTimes::push(PacketPtr packet) {
  const int64_t time = packet->dts;
  if (count_ > 0) step_ = std::max<int64_t>(time - lastTime_, 1);
  lastTime_ = time;
  count_++;
  active_ = active_ || packet->pts == AV_NOPTS_VALUE;
  // The first packet may be the only one to tell the parser how the stream is coded.
  const Key key = active_ || count_ == 1 ? keyOf(*packet) : Key{};
  if (active_) order_.insert(key);
  waiting_.push_back({std::move(packet), key, !active_});
  if (order_.size() > delay_ || waiting_.size() > kMostWaiting) showFirst(time);
}

void DisplayTimes::finish() {
  for (int64_t time = lastTime_; !order_.empty(); showFirst(time)) time = av_sat_add64(time, step_);
}

PacketPtr DisplayTimes::pop() {
  if (waiting_.empty() || !waiting_.front().shown) return nullptr;
  PacketPtr packet = std::move(waiting_.front().packet);
  waiting_.pop_front();
  return packet;
}

// A time that the packet brought along is kept.
void DisplayTimes::showFirst(int64_t time) {
  if (order_.empty()) return;
  const Key first = *order_.begin();
  order_.erase(order_.begin());
  const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                  [&](const Waiting& waiting) { return waiting.key == first; });
  found->shown = true;
  if (found->packet->pts == AV_NOPTS_VALUE) found->packet->pts = time;
}

DisplayTimes::Key DisplayTimes::keyOf(const AVPacket& packet) {
  if (!parser_) return {0, 0, count_};
  parse(packet);
  return numbersPictures(context_->codec_id) ? keyByNumber() : keyByType();
}

void DisplayTimes::parse(const AVPacket& packet) {
  uint8_t* data = nullptr;
  int size = 0;
  av_parser_parse2(parser_.get(), context_.get(), &data, &size, packet.data, packet.size,
                   packet.pts, packet.dts, packet.pos);
}

// The stream numbers its pictures, from 0 on again after a picture that nothing reaches across.
DisplayTimes::Key DisplayTimes::keyByNumber() {
  if (parser_->key_frame == 1 && parser_->output_picture_number == 0) sequence_++;
  return {sequence_, parser_->output_picture_number, count_};
}

// A B picture comes before the picture that others refer to and that precedes it in the stream.
DisplayTimes::Key DisplayTimes::keyByType() {
  if (parser_->pict_type == AV_PICTURE_TYPE_B) return {sequence_, 0, count_};
  return {++sequence_, 1, count_};
}

}  // namespace kestrel
