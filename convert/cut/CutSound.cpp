#include "convert/cut/CutSound.h"

#include <kestrel/LMFFAudioResample.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <utility>

#include "convert/cut/CutSamples.h"
#include "convert/probe/Codecs.h"
#include "support/Containers.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/copy/StreamCopier.h"
#include "support/encode/SoundEncoder.h"
#include "support/encode/StreamEncoder.h"

namespace kestrel {

namespace {

bool isLossless(AVCodecID codec) {
  const AVCodecDescriptor* known = avcodec_descriptor_get(codec);
  return known && (known->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
         (known->props & AV_CODEC_PROP_LOSSY) == 0;
}

/// How many packets a decoder needs before one so that this comes out right; 2 of those that are
/// not named.
size_t leadOf(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_MP3:  // up to 511 bytes of those before
      return 10;
    case AV_CODEC_ID_OPUS:  // 80 ms
      return 5;
    default:
      return 2;
  }
}

/// Packets as they are. Those in front, which a decoder needs, the container hides by an edit list.
class CopiedSound : public CutSound {
 public:
  CopiedSound(const CutJob& job, const AVStream& input, const CutWindow& window, AVStream& output,
              Muxer& muxer)
      : job_(job),
        input_(input),
        output_(output),
        muxer_(muxer),
        copier_(input, output, *muxer.context()->oformat),
        rate_(input.codecpar->sample_rate),
        start_(av_rescale_q(window.start, job.index.timebase, {1, rate_})),
        end_(av_rescale_q(window.end, job.index.timebase, {1, rate_})) {
    output.time_base = {1, rate_};
  }

  const Error& error() const { return copier_.error(); }
  void settle() { copier_.settle(); }

  void take(const AVPacket& packet) override {
    if (isDone_ || packet.pts == AV_NOPTS_VALUE) return;
    const int64_t place = placeOf(packet);
    isDone_ = place >= end_;
    if (isDone_) return;
    PacketPtr own(av_packet_clone(&packet));
    if (!own) throw std::bad_alloc();
    const int64_t length = lengthOf(packet);
    counted_ = place + length;
    // What says that it is hidden.
    own->flags &= ~AV_PKT_FLAG_DISCARD;
    av_packet_free_side_data(own.get());
    own->pts = own->dts = place - start_;
    own->duration = std::min(length, end_ - place);
    waiting_.push_back(std::move(own));
    if (place + length <= start_) {
      while (waiting_.size() > leadOf(input_.codecpar->codec_id)) waiting_.pop_front();
      return;
    }
    for (; !waiting_.empty(); waiting_.pop_front()) write(std::move(waiting_.front()));
  }

  bool isDone() const override { return isDone_; }
  void pump(int64_t) override {}

  void finish() override {
    copier_.finish();
    writeReady();
  }

  std::vector<CutStretch> stretches() const override {
    const auto time = [this](int64_t samples) {
      return av_rescale_q(samples, {1, rate_}, kMicroseconds) - job_.start;
    };
    return {{.kind = "audio",
             .stream = static_cast<uint32_t>(input_.index),
             .start = time(start_),
             .end = time(end_),
             .packets = packets_}};
  }

 private:
  static constexpr int kJitterParts = 250;  // of a second: containers round

  int64_t placeOf(const AVPacket& packet) const {
    const int64_t told = av_rescale_q(packet.pts, input_.time_base, {1, rate_});
    const bool goesOn = counted_ && std::llabs(told - *counted_) <= rate_ / kJitterParts;
    return goesOn ? *counted_ : told;
  }

  int64_t lengthOf(const AVPacket& packet) const {
    const int known = av_get_audio_frame_duration2(input_.codecpar, packet.size);
    const int64_t told = av_rescale_q(packet.duration, input_.time_base, {1, rate_});
    const bool isExact = input_.time_base.num == 1 && input_.time_base.den == rate_;
    return (isExact && told > 0) || known <= 0 ? told : known;
  }

  void write(PacketPtr packet) {
    ++packets_;
    av_packet_rescale_ts(packet.get(), {1, rate_}, output_.time_base);
    copier_.push(std::move(packet));
    writeReady();
  }

  void writeReady() {
    while (PacketPtr packet = copier_.pop()) muxer_.write(*packet, output_);
  }

  const CutJob& job_;
  const AVStream& input_;
  AVStream& output_;
  Muxer& muxer_;
  StreamCopier copier_;
  const int32_t rate_;
  const int64_t start_;  // samples
  const int64_t end_;
  std::optional<int64_t> counted_;
  std::deque<PacketPtr> waiting_;
  int64_t packets_ = 0;
  bool isDone_ = false;
};

class EncodedSound : public CutSound {
 public:
  EncodedSound(const CutJob& job, const AVStream& input, const std::vector<CutWindow>& windows,
               const AVCodec* codec, AVStream& output, Muxer& muxer, FirstError& errors,
               std::string why)
      : job_(job),
        input_(input),
        windows_(windows),
        errors_(errors),
        samples_(job.reader(), static_cast<uint32_t>(input.index), windows, job.index.timebase),
        encoder_(&output, codec, *muxer.context()->oformat),
        write_([this, &muxer, &output](PacketPtr packet) {
          count(*packet, output);
          muxer.write(*packet, output);
        }),
        feed_(encoder_, errors, write_),
        packets_(windows.size()) {
    why_ = std::move(why);
  }

  Error open() {
    const AVCodecParameters& sound = *input_.codecpar;
    LMFFMovieFileOutputFormat format;
    format.sample_rate = sound.sample_rate;
    AVChannelLayout usual{};
    if (layoutMask(sound.ch_layout) == 0)
      av_channel_layout_default(&usual, sound.ch_layout.nb_channels);
    format.channel_layout =
        layoutMask(sound.ch_layout) != 0 ? layoutMask(sound.ch_layout) : layoutMask(usual);
    constexpr int64_t kLeastRate = 96000;  // of a channel
    format.audio_bitrate = static_cast<int32_t>(
        std::max<int64_t>(sound.bit_rate, kLeastRate * sound.ch_layout.nb_channels));
    const bool keepsAll = isLossless(encoder_.context()->codec->id);
    if (keepsAll) format.audio_bitrate = 0;
    configureSound(format, keepsAll ? bits() : 0, *encoder_.context());
    const Error error = encoder_.open({});
    if (error) return error;
    LMFFAudioFormat to;
    to.sample_fmt = encoder_.context()->sample_fmt;
    to.sample_rate = sound.sample_rate;
    to.channel_layout = format.channel_layout;
    resample_.setOutFormat(to);
    return {};
  }

  void take(const AVPacket&) override {}
  bool isDone() const override { return true; }

  void pump(int64_t time) override {
    const int64_t end = av_rescale_q(time, kMicroseconds, {1, samples_.rate()});
    while (!isOver_ && given_ < end && !errors_.get()) give();
  }

  void finish() override {
    while (!isOver_ && !errors_.get()) give();
    resample_.flush();
    feed_.finish(queue_);
    encoder_.finish();
    while (encoder_.takeNext(errors_, write_)) continue;
  }

  std::vector<CutStretch> stretches() const override {
    std::vector<CutStretch> all;
    for (const CutWindow& window : windows_) {
      const auto time = [this](int64_t ticks) {
        return av_rescale_q(ticks, job_.index.timebase, kMicroseconds) - job_.start;
      };
      all.push_back({.kind = "audio",
                     .stream = static_cast<uint32_t>(input_.index),
                     .start = time(window.start),
                     .end = time(window.end),
                     .isEncoded = true,
                     .packets = packets_[all.size()],
                     .why = why_});
    }
    return all;
  }

 private:
  /// The significant bits of a sample.
  int32_t bits() const {
    const AVCodecParameters& sound = *input_.codecpar;
    if (sound.bits_per_raw_sample > 0) return sound.bits_per_raw_sample;
    if (sound.bits_per_coded_sample > 0) return sound.bits_per_coded_sample;
    return 8 * av_get_bytes_per_sample(static_cast<AVSampleFormat>(sound.format));
  }

  void count(const AVPacket& packet, const AVStream& output) {
    const int64_t time = av_rescale_q(packet.pts, output.time_base, job_.index.timebase);
    size_t window = 0;
    while (window + 1 < windows_.size() && windows_[window + 1].place <= time) ++window;
    ++packets_[window];
  }

  void give() {
    const FramePtr piece = samples_.next();
    isOver_ = !piece;
    if (isOver_) return;
    given_ += piece->nb_samples;
    resample_.writeFrame(piece.get());
    feed_.encode(queue_);
  }

  const CutJob& job_;
  const AVStream& input_;
  const std::vector<CutWindow>& windows_;
  FirstError& errors_;
  CutSamples samples_;
  StreamEncoder encoder_;
  LMFFAudioResample resample_;
  const PacketTaker write_;
  SoundEncoder feed_;
  const SoundQueue queue_{
      .count = [this] { return resample_.outputSamples(); },
      .read = [this](AVFrame& frame) { resample_.convertFrame(nullptr, &frame); }};
  int64_t given_ = 0;
  std::vector<int64_t> packets_;  // by window
  bool isOver_ = false;
};

/// Why a track is not copied; "" where it is.
std::string whyEncoded(const AVStream& input, const std::vector<CutWindow>& windows,
                       const AVOutputFormat& container) {
  if (isLossless(input.codecpar->codec_id))
    return "its packets are cut to the sample, without loss";
  if (!isMpeg4(container)) return "the container cannot hide what lies before its first sample";
  if (windows.size() > 1)
    return "packets of several spans do not follow on each other to the sample";
  return {};
}

}  // namespace

std::unique_ptr<CutSound> openCutSound(const CutJob& job, const AVStream& input,
                                       const std::vector<CutWindow>& windows, Muxer& muxer,
                                       FirstError& errors) {
  const AVOutputFormat& container = *muxer.context()->oformat;
  const AVCodecID codec = input.codecpar->codec_id;
  const bool isTaken = refusalOf(container, input).empty();
  std::string why =
      isTaken ? whyEncoded(input, windows, container) : "the container does not take its codec";
  if (why.empty()) {
    auto sound =
        std::make_unique<CopiedSound>(job, input, windows.front(), *muxer.addStream(), muxer);
    sound->settle();
    return sound;
  }
  // The codec's own encoder may not take the track's form.
  AVStream* const output = muxer.addStream();
  Error refusal = engineError(AVERROR_ENCODER_NOT_FOUND, "there is no encoder for it");
  for (const AVCodecID own : {isTaken ? codec : AV_CODEC_ID_NONE, container.audio_codec}) {
    const AVCodec* encoder = avcodec_find_encoder(own);
    if (!encoder) continue;
    auto sound =
        std::make_unique<EncodedSound>(job, input, windows, encoder, *output, muxer, errors, why);
    refusal = sound->open();
    if (!refusal) return sound;
  }
  errors.note(refusal);
  return nullptr;
}

}  // namespace kestrel
