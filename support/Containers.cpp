#include "support/Containers.h"

#include <algorithm>
#include <initializer_list>
#include <span>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
#include <libavutil/parseutils.h>
}

namespace kestrel {

namespace {

using Names = std::initializer_list<std::string_view>;

// Demuxers of several containers bear all their names.
constexpr std::string_view kMpeg4 = "mov,mp4,m4a,3gp,3g2,mj2";
constexpr std::string_view kMatroska = "matroska,webm";
constexpr std::string_view kTransport = "mpegts";
constexpr std::string_view kProgram = "mpeg";

bool isOneOf(const AVOutputFormat& container, Names names) {
  return std::ranges::count(names, container.name) > 0;
}

bool isOneOf(const AVFormatContext& input, Names names) {
  return input.iformat && std::ranges::count(names, input.iformat->name) > 0;
}

}  // namespace

bool isMpeg4(const AVOutputFormat& container) {
  return isOneOf(container, {"mp4", "mov", "ipod", "psp", "3gp", "3g2"});
}

bool describesStreams(const AVOutputFormat& container) {
  return isMpeg4(container) || isOneOf(container, {"f4v", "ismv", "matroska", "flv"});
}

bool isHls(const AVOutputFormat& container) { return isOneOf(container, {"hls"}); }

bool isAvi(const AVOutputFormat& container) { return isOneOf(container, {"avi"}); }

bool isOfStudios(const AVOutputFormat& container) {
  return isOneOf(container, {"mxf", "mxf_d10", "mxf_opatom", "gxf", "dv"});
}

bool goesBack(const AVOutputFormat& container) {
  return isOneOf(container, {"avi", "mxf", "mxf_d10", "mxf_opatom", "gxf", "rm", "swf", "caf",
                             "w64", "aiff", "avm2", "f4v"});
}

void allowLosslessSound(AVFormatContext& output) {
  const std::span streams(output.streams, output.nb_streams);
  const bool hasAny = std::ranges::any_of(streams, [](const AVStream* stream) {
    const AVCodecID codec = stream->codecpar->codec_id;
    return codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_TRUEHD;
  });
  if (hasAny && isMpeg4(*output.oformat)) output.strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
}

bool takesLateChapters(const AVOutputFormat& container) {
  return isOneOf(container, {"mp4", "mov", "ipod", "matroska", "webm"});
}

bool takesLateCodecData(const AVOutputFormat& container) {
  return isMpeg4(container) || isOneOf(container, {"matroska", "flac"});
}

bool isTransportStream(const AVOutputFormat& container) { return isOneOf(container, {kTransport}); }

bool isMatroska(const AVOutputFormat& container) { return isOneOf(container, {"matroska"}); }

bool isCaf(const AVOutputFormat& container) { return isOneOf(container, {"caf"}); }

bool keepsTta(const AVOutputFormat& container) { return isOneOf(container, {"tta"}); }

bool isRowOfPackets(const AVOutputFormat& container) { return isOneOf(container, {"wav", "w64"}); }

bool placesSoundByOrder(const AVOutputFormat& container) {
  return isOneOf(container, {"wav", "w64", "aiff", "au", "caf"});
}

bool holdsAnyTime(const AVOutputFormat& container) {
  return isOneOf(container, {"mp4", "mov", "ipod", "matroska", "webm", kTransport, "flv", "nut"});
}

bool holdsOneSound(const AVOutputFormat& container) {
  return isOneOf(container, {"wav",  "w64",  "mp3", "mp2",    "flac",  "adts", "ac3", "eac3",
                             "aiff", "au",   "tta", "wv",     "amr",   "caf",  "flv", "opus",
                             "oga",  "latm", "dts", "truehd", "spdif", "voc",  "mmf"});
}

bool holdsChapters(const AVOutputFormat& container) {
  return takesLateChapters(container) ||
         isOneOf(container,
                 {"asf", "mp3", "nut", "ogg", "oga", "ogv", "opus", "spx", "aiff", "ffmetadata"});
}

bool holdsCovers(const AVOutputFormat& container) {
  return isOneOf(container, {"mp4", "ipod", "mp3", "flac", "matroska"});
}

bool holdsAttachments(const AVOutputFormat& container) { return isMatroska(container); }

bool outlivedItsCodecs(const AVOutputFormat& container) {
  return isOneOf(container, {"3gp", "3g2", kTransport, "flv"});
}

bool isAvi(const AVFormatContext& input) { return isOneOf(input, {"avi"}); }

bool isMpeg4(const AVFormatContext& input) { return isOneOf(input, {kMpeg4}); }

bool isBroadcast(const AVFormatContext& input) { return isOneOf(input, {kTransport, kProgram}); }

bool isTransportStream(const AVFormatContext& input) { return isOneOf(input, {kTransport}); }

bool isAsf(const AVFormatContext& input) { return isOneOf(input, {"asf"}); }

bool isMp3(const AVFormatContext& input) { return isOneOf(input, {"mp3"}); }

bool isRealMedia(const AVFormatContext& input) { return isOneOf(input, {"rm"}); }

bool isOfPictureFiles(const AVFormatContext& input) { return isOneOf(input, {"image2"}); }

bool tellsOrderAsTime(const AVFormatContext& input) { return isOneOf(input, {"mxf"}); }

bool leavesTimesOut(const AVFormatContext& input) {
  return isBroadcast(input) || tellsOrderAsTime(input);
}

bool tellsStreamEndsFromZero(const AVFormatContext& input) {
  return isOneOf(input, {kMpeg4, kMatroska});
}

bool tellsEndFromZero(const AVFormatContext& input) {
  return tellsStreamEndsFromZero(input) || isOneOf(input, {"nut"});
}

bool isKnownEmpty(const AVStream& stream, const AVFormatContext& input) {
  const auto* tag =
      av_dict_get(stream.metadata, "NUMBER_OF_FRAMES", nullptr, AV_DICT_IGNORE_SUFFIX);
  if (tag && std::string_view(tag->value) == "0") return true;
  // Of files in fragments no stream has a number.
  const std::span streams(input.streams, input.nb_streams);
  return isMpeg4(input) && stream.nb_frames == 0 &&
         std::ranges::any_of(streams, [](const AVStream* other) { return other->nb_frames > 0; });
}

std::optional<int64_t> taggedEnd(const AVStream& stream) {
  const auto* tag = av_dict_get(stream.metadata, "DURATION", nullptr, AV_DICT_IGNORE_SUFFIX);
  int64_t end = 0;
  return tag && av_parse_time(&end, tag->value, 1) >= 0 ? std::optional(end) : std::nullopt;
}

}  // namespace kestrel
