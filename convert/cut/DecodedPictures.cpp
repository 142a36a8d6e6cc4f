#include "convert/cut/DecodedPictures.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <utility>

#include "convert/probe/Input.h"
#include "platform/codec/Codec.h"

namespace kestrel {

namespace {

/// How far before a key picture (microseconds) it is looked for, one after the other: indexes of
/// containers go by other times than those of showing, or are estimates.
constexpr int64_t kApproaches[] = {0, 1000000, 10000000, 60000000};

}  // namespace

DecodedPictures::DecodedPictures(std::shared_ptr<LMMediaSource> source, uint32_t stream)
    : source_(std::move(source)), stream_(*source_->formatContext()->streams[stream]) {
  AVFormatContext& input = *source_->formatContext();
  for (unsigned i = 0; i < input.nb_streams; ++i)
    if (i != stream) input.streams[i]->discard = AVDISCARD_ALL;
  source_->fillInTimes();
}

int64_t DecodedPictures::timeOf(const AVFrame& picture) {
  return picture.pts != AV_NOPTS_VALUE ? picture.pts : picture.best_effort_timestamp;
}

void DecodedPictures::seek(int64_t entry, int64_t time) {
  ready_.clear();
  errors_ = 0;
  isDrained_ = false;
  time_ = time;
  const int result =
      openDecoder(decoder_, *stream_.codecpar, {.timebase = stream_.time_base, .threads = 0});
  if (result < 0) throw Failure::input(source_->path(), "the pictures cannot be decoded");
  const int64_t at = av_rescale_q_rnd(entry, stream_.time_base, kMicroseconds, AV_ROUND_DOWN);
  for (const int64_t approach : kApproaches)
    if (source_->seekBackward(at - approach) && findEntry(entry)) return;
  if (source_->rewind() && findEntry(entry)) return;
  throw Failure::input(source_->path(), "a key picture is not found a second time");
}

/// Reads up to the key picture and decodes that; false where it lies before.
bool DecodedPictures::findEntry(int64_t entry) {
  while (read()) {
    const bool isKey = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
    if (isKey && packet_->pts == entry) {
      decode(packet_.get());
      return true;
    }
    if (isKey && packet_->pts > entry) return false;
  }
  return false;
}

/// Reads the stream's next packet.
bool DecodedPictures::read() {
  while (source_->readPacket((av_packet_unref(packet_.get()), packet_.get())))
    if (packet_->stream_index == stream_.index) return true;
  if (isInterrupted(*source_)) throw Failure::interrupted();
  return false;
}

void DecodedPictures::decode(const AVPacket* packet) {
  errors_ += decodePacket(*decoder_, packet, [this](FramePtr picture) {
    if (timeOf(*picture) >= time_) ready_.push_back(std::move(picture));
  });
}

FramePtr DecodedPictures::next() {
  while (ready_.empty() && !isDrained_) {
    isDrained_ = !read();
    decode(isDrained_ ? nullptr : packet_.get());
  }
  if (ready_.empty()) return nullptr;
  FramePtr picture = std::move(ready_.front());
  ready_.pop_front();
  return picture;
}

}  // namespace kestrel
