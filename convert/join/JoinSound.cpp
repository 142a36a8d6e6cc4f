#include "convert/join/JoinSound.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "convert/run/PlannedOutput.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/samplefmt.h>
}

namespace kestrel {

namespace {

constexpr int32_t kBlock = 1024;
constexpr int32_t kChannels = PartSound::kChannels;

/// By how much containers round times: sound that misses other sound by less than this follows it.
constexpr int64_t kRounding = PartSound::kRate / 200;

int64_t framesIn(const std::deque<float>& samples) {
  return static_cast<int64_t>(samples.size()) / kChannels;
}

}  // namespace

JoinSound::JoinSound(LMFFMovieFileOutput& output, const AVStream& first) : output_(output) {
  output.openAudio();
  stream_ = output.audioStream();
  if (!stream_) return;
  for (const auto& [key, value] : languageTag(first))
    av_dict_set(&stream_->metadata, key.c_str(), value.c_str(), 0);
  resample_.convertFormat(lm_get_default_audio_format(), output.outputAudioFormat());
}

// Pictures have their sound: what lies under them comes first, that of the part before and then
// that of the new one. Only what neither has is silent.
void JoinSound::meet(std::unique_ptr<PartSound> part, int64_t seam, int64_t begin) {
  ahead(kOrdinaryOverhang);
  const int64_t end = frames_ + framesIn(waiting_) - seam;
  pause_ = 0;
  part_ = std::move(part);
  if (!part_) return;
  if (std::abs(begin - end) <= kRounding) return;
  const int64_t cut = std::min(end, std::max<int64_t>(begin, 0));
  waiting_.resize(waiting_.size() - static_cast<size_t>((end - cut) * kChannels));
  if (begin < cut) drop(cut - begin);
  pause_ = std::max<int64_t>(begin - cut, 0);
}

void JoinSound::follow(std::unique_ptr<PartSound> part) {
  ahead(kOrdinaryOverhang);
  pause_ = 0;
  part_ = std::move(part);
}

void JoinSound::begin(std::unique_ptr<PartSound> part, int64_t seam, int64_t begin) {
  part_ = std::move(part);
  waiting_.clear();
  pause_ = std::max<int64_t>(seam - frames_, 0) + std::max<int64_t>(begin, 0);
  if (part_ && begin < 0) drop(-begin);
}

/// Leaves out frames of the part, of which none waits.
void JoinSound::drop(int64_t frames) {
  std::vector<float> block(static_cast<size_t>(kBlock) * kChannels);
  while (frames > 0) {
    const int32_t got =
        part_->read(block.data(), static_cast<int32_t>(std::min<int64_t>(frames, kBlock)));
    if (got == 0) return;
    frames -= got;
  }
}

int32_t JoinSound::ahead(int32_t most) {
  std::vector<float> block(static_cast<size_t>(kBlock) * kChannels);
  while (framesIn(waiting_) < most && (pause_ > 0 || part_)) {
    const auto pause = static_cast<int32_t>(std::min<int64_t>(pause_, kBlock));
    pause_ -= pause;
    if (pause > 0) std::ranges::fill(block, 0.F);
    const int32_t got = pause > 0 ? pause : part_->read(block.data(), kBlock);
    if (got == 0) break;
    waiting_.insert(waiting_.end(), block.begin(), block.begin() + std::ptrdiff_t{kChannels} * got);
  }
  return static_cast<int32_t>(std::min<int64_t>(framesIn(waiting_), most));
}

std::vector<float> JoinSound::take(int64_t end) {
  const int64_t wanted = std::max<int64_t>(end - frames_, 0);
  const int64_t got = ahead(static_cast<int32_t>(wanted));
  const int64_t missing = wanted - got;
  const int64_t silence = part_ ? std::max<int64_t>(missing - kOrdinaryOverhang, 0) : missing;
  const auto last = waiting_.begin() + static_cast<std::ptrdiff_t>(got * kChannels);
  std::vector<float> samples(waiting_.begin(), last);
  waiting_.erase(waiting_.begin(), last);
  samples.resize(samples.size() + static_cast<size_t>(silence * kChannels));
  frames_ += got + silence;
  return samples;
}

std::vector<float> JoinSound::rest(int64_t end) {
  ahead(kOrdinaryOverhang);
  part_.reset();
  return take(std::max(end, frames_ + framesIn(waiting_)));
}

void JoinSound::encode(const std::vector<float>& samples) {
  if (samples.empty()) return;
  resample_.writeSample(samples.data(), static_cast<int32_t>(samples.size() / kChannels));
  const AVCodecContext* encoder = output_.codecContext(stream_);
  if (encoder) encodeFrames(encoder->frame_size > 0 ? encoder->frame_size : kBlock);
}

void JoinSound::finish() {
  const AVCodecContext* encoder = output_.codecContext(stream_);
  if (!encoder) return;
  resample_.flush();
  encodeFrames(1);
  // Silence pushes the last samples out of an encoder that does not do so when it ends.
  if (!(encoder->codec->capabilities & AV_CODEC_CAP_DELAY) && encoder->initial_padding > 0) {
    encode(std::vector<float>(static_cast<size_t>(encoder->initial_padding) * kChannels));
    encodeFrames(1);
  }
  while (output_.writeFrame(nullptr, stream_)) {
  }
}

/// Encodes while at least `fewest` frames wait; the last one is as short as the encoder takes.
void JoinSound::encodeFrames(int32_t fewest) {
  const AVCodecContext& encoder = *output_.codecContext(stream_);
  const int32_t whole = encoder.frame_size > 0 ? encoder.frame_size : kBlock;
  const bool takesShort = (encoder.codec->capabilities &
                           (AV_CODEC_CAP_SMALL_LAST_FRAME | AV_CODEC_CAP_VARIABLE_FRAME_SIZE)) != 0;
  while (resample_.outputSamples() >= fewest) {
    AVFrame* frame = av_frame_alloc();
    frame->format = encoder.sample_fmt;
    frame->sample_rate = encoder.sample_rate;
    frame->nb_samples = whole;
    av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout);
    if (av_frame_get_buffer(frame, 0) >= 0) {
      av_samples_set_silence(frame->extended_data, 0, whole, encoder.ch_layout.nb_channels,
                             encoder.sample_fmt);
      frame->nb_samples = std::min(resample_.outputSamples(), whole);
      const int32_t count = frame->nb_samples;
      resample_.convertFrame(nullptr, frame);
      frame->nb_samples = takesShort ? count : whole;
      frame->pts = encoded_;
      encoded_ += frame->nb_samples;
      output_.writeFrame(frame, stream_);
    }
    av_frame_free(&frame);
  }
}

}  // namespace kestrel
