#include "convert/probe/Codecs.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LibMedia.h>
#include <kestrel/StreamFit.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/probe/EncoderTable.h"
#include "support/Containers.h"
#include "support/Words.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// The muxer that knows what sound a container takes. Matroska has two by that name: the one for
/// sound alone answers by tags and has not all of them.
const AVOutputFormat& askedFor(const AVOutputFormat& format, AVCodecID codec) {
  const bool isSound = avcodec_get_type(codec) == AVMEDIA_TYPE_AUDIO;
  const AVOutputFormat* first = isSound ? av_guess_format(format.name, nullptr, nullptr) : nullptr;
  return first ? *first : format;
}

/// What a muxer says about a codec, as `avformat_query_codec`, tags that it has for it included.
int answerOf(const AVOutputFormat& format, AVCodecID codec) {
  const AVOutputFormat& asked = askedFor(format, codec);
  // Containers with a list of tags of their own may take more than they answer for.
  const bool hasTag = asked.codec_tag && av_codec_get_tag(asked.codec_tag, codec) != 0;
  return hasTag ? 1 : avformat_query_codec(&asked, codec, FF_COMPLIANCE_NORMAL);
}

/// Whether a muxer says that it takes a codec, be it by a list of tags alone.
bool isTold(const AVOutputFormat& format, AVCodecID codec) { return answerOf(format, codec) > 0; }

/// Whether a muxer that takes a codec puts it where players will not find it.
bool misplaces(const AVOutputFormat& format, AVCodecID codec) {
  // The muxer takes anything, but writes what is none of these as data without a name.
  static const std::set<AVCodecID> kInTransportStream{
      AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG4, AV_CODEC_ID_H264,
      AV_CODEC_ID_HEVC,       AV_CODEC_ID_CAVS,       AV_CODEC_ID_DIRAC, AV_CODEC_ID_VC1,
      AV_CODEC_ID_MP1,        AV_CODEC_ID_MP2,        AV_CODEC_ID_MP3,   AV_CODEC_ID_AAC,
      AV_CODEC_ID_AAC_LATM,   AV_CODEC_ID_AC3,        AV_CODEC_ID_EAC3,  AV_CODEC_ID_DTS,
      AV_CODEC_ID_TRUEHD,     AV_CODEC_ID_OPUS,       AV_CODEC_ID_S302M, AV_CODEC_ID_PCM_BLURAY};
  // Their encoders' packets do not say where they begin.
  static const std::set<AVCodecID> kNeedFraming{AV_CODEC_ID_AAC, AV_CODEC_ID_VORBIS,
                                                AV_CODEC_ID_SPEEX};
  if (isTransportStream(format)) return !kInTransportStream.contains(codec);
  if (isRowOfPackets(format) && kNeedFraming.contains(codec)) return true;
  return isCaf(format) && codec == AV_CODEC_ID_AAC;  // has a tag for it all the same
}

/// The same of a stream's own packets: those of AAC may begin with headers that tell their framing,
/// and then there is none in the codec data.
bool misplaces(const AVOutputFormat& format, const AVCodecParameters& parameters) {
  const bool hasHeaders = parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size == 0;
  return !(hasHeaders && isRowOfPackets(format)) && misplaces(format, parameters.codec_id);
}

/// Whether a container is one of sound alone, which has room for covers at most.
bool isForSound(const AVOutputFormat& format) {
  return format.audio_codec != AV_CODEC_ID_NONE &&
         (format.video_codec == AV_CODEC_ID_NONE || format.video_codec == AV_CODEC_ID_PNG);
}

/// Whether a container has a place for a codec, one that players will find it in.
bool holds(const AVOutputFormat& format, AVCodecID codec) {
  if (misplaces(format, codec)) return false;
  if (isForSound(format) && avcodec_get_type(codec) == AVMEDIA_TYPE_VIDEO) return false;
  if (isTransportStream(format)) return true;
  return answerOf(format, codec) != 0;
}

/// A container's own codec, or where that cannot be encoded here, the first of others that can and
/// that the container is known to hold; still its own where there is none.
AVCodecID orElse(const AVOutputFormat& format, AVCodecID own,
                 std::initializer_list<AVCodecID> others) {
  if (own == AV_CODEC_ID_NONE || avcodec_find_encoder(own)) return own;
  const auto found = std::ranges::find_if(others, [&](AVCodecID codec) {
    return avcodec_find_encoder(codec) && format.codec_tag &&
           av_codec_get_tag(format.codec_tag, codec) != 0;
  });
  return found == others.end() ? own : *found;
}

/// All names that a user might have meant.
std::vector<std::string> namesOfEncoders(AVMediaType type) {
  std::set<std::string> names;
  void* position = nullptr;
  while (const AVCodec* codec = av_codec_iterate(&position))
    if (av_codec_is_encoder(codec) && codec->type == type) {
      names.insert(codec->name);
      names.insert(avcodec_get_name(codec->id));
    }
  return {names.begin(), names.end()};
}

Failure cannotHold(const AVOutputFormat& format, AVCodecID codec, const std::string& path) {
  return Failure::output(path, fmt::format("cannot write '{}': the {} format cannot hold {}", path,
                                           format.name, avcodec_get_name(codec)));
}

}  // namespace

CodecChoice choiceOf(AVCodecID codec) {
  const AVCodec* encoder = bestEncoder(codec);
  return {codec, encoder ? encoder->name : ""};
}

std::string codecNameOf(const std::string& name) {
  static const std::map<std::string, std::string> kAliases{
      {"h265", "hevc"}, {"x265", "hevc"}, {"x264", "h264"}, {"avc", "h264"}, {"mpeg-4", "mpeg4"}};
  const std::string lowered = lowerCased(name);
  const auto alias = kAliases.find(lowered);
  return alias == kAliases.end() ? lowered : alias->second;
}

CodecChoice codecByName(const std::string& name, AVMediaType type) {
  const std::string setting = type == AVMEDIA_TYPE_VIDEO ? "videoCodec" : "audioCodec";
  const std::string wanted = codecNameOf(name);
  const AVCodecDescriptor* const known = avcodec_descriptor_get_by_name(wanted.c_str());
  const AVCodec* const encoder = known ? nullptr : avcodec_find_encoder_by_name(wanted.c_str());
  if (encoder && encoder->type == type) return {encoder->id, encoder->name};
  // What the engine's hosts have always called a codec.
  const auto codec = static_cast<AVCodecID>(known ? known->id : lm_get_codec_id_by_name(wanted));
  if (codec == AV_CODEC_ID_NONE || avcodec_get_type(codec) != type)
    throw Failure::settings(
        fmt::format("unknown {} codec or encoder '{}'{}", av_get_media_type_string(type), name,
                    nearestNames(wanted, namesOfEncoders(type))),
        setting);
  CodecChoice choice = choiceOf(codec);
  if (choice.encoder.empty())
    throw Failure::settings(fmt::format("there is no encoder for '{}'", name), setting);
  return choice;
}

bool namesSound(const std::string& name, AVCodecID codec) {
  if (name == "all") return true;
  const std::string_view own = avcodec_get_name(codec);
  return name == "pcm" ? own.starts_with("pcm_") : name == own;
}

void requireSoundName(const std::string& setting, const std::string& name) {
  std::vector<std::string> known{"all", "pcm"};
  const AVCodecDescriptor* codec = nullptr;
  while ((codec = avcodec_descriptor_next(codec)))
    if (codec->type == AVMEDIA_TYPE_AUDIO) known.emplace_back(codec->name);
  if (std::ranges::count(known, name) == 0)
    throw Failure::settings(
        fmt::format("{}: unknown audio codec '{}'{}", setting, name, nearestNames(name, known)),
        setting);
}

const AVOutputFormat& outputFormatFor(const std::string& path) {
  // A ringtone is an MPEG-4 audio file by another name.
  const bool isRingtone = lowerCased(path).ends_with(".m4r");
  const AVOutputFormat* format =
      av_guess_format(nullptr, isRingtone ? ".m4a" : path.c_str(), nullptr);
  if (!format)
    throw Failure::settings(fmt::format("cannot tell the format of '{}' by its name", path),
                            "output");
  return *format;
}

const AVOutputFormat& outputFormatNamed(const std::string& name) {
  const AVOutputFormat* format = av_guess_format(nullptr, ("a." + name).c_str(), nullptr);
  if (!format) format = av_guess_format(name.c_str(), nullptr, nullptr);
  if (!format)
    throw Failure::settings(fmt::format("format: there is no container '{}'", name), "format");
  return *format;
}

AVCodecID defaultVideoCodec(const AVOutputFormat& format, const std::string& path) {
  static const std::vector<std::string> kSoundNames{".m4a", ".m4b", ".m4r", ".oga", ".mka", ".wma"};
  const std::string name = lowerCased(path);
  const bool isNamedForSound = std::ranges::any_of(
      kSoundNames, [&](const std::string& extension) { return name.ends_with(extension); });
  if (isNamedForSound || isForSound(format)) return AV_CODEC_ID_NONE;
  if (outlivedItsCodecs(format) && avcodec_find_encoder(AV_CODEC_ID_H264)) return AV_CODEC_ID_H264;
  return orElse(format, format.video_codec, {AV_CODEC_ID_H264, AV_CODEC_ID_MPEG4});
}

AVCodecID defaultAudioCodec(const AVOutputFormat& format) {
  // More players know AAC in Matroska than the container's own choice.
  if (isMatroska(format) || outlivedItsCodecs(format)) return AV_CODEC_ID_AAC;
  return orElse(format, format.audio_codec, {AV_CODEC_ID_AAC, AV_CODEC_ID_MP3});
}

bool holdsSubtitles(const AVOutputFormat& format, AVCodecID codec, const std::string& path) {
  if (isAvi(format)) return false;
  // A codec that a muxer does not know of might keep it from writing at all.
  if (!isTransportStream(format)) return isTold(format, codec);
  // The muxer has names for these alone; one of them in its form for discs.
  const bool isForDiscs = lowerCased(path).ends_with(".m2ts");
  return codec == AV_CODEC_ID_DVB_SUBTITLE || codec == AV_CODEC_ID_DVB_TELETEXT ||
         (codec == AV_CODEC_ID_HDMV_PGS_SUBTITLE && isForDiscs);
}

AVCodecID textCodecOf(const AVOutputFormat& format) {
  static const std::map<std::string_view, AVCodecID> kForms{
      {"mp4", AV_CODEC_ID_MOV_TEXT},  {"mov", AV_CODEC_ID_MOV_TEXT},
      {"ipod", AV_CODEC_ID_MOV_TEXT}, {"matroska", AV_CODEC_ID_SUBRIP},
      {"webm", AV_CODEC_ID_WEBVTT},   {"srt", AV_CODEC_ID_SUBRIP},
      {"ass", AV_CODEC_ID_ASS},       {"webvtt", AV_CODEC_ID_WEBVTT}};
  const auto form = kForms.find(format.name);
  return form == kForms.end() ? AV_CODEC_ID_NONE : form->second;
}

bool holdsTimes(const AVOutputFormat& format, AVCodecID codec) {
  static const std::set<AVCodecID> kCodecs{AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP8,
                                           AV_CODEC_ID_VP9,  AV_CODEC_ID_AV1,  AV_CODEC_ID_FFV1,
                                           AV_CODEC_ID_MJPEG};
  return holdsAnyTime(format) && kCodecs.contains(codec);
}

int onlySampleRate(const AVOutputFormat& format) { return isOfStudios(format) ? 48000 : 0; }

bool isKnownToHold(const AVOutputFormat& format, AVCodecID codec) {
  return holds(format, codec) && (isTold(format, codec) || isTransportStream(format));
}

void requireEncodable(const AVOutputFormat& format, AVCodecID codec, const std::string& path) {
  if (!avcodec_find_encoder(codec))
    throw Failure::output(path, fmt::format("cannot write '{}': there is no encoder for {}", path,
                                            avcodec_get_name(codec)));
  requireContainerHolds(format, codec, path);
}

void requireContainerHolds(const AVOutputFormat& format, AVCodecID codec, const std::string& path) {
  if (!holds(format, codec)) throw cannotHold(format, codec, path);
}

std::string refusalOf(const AVOutputFormat& format, const AVStream& stream) {
  const AVCodecID codec = stream.codecpar->codec_id;
  const bool isMisplaced = misplaces(format, *stream.codecpar);
  const std::string refusal = isMisplaced ? "" : containerRefusal(stream, format.name);
  if (refusal.empty() && !isMisplaced) return {};
  return fmt::format("the {} format cannot hold {}{}", format.name, avcodec_get_name(codec),
                     refusal.empty() ? "" : " (" + refusal + ")");
}

void requireContainerTakes(const AVOutputFormat& format, const AVStream& stream,
                           const std::string& path) {
  if (!refusalOf(format, stream).empty()) throw cannotHold(format, stream.codecpar->codec_id, path);
}

}  // namespace kestrel
