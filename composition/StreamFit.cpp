#include <kestrel/StreamFit.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <memory>
#include <set>

#include "platform/codec/MemoryOutput.h"
#include "support/Containers.h"
#include "support/LibraryLog.h"
#include "support/copy/CodecData.h"
#include "support/copy/StreamCopier.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

std::string nameOf(const char* name) { return name ? name : "unknown"; }

std::string ratio(AVRational value) {
  return fmt::format("{}:{}", value.num == 0 ? 1 : value.num, value.num == 0 ? 1 : value.den);
}

/// The codec's own data for people: its length and a fingerprint.
std::string codecData(const AVCodecParameters& parameters) {
  const auto data = codecDataOf(parameters);
  uint32_t sum = 2166136261U;
  for (const uint8_t byte : data) sum = (sum ^ byte) * 16777619U;
  return data.empty() ? "none" : fmt::format("{} bytes, {:08x}", data.size(), sum);
}

std::string layoutOf(const AVCodecParameters& parameters) {
  std::array<char, 128> text{};
  AVChannelLayout layout{};
  // One that tells only how many channels there are means the usual one.
  if (parameters.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
    av_channel_layout_default(&layout, parameters.ch_layout.nb_channels);
  else
    av_channel_layout_copy(&layout, &parameters.ch_layout);
  av_channel_layout_describe(&layout, text.data(), text.size());
  av_channel_layout_uninit(&layout);
  return text.data();
}

std::string rotationOf(const AVStream& stream) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100)
  const AVPacketSideData* found =
      av_packet_side_data_get(stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data,
                              AV_PKT_DATA_DISPLAYMATRIX);
  const uint8_t* data = found ? found->data : nullptr;
#else
  const uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
#endif
  const double angle = data ? av_display_rotation_get(reinterpret_cast<const int32_t*>(data)) : 0;
  return fmt::format("{:.0f} degrees", std::isnan(angle) || angle == 0 ? 0 : -angle);
}

std::string colorsOf(const AVCodecParameters& parameters) {
  return fmt::format("{}, {}, {}, {}", nameOf(av_color_range_name(parameters.color_range)),
                     nameOf(av_color_space_name(parameters.color_space)),
                     nameOf(av_color_primaries_name(parameters.color_primaries)),
                     nameOf(av_color_transfer_name(parameters.color_trc)));
}

/// Whether only the container knows how many bits a sample has.
bool hasBitsOfItsOwn(const AVCodecParameters& parameters) {
  static const std::set<AVCodecID> kCodecs{AV_CODEC_ID_ADPCM_G726, AV_CODEC_ID_ADPCM_G726LE,
                                           AV_CODEC_ID_PCM_DVD, AV_CODEC_ID_PCM_BLURAY};
  return kCodecs.contains(parameters.codec_id);
}

/// Whether sound is a row of blocks of one size that only the container knows.
bool hasBlocks(const AVCodecParameters& parameters) {
  static const std::set<AVCodecID> kFindTheirOwn{AV_CODEC_ID_MP1, AV_CODEC_ID_MP2, AV_CODEC_ID_MP3,
                                                 AV_CODEC_ID_AAC, AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3,
                                                 AV_CODEC_ID_DTS, AV_CODEC_ID_FLAC};
  return parameters.block_align > 0 && !kFindTheirOwn.contains(parameters.codec_id);
}

/// Adds a stream of pictures such as every container of its codec takes.
const AVStream* addPictures(AVFormatContext& context, AVCodecID codec) {
  AVStream* stream = avformat_new_stream(&context, nullptr);
  if (!stream) return nullptr;
  AVCodecParameters& parameters = *stream->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  parameters.codec_id = codec;
  parameters.format = AV_PIX_FMT_YUV420P;
  parameters.width = 720;
  parameters.height = 576;
  parameters.bit_rate = 50000000;
  stream->time_base = {1, 25};
  stream->avg_frame_rate = stream->r_frame_rate = {25, 1};
  return stream;
}

/// Why a container does not accept streams as they are; "" if it does.
std::string refusalOf(std::initializer_list<const AVStream*> streams,
                      const AVOutputFormat& format) {
  if ((format.flags & AVFMT_NOFILE) != 0) return {};
  AVFormatContext* allocated = nullptr;
  avformat_alloc_output_context2(&allocated, &format, nullptr, nullptr);
  const MemoryOutputPtr context(allocated);
  if (!context || avio_open_dyn_buf(&context->pb) < 0) return "no memory";
  for (const AVStream* stream : streams) {
    AVStream* copy = avformat_new_stream(context.get(), nullptr);
    if (!copy) return "no memory";
    StreamCopier copier(*stream, *copy, format);
    if (copier.error()) return copier.error().message;
    copier.settle();
  }
  allowLosslessSound(*context);
  const LibraryLog log;
  const int answer = avformat_write_header(context.get(), nullptr);
  return answer < 0 ? log.explain(answer, format.name).message : std::string();
}

}  // namespace

std::vector<StreamDifference> streamDifferences(const AVStream& first, const AVStream& second) {
  std::vector<StreamDifference> differences;
  const auto compare = [&](const char* property, auto describe) {
    std::string a = describe(first, *first.codecpar);
    std::string b = describe(second, *second.codecpar);
    if (a != b) differences.push_back({property, std::move(a), std::move(b)});
  };
  using Stream = const AVStream&;
  using Parameters = const AVCodecParameters&;
  const auto sizeOf = [](Stream, Parameters p) { return fmt::format("{}x{}", p.width, p.height); };
  compare("codec", [](Stream, Parameters p) { return std::string(avcodec_get_name(p.codec_id)); });
  if (!differences.empty()) return differences;
  if (first.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
    compare("size", sizeOf);
    compare("pixel format", [](Stream, Parameters p) {
      return nameOf(av_get_pix_fmt_name(static_cast<AVPixelFormat>(p.format)));
    });
    compare("shape of pixels", [](Stream s, Parameters p) {
      return ratio(s.sample_aspect_ratio.num ? s.sample_aspect_ratio : p.sample_aspect_ratio);
    });
    compare("colours", [](Stream, Parameters p) { return colorsOf(p); });
    compare("rotation", [](Stream s, Parameters) { return rotationOf(s); });
  } else if (first.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) {
    const AVCodecDescriptor* codec = avcodec_descriptor_get(first.codecpar->codec_id);
    if (codec && (codec->props & AV_CODEC_PROP_BITMAP_SUB)) compare("size", sizeOf);
  } else {
    compare("sample format", [](Stream, Parameters p) {
      return nameOf(av_get_sample_fmt_name(static_cast<AVSampleFormat>(p.format)));
    });
    compare("sample rate",
            [](Stream, Parameters p) { return fmt::format("{} Hz", p.sample_rate); });
    compare("channels", [](Stream, Parameters p) { return layoutOf(p); });
    // Of most codecs, what containers say of it tells who wrote them.
    if (hasBitsOfItsOwn(*first.codecpar))
      compare("bits per sample",
              [](Stream, Parameters p) { return fmt::format("{}", p.bits_per_coded_sample); });
    // What decoders of blocks cut the sound by; others find their own packets in it.
    if (hasBlocks(*first.codecpar) && hasBlocks(*second.codecpar))
      compare("block size", [](Stream, Parameters p) { return fmt::format("{}", p.block_align); });
  }
  if (!canBeContinued(*first.codecpar)) {
    differences.push_back({"frames", "none", "behind a short last one"});
    return differences;
  }
  if (codecMeaningOf(*first.codecpar) != codecMeaningOf(*second.codecpar))
    differences.push_back({"codec data", codecData(*first.codecpar), codecData(*second.codecpar)});
  return differences;
}

std::string containerRefusal(const AVStream& stream, const std::string& container) {
  const AVOutputFormat* format = av_guess_format(container.c_str(), nullptr, nullptr);
  if (!format) return "unknown container format '" + container + "'";
  const std::string alone = refusalOf({&stream}, *format);
  const bool isPicture = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  if (alone.empty() || isPicture || format->video_codec == AV_CODEC_ID_NONE) return alone;
  // Studios' containers take sound behind pictures only.
  const MemoryOutputPtr memory(avformat_alloc_context());
  const AVStream* pictures = memory ? addPictures(*memory, format->video_codec) : nullptr;
  if (!pictures) return "no memory";
  return refusalOf({pictures}, *format).empty() ? refusalOf({pictures, &stream}, *format) : alone;
}

}  // namespace kestrel
