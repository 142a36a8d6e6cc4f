#include "support/encode/StreamEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/DictionaryEntries.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/LibraryLog.h"
#include "support/encode/EncoderCompat.h"

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

/// The smallest of an encoder's whole-number formats that keeps so many bits, else its largest one;
/// what it names first where it has none.
AVSampleFormat formatFor(int32_t bits, const AVCodec* codec) {
  AVSampleFormat best = AV_SAMPLE_FMT_NONE;
  const auto sizeOf = [](AVSampleFormat format) { return 8 * av_get_bytes_per_sample(format); };
  for (const AVSampleFormat format : acceptedFormats<AVSampleFormat>(codec)) {
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    if (packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL) continue;
    const int size = sizeOf(format);
    const int own = best == AV_SAMPLE_FMT_NONE ? 0 : sizeOf(best);
    if (own < bits ? size > own : size >= bits && size < own) best = format;
  }
  return best == AV_SAMPLE_FMT_NONE ? firstSampleFormat(codec) : best;
}

/// So many samples in a frame of FLAC that the library's reader of files without a container finds
/// it: it gives up on those of some 256 KiB, as the library's encoder makes of six channels at 192
/// kHz.
int flacFrameSize(const AVCodecContext& encoder) {
  constexpr int kLongest = 16384;         // what the encoder takes for high rates, samples
  constexpr int64_t kMostBytes = 200000;  // of a frame that is not compressed
  const int64_t bytes = int64_t{kLongest} * encoder.ch_layout.nb_channels * 3;
  const bool isLong = encoder.sample_rate > 100000 && bytes > kMostBytes;
  return isLong ? kLongest / 2 : 0;
}

}  // namespace

AVSampleFormat floatFormatOf(const AVCodec* codec) {
  AVSampleFormat widest = AV_SAMPLE_FMT_NONE;
  for (const AVSampleFormat format : acceptedFormats<AVSampleFormat>(codec)) {
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    const bool isFloat = packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
    if (isFloat && av_get_bytes_per_sample(format) > av_get_bytes_per_sample(widest))
      widest = format;
  }
  return widest;
}

void configureSound(const LMFFMovieFileOutputFormat& format, int32_t bits, AVCodecContext& encoder,
                    bool keepsFloats) {
  const AVSampleFormat floats = floatFormatOf(encoder.codec);
  if (keepsFloats && floats != AV_SAMPLE_FMT_NONE)
    encoder.sample_fmt = floats;
  else
    encoder.sample_fmt =
        bits > 0 ? formatFor(bits, encoder.codec) : firstSampleFormat(encoder.codec);
  const int size = 8 * av_get_bytes_per_sample(encoder.sample_fmt);
  if (bits > 0) encoder.bits_per_raw_sample = std::min(bits, size);
  encoder.bit_rate = format.audio_bitrate;
  encoder.sample_rate = format.sample_rate;
  encoder.time_base = {1, format.sample_rate};
  av_channel_layout_from_mask(&encoder.ch_layout, static_cast<uint64_t>(format.channel_layout));
  if (encoder.codec_id == AV_CODEC_ID_FLAC) encoder.frame_size = flacFrameSize(encoder);
}

StreamEncoder::StreamEncoder(AVStream* stream, const AVCodec* codec,
                             const AVOutputFormat& container)
    : stream_(stream), context_(avcodec_alloc_context3(codec)) {
  stream->id = stream->index + 1;
  if (!context_) return;
  context_->thread_count = 0;
  if (container.flags & AVFMT_GLOBALHEADER) context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (codec->capabilities & AV_CODEC_CAP_EXPERIMENTAL)
    context_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
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
  copySideData(*context_, *stream_);
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

bool StreamEncoder::encode(AVFrame& frame, int64_t duration, FirstError& errors,
                           const PacketTaker& take) {
  if (const Error error = refusal(frame)) {
    errors.note(error);
    return false;
  }
  if (context_->codec_type == AVMEDIA_TYPE_AUDIO) {
    frame.pts += context_->delay;
  } else {
    limitGroup(frame);
    // Encoders of a constant quantiser ask each picture for it.
    if (context_->flags & AV_CODEC_FLAG_QSCALE) frame.quality = context_->global_quality;
  }
  if (duration > 0) durations_[frame.pts] = duration;
  const LibraryLog log;
  bool hasTaken = false;
  const int result = encodeFrame(*context_, &frame, [&](PacketPtr packet) {
    hasTaken = true;
    noteStatistics();
    stamp(*packet);
    take(std::move(packet));
  });
  if (result < 0) errors.note(log.explain(result, context_->codec->name));
  return hasTaken;
}

bool StreamEncoder::takeNext(FirstError& errors, const PacketTaker& take) {
  const LibraryLog log;
  const int result = takePacket(*context_, [&](PacketPtr packet) {
    stamp(*packet);
    take(std::move(packet));
  });
  noteStatistics();
  if (result < 0) errors.note(log.explain(result, context_->codec->name));
  return result > 0;
}

void StreamEncoder::finish() { endEncoding(*context_); }

/// An encoder tells some with each packet, or all at the end; what has been taken is not told
/// again.
void StreamEncoder::noteStatistics() {
  if ((context_->flags & AV_CODEC_FLAG_PASS1) == 0 || !context_->stats_out) return;
  statistics_ += context_->stats_out;
  context_->stats_out[0] = '\0';
}

/// In ticks of the encoder's; 0: without end.
int64_t StreamEncoder::longestGroup() const {
  const AVRational rate = context_->framerate;
  if (context_->gop_size <= 1 || rate.num <= 0 || rate.den <= 0) return 0;
  return av_rescale_q(context_->gop_size, av_inv_q(rate), context_->time_base);
}

/// Encoders count pictures, not time: those that come slower than at the rate that the encoder was
/// told would make a group longer than it is to be.
void StreamEncoder::limitGroup(AVFrame& picture) {
  const int64_t longest = longestGroup();
  if (longest == 0) return;
  // Key pictures are known late. Until then groups are taken to be as long as the encoder lets them
  // be by itself.
  int64_t begin = picture.pts;
  int pictures = 0;
  for (const auto& [time, begins] : group_) {
    if (begins || pictures % context_->gop_size == 0) {
      begin = time;
      pictures = 0;
    }
    ++pictures;
  }
  const bool begins = pictures < context_->gop_size && picture.pts - begin >= longest;
  if (begins) picture.pict_type = AV_PICTURE_TYPE_I;
  group_[picture.pts] = begins;
}

/// Completes a packet of the encoder's and moves its times to the stream's time base.
void StreamEncoder::stamp(AVPacket& packet) {
  if (const auto found = durations_.find(packet.pts); found != durations_.end()) {
    if (packet.duration <= 0) packet.duration = found->second;
    durations_.erase(found);
  }
  // What should have been shown before this is decoded has been left out by the encoder.
  durations_.erase(durations_.begin(), durations_.lower_bound(packet.dts));
  if (packet.flags & AV_PKT_FLAG_KEY) group_.erase(group_.begin(), group_.lower_bound(packet.pts));
  av_packet_rescale_ts(&packet, context_->time_base, stream_->time_base);
}

}  // namespace kestrel
