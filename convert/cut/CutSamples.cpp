#include "convert/cut/CutSamples.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "convert/probe/Input.h"
#include "platform/codec/Codec.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace kestrel {

namespace {

/// From how long before a window sound is decoded; microseconds. No codec remembers more.
constexpr int64_t kLead = 500000;

/// Times that are off by less count as those of sound that goes on: containers round.
constexpr int kJitterParts = 250;  // of a second

/// Of silence at once, samples.
constexpr int64_t kMostSilence = 4096;

}  // namespace

FramePtr partOf(const AVFrame& frame, int64_t begin, int64_t count) {
  FramePtr part(av_frame_clone(&frame));
  if (!part) return nullptr;
  const auto format = static_cast<AVSampleFormat>(frame.format);
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const int channels = frame.ch_layout.nb_channels;
  const int64_t size = av_get_bytes_per_sample(format) * (isPlanar ? 1 : channels);
  const int planes = isPlanar ? channels : 1;
  for (int i = 0; i < planes; ++i) {
    part->extended_data[i] += begin * size;
    if (i < AV_NUM_DATA_POINTERS) part->data[i] = part->extended_data[i];
  }
  part->nb_samples = static_cast<int>(count);
  return part;
}

CutSamples::CutSamples(std::shared_ptr<LMMediaSource> source, uint32_t stream,
                       const std::vector<CutWindow>& windows, AVRational timebase)
    : source_(std::move(source)),
      stream_(*source_->formatContext()->streams[stream]),
      rate_(stream_.codecpar->sample_rate) {
  AVFormatContext& input = *source_->formatContext();
  for (unsigned i = 0; i < input.nb_streams; ++i)
    if (i != stream) input.streams[i]->discard = AVDISCARD_ALL;
  const AVRational samples{1, rate_};
  for (const CutWindow& window : windows) {
    const int64_t end = av_rescale_q(window.place + window.length(), timebase, samples);
    spans_.push_back({av_rescale_q(window.start, timebase, samples),
                      end - av_rescale_q(window.place, timebase, samples)});
  }
}

void CutSamples::begin(const Span& span) {
  isBegun_ = true;
  given_ = 0;
  ready_.clear();
  read_ = 0;
  counted_.reset();
  isDrained_ = openDecoder(decoder_, *stream_.codecpar, {.timebase = stream_.time_base}) < 0;
  const int64_t time = av_rescale_q(span.start, {1, rate_}, kMicroseconds) - kLead;
  if (!source_->seekBackward(time)) source_->rewind();
}

void CutSamples::keep(FramePtr frame) {
  int64_t place = counted_.value_or(0);
  const int64_t time = frame->pts != AV_NOPTS_VALUE ? frame->pts : frame->best_effort_timestamp;
  if (time != AV_NOPTS_VALUE) {
    const int64_t told = av_rescale_q(time, stream_.time_base, {1, rate_});
    if (!counted_ || std::llabs(told - place) > rate_ / kJitterParts) place = told;
  }
  counted_ = place + frame->nb_samples;
  ready_.push_back({std::move(frame), place});
}

/// Decodes the next packet of the track; false behind the last.
bool CutSamples::decodeMore() {
  if (isDrained_) return false;
  ready_.clear();
  read_ = 0;
  const auto take = [this](FramePtr frame) { keep(std::move(frame)); };
  while (source_->readPacket((av_packet_unref(packet_.get()), packet_.get()))) {
    if (packet_->stream_index != stream_.index) continue;
    decodePacket(*decoder_, packet_.get(), take);
    return true;
  }
  if (isInterrupted(*source_)) throw Failure::interrupted();
  isDrained_ = true;
  decodePacket(*decoder_, nullptr, take);
  return true;
}

FramePtr CutSamples::silence(int64_t count) const {
  FramePtr frame = makeFrame();
  const AVCodecParameters& sound = *stream_.codecpar;
  frame->format = decoder_ ? decoder_->sample_fmt : sound.format;
  frame->sample_rate = rate_;
  frame->nb_samples = static_cast<int>(std::min(count, kMostSilence));
  if (av_channel_layout_copy(&frame->ch_layout, &sound.ch_layout) < 0 ||
      av_frame_get_buffer(frame.get(), 0) < 0)
    throw std::bad_alloc();
  av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, sound.ch_layout.nb_channels,
                         static_cast<AVSampleFormat>(frame->format));
  return frame;
}

FramePtr CutSamples::next() {
  while (span_ < spans_.size()) {
    const Span& span = spans_[span_];
    if (!isBegun_) begin(span);
    const int64_t wanted = span.start + given_;
    const int64_t left = span.count - given_;
    if (left <= 0) {
      ++span_;
      isBegun_ = false;
      continue;
    }
    if (read_ == ready_.size()) {
      if (decodeMore()) continue;
      FramePtr rest = silence(left);
      given_ += rest->nb_samples;
      return rest;
    }
    const Placed& placed = ready_[read_];
    const int64_t end = placed.place + placed.frame->nb_samples;
    if (end <= wanted) {
      ++read_;
      continue;
    }
    FramePtr piece = placed.place > wanted ? silence(std::min(left, placed.place - wanted))
                                           : partOf(*placed.frame, wanted - placed.place,
                                                    std::min(left, end - wanted));
    if (!piece) throw std::bad_alloc();
    given_ += piece->nb_samples;
    return piece;
  }
  return nullptr;
}

}  // namespace kestrel
