#include "tests/corpus/Content.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"
#include "support/MuxingOwners.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/imgutils.h>
}

namespace kestrel::test {

namespace {

/// So many of a stream's pictures are decoded.
constexpr size_t kMostPictures = 25;

constexpr size_t kNever = SIZE_MAX;

struct InputDeleter {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using InputPtr = std::unique_ptr<AVFormatContext, InputDeleter>;

InputPtr open(const std::filesystem::path& file) {
  av_log_set_level(AV_LOG_FATAL);
  AVFormatContext* context = nullptr;
  if (avformat_open_input(&context, file.c_str(), nullptr, nullptr) < 0) return nullptr;
  InputPtr input(context);
  return avformat_find_stream_info(context, nullptr) < 0 ? nullptr : std::move(input);
}

/// What brings packets into the one form that they can have in every container; null for most.
const char* filterOf(AVCodecID codec) {
  static const std::map<AVCodecID, const char*> kFilters{
      {AV_CODEC_ID_H264, "h264_mp4toannexb"},
      {AV_CODEC_ID_HEVC, "hevc_mp4toannexb"},
      {AV_CODEC_ID_MPEG4, "mpeg4_unpack_bframes"}};
  const auto filter = kFilters.find(codec);
  return filter == kFilters.end() ? nullptr : filter->second;
}

BitstreamFilterPtr openFilter(const AVStream& stream) {
  const char* name = filterOf(stream.codecpar->codec_id);
  AVBSFContext* context = nullptr;
  if (!name || av_bsf_alloc(av_bsf_get_by_name(name), &context) < 0) return nullptr;
  BitstreamFilterPtr filter(context);
  context->time_base_in = stream.time_base;
  const bool isOpen =
      avcodec_parameters_copy(context->par_in, stream.codecpar) >= 0 && av_bsf_init(context) >= 0;
  return isOpen ? std::move(filter) : nullptr;
}

CodecContextPtr openDecoder(const AVStream& stream) {
  const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  CodecContextPtr decoder(codec ? avcodec_alloc_context3(codec) : nullptr);
  if (!decoder || avcodec_parameters_to_context(decoder.get(), stream.codecpar) < 0) return nullptr;
  decoder->pkt_timebase = stream.time_base;
  return openCodec(*decoder, codec) < 0 ? nullptr : std::move(decoder);
}

uint32_t sumOf(const uint8_t* data, size_t size, uint32_t before = 0) {
  return av_crc(av_crc_get_table(AV_CRC_32_IEEE), before, data, size);
}

uint32_t sumOfPicture(const AVFrame& picture) {
  const auto format = static_cast<AVPixelFormat>(picture.format);
  const int size = av_image_get_buffer_size(format, picture.width, picture.height, 1);
  std::vector<uint8_t> pixels(static_cast<size_t>(std::max(size, 0)));
  av_image_copy_to_buffer(pixels.data(), size, picture.data, picture.linesize, format,
                          picture.width, picture.height, 1);
  return sumOf(pixels.data(), pixels.size());
}

uint32_t sumOfSound(const AVFrame& sound, uint32_t before) {
  const auto format = static_cast<AVSampleFormat>(sound.format);
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const int channels = sound.ch_layout.nb_channels;
  const int size = av_get_bytes_per_sample(format) * sound.nb_samples * (isPlanar ? 1 : channels);
  for (int plane = 0; plane < (isPlanar ? channels : 1); ++plane)
    before = sumOf(sound.extended_data[plane], static_cast<size_t>(size), before);
  return before;
}

/// Takes the packets of one stream, and decodes them from one of them on.
class Reading {
 public:
  Reading(const AVStream& stream, size_t from)
      : stream_(stream),
        from_(from),
        filter_(openFilter(stream)),
        decoder_(from == kNever ? nullptr : openDecoder(stream)) {
    const AVCodecParameters& parameters = *stream.codecpar;
    content_.index = stream.index;
    content_.type = av_get_media_type_string(parameters.codec_type);
    content_.codec = avcodec_get_name(parameters.codec_id);
    std::array<char, AV_FOURCC_MAX_STRING_SIZE> tag{};
    content_.tag = av_fourcc_make_string(tag.data(), parameters.codec_tag);
  }

  int stream() const { return stream_.index; }

  void take(const AVPacket& packet) {
    // As a copy begins with a key picture.
    hasBegun_ = hasBegun_ || !content_.isVideo() || (packet.flags & AV_PKT_FLAG_KEY) != 0;
    if (!hasBegun_ || packet.size == 0) return;
    if (count_++ >= from_) decode(&packet);
    content_.hides = content_.hides || (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
    PacketPtr copy(av_packet_clone(&packet));
    if (!filter_) return keep(*copy);
    if (av_bsf_send_packet(filter_.get(), copy.get()) < 0) return;
    while (av_bsf_receive_packet(filter_.get(), copy.get()) >= 0) {
      keep(*copy);
      av_packet_unref(copy.get());
    }
  }

  Content finish() {
    decode(nullptr);
    return std::move(content_);
  }

 private:
  void keep(const AVPacket& packet) {
    if (packet.size == 0) return;
    content_.begins.push_back(content_.data.size());
    ++content_.packets;
    content_.data.append(reinterpret_cast<const char*>(packet.data),
                         static_cast<size_t>(packet.size));
  }

  void decode(const AVPacket* packet) {
    if (!decoder_ || content_.shown.size() >= kMostPictures) return;
    decodePacket(*decoder_, packet, [this](const FramePtr& frame) {
      if (!content_.isVideo()) {
        content_.heard = sumOfSound(*frame, content_.heard);
        content_.samples += static_cast<size_t>(frame->nb_samples);
      } else if (content_.shown.size() < kMostPictures) {
        content_.shown.push_back(sumOfPicture(*frame));
      }
    });
  }

  const AVStream& stream_;
  const size_t from_;
  const BitstreamFilterPtr filter_;
  CodecContextPtr decoder_;
  Content content_;
  size_t count_ = 0;
  bool hasBegun_ = false;
};

const std::vector<AVMediaType> kTypes{AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO};

std::deque<Reading> begin(const AVFormatContext& input, size_t from,
                          const std::vector<AVMediaType>& types) {
  std::deque<Reading> readings;
  for (const AVMediaType type : types) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
      const AVStream& stream = *input.streams[i];
      const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
      if (stream.codecpar->codec_type != type || isCover) continue;
      if (stream.codecpar->codec_id == AV_CODEC_ID_NONE) continue;
      readings.emplace_back(stream, from);
      break;
    }
  }
  return readings;
}

std::vector<Content> read(const std::filesystem::path& file, size_t from,
                          const std::vector<AVMediaType>& types) {
  const InputPtr input = open(file);
  if (!input) return {};
  std::deque<Reading> readings = begin(*input, from, types);
  const PacketPtr packet = makePacket();
  while (av_read_frame(input.get(), packet.get()) >= 0) {
    for (Reading& reading : readings)
      if (reading.stream() == packet->stream_index) reading.take(*packet);
    av_packet_unref(packet.get());
  }
  std::vector<Content> contents;
  for (Reading& reading : readings) contents.push_back(reading.finish());
  return contents;
}

}  // namespace

std::vector<Content> contentsOf(const std::filesystem::path& file) { return read(file, 0, kTypes); }

std::vector<Content> packetsOf(const std::filesystem::path& file) {
  return read(file, kNever, kTypes);
}

std::vector<uint32_t> shownFrom(const std::filesystem::path& file, size_t packet) {
  const auto contents = read(file, packet, {AVMEDIA_TYPE_VIDEO});
  return contents.empty() ? std::vector<uint32_t>() : contents.front().shown;
}

}  // namespace kestrel::test
