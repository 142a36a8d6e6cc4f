#include "tests/corpus/Content.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"
#include "support/MuxingOwners.h"

extern "C" {
#include <libavutil/crc.h>
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
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

/// What a decoder makes of packets.
struct Decoded {
  std::vector<uint32_t> shown;
  uint32_t heard = 0;
  size_t samples = 0;
};

Decoded decode(const AVStream& stream, const std::vector<PacketPtr>& packets) {
  const CodecContextPtr decoder = openDecoder(stream);
  Decoded decoded;
  if (!decoder) return decoded;
  const bool isVideo = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  const auto take = [&](const AVPacket* packet) {
    if (decoded.shown.size() >= kMostPictures) return;
    decodePacket(*decoder, packet, [&](const FramePtr& frame) {
      if (!isVideo) {
        decoded.heard = sumOfSound(*frame, decoded.heard);
        decoded.samples += static_cast<size_t>(frame->nb_samples);
      } else if (decoded.shown.size() < kMostPictures) {
        decoded.shown.push_back(sumOfPicture(*frame));
      }
    });
  };
  for (const PacketPtr& packet : packets) take(packet.get());
  take(nullptr);
  return decoded;
}

/// Names all that a decoder is told: what it is opened with, and its packets.
class Digest {
 public:
  Digest() { av_murmur3_init(murmur_.get()); }

  void add(const void* data, size_t size) {
    av_murmur3_update(murmur_.get(), reinterpret_cast<const uint8_t*>(&size), sizeof size);
    if (size > 0) av_murmur3_update(murmur_.get(), static_cast<const uint8_t*>(data), size);
  }
  template <typename Number>
  void add(Number number) {
    add(&number, sizeof number);
  }

  void add(const AVCodecParameters& parameters) {
    for (const int number :
         {static_cast<int>(parameters.codec_id), parameters.format, parameters.width,
          parameters.height, parameters.profile, parameters.level, parameters.sample_rate,
          parameters.ch_layout.nb_channels, parameters.block_align, parameters.frame_size,
          parameters.bits_per_coded_sample, parameters.bits_per_raw_sample,
          parameters.initial_padding, parameters.seek_preroll})
      add(number);
    add(parameters.codec_tag);
    add(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
  }

  void add(const AVPacket& packet) {
    add(packet.flags);
    add(packet.data, static_cast<size_t>(packet.size));
    for (int i = 0; i < packet.side_data_elems; ++i) {
      add(packet.side_data[i].type);
      add(packet.side_data[i].data, packet.side_data[i].size);
    }
  }

  std::string finish() {
    std::array<uint8_t, 16> result{};
    av_murmur3_final(murmur_.get(), result.data());
    return {result.begin(), result.end()};
  }

 private:
  struct Deleter {
    void operator()(AVMurMur3* murmur) const { av_free(murmur); }
  };
  const std::unique_ptr<AVMurMur3, Deleter> murmur_{av_murmur3_alloc()};
};

/// The same, but what was decoded once is not decoded again: copies are told apart by their
/// packets.
const Decoded& decodedOnce(const AVStream& stream, const std::vector<PacketPtr>& packets) {
  static std::map<std::string, Decoded> known;
  Digest digest;
  digest.add(*stream.codecpar);
  for (const PacketPtr& packet : packets) digest.add(*packet);
  const auto [entry, isNew] = known.try_emplace(digest.finish());
  if (isNew) entry->second = decode(stream, packets);
  return entry->second;
}

/// Takes the packets of one stream, and decodes them from one of them on.
class Reading {
 public:
  Reading(const AVStream& stream, size_t from)
      : stream_(stream), from_(from), filter_(openFilter(stream)) {
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
    if (count_++ >= from_) toDecode_.emplace_back(av_packet_clone(&packet));
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
    if (from_ == kNever) return std::move(content_);
    const Decoded& decoded = decodedOnce(stream_, toDecode_);
    content_.shown = decoded.shown;
    content_.heard = decoded.heard;
    content_.samples = decoded.samples;
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

  const AVStream& stream_;
  const size_t from_;
  const BitstreamFilterPtr filter_;
  std::vector<PacketPtr> toDecode_;
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

bool mayHold(const std::filesystem::path& file, const std::vector<Content>& contents) {
  // These are written whether a codec is among those that their tables have or not.
  static const std::set<std::string> kLenient{".mov", ".avi", ".nut"};
  if (kLenient.contains(file.extension().string())) return true;
  const AVOutputFormat* format = av_guess_format(nullptr, file.c_str(), nullptr);
  return std::ranges::all_of(contents, [&](const Content& content) {
    const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(content.codec.c_str());
    return avformat_query_codec(format, codec->id, FF_COMPLIANCE_EXPERIMENTAL) != 0;
  });
}

std::vector<uint32_t> shownFrom(const std::filesystem::path& file, size_t packet) {
  const auto contents = read(file, packet, {AVMEDIA_TYPE_VIDEO});
  return contents.empty() ? std::vector<uint32_t>() : contents.front().shown;
}

}  // namespace kestrel::test
