#include "support/encode/SubtitleConverter.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/codec/Codec.h"
#include "support/Entities.h"
#include "support/FFmpegError.h"

namespace kestrel {

namespace {

constexpr AVRational kMilliseconds{1, 1000};

/// No text for one moment is longer.
constexpr size_t kMostBytes = 1 << 20;

Error missing(const char* what, AVCodecID codec) {
  return engineError(AVERROR(ENOSYS),
                     std::string("no ") + what + " for '" + avcodec_get_name(codec) + "'");
}

struct Subtitle : AVSubtitle {
  Subtitle() : AVSubtitle{} {}
  ~Subtitle() { avsubtitle_free(this); }
  Subtitle(const Subtitle&) = delete;
  Subtitle& operator=(const Subtitle&) = delete;
};

void readEntities(AVSubtitle& subtitle) {
  for (unsigned i = 0; i < subtitle.num_rects; ++i) {
    char*& line = subtitle.rects[i]->ass;
    if (!line) continue;
    char* read = av_strdup(withEntitiesRead(line).c_str());
    if (!read) return;
    av_free(line);
    line = read;
  }
}

}  // namespace

SubtitleConverter::SubtitleConverter(const AVStream& input, AVStream& output, AVCodecID codec)
    : output_(output), buffer_(kMostBytes), error_(open(input, codec)) {}

Error SubtitleConverter::open(const AVStream& input, AVCodecID codec) {
  const AVCodec* const encoder = avcodec_find_encoder(codec);
  if (!encoder) return missing("encoder", codec);
  int result = openDecoder(decoder_, *input.codecpar, {.timebase = kMilliseconds});
  if (result == AVERROR_DECODER_NOT_FOUND) return missing("decoder", input.codecpar->codec_id);
  if (result < 0) return libraryError(result);
  encoder_.reset(avcodec_alloc_context3(encoder));
  if (!encoder_) return libraryError(AVERROR(ENOMEM));
  if (decoder_->subtitle_header) {
    const auto size = static_cast<size_t>(decoder_->subtitle_header_size);
    encoder_->subtitle_header = static_cast<uint8_t*>(av_mallocz(size + 1));
    if (!encoder_->subtitle_header) return libraryError(AVERROR(ENOMEM));
    std::memcpy(encoder_->subtitle_header, decoder_->subtitle_header, size);
    encoder_->subtitle_header_size = decoder_->subtitle_header_size;
  }
  encoder_->time_base = kMilliseconds;
  encoder_->width = input.codecpar->width;
  encoder_->height = input.codecpar->height;
  result = openCodec(*encoder_, encoder);
  if (result >= 0) result = avcodec_parameters_from_context(output_.codecpar, encoder_.get());
  output_.time_base = kMilliseconds;
  return result < 0 ? libraryError(result) : Error{};
}

PacketPtr SubtitleConverter::convert(const AVPacket& packet) {
  if (error_) return nullptr;
  const PacketPtr input(av_packet_clone(&packet));
  if (!input) return nullptr;
  av_packet_rescale_ts(input.get(), output_.time_base, kMilliseconds);
  Subtitle text;
  int hasText = 0;
  if (avcodec_decode_subtitle2(decoder_.get(), &text, &hasText, input.get()) < 0) {
    ++refused_;
    return nullptr;
  }
  if (!hasText || text.num_rects == 0) return nullptr;
  // WebVTT has the same references.
  if (hasEntities(decoder_->codec_id) && encoder_->codec_id != AV_CODEC_ID_WEBVTT)
    readEntities(text);
  const int64_t start = input->pts + text.start_display_time;
  const bool hasEnd =
      text.end_display_time > text.start_display_time && text.end_display_time != UINT32_MAX;
  const int64_t length = hasEnd ? text.end_display_time - text.start_display_time
                                : input->duration - text.start_display_time;
  text.pts = av_rescale_q(start, kMilliseconds, AV_TIME_BASE_Q);
  text.start_display_time = 0;
  text.end_display_time = static_cast<uint32_t>(std::max<int64_t>(length, 0));
  const int size = avcodec_encode_subtitle(encoder_.get(), buffer_.data(),
                                           static_cast<int>(buffer_.size()), &text);
  PacketPtr output = makePacket();
  if (size < 0 || !output || av_new_packet(output.get(), std::max(size, 0)) < 0) {
    ++refused_;
    return nullptr;
  }
  if (size == 0) return nullptr;
  std::memcpy(output->data, buffer_.data(), static_cast<size_t>(size));
  output->pts = output->dts = start;
  output->duration = length;
  output->flags |= AV_PKT_FLAG_KEY;
  av_packet_rescale_ts(output.get(), kMilliseconds, output_.time_base);
  return output;
}

}  // namespace kestrel
