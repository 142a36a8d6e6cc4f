#include "support/EverydaySound.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "support/Containers.h"

namespace kestrel {

namespace {

struct Row {
  std::string_view containers;  // the muxers' names, each between blanks
  AVCodecID codec;
  std::string_view reason;
};

constexpr std::string_view kOwn = "it is the container's own";
constexpr std::string_view kMpeg4 = "every player of MPEG-4 knows it";
constexpr std::string_view kBroadcast = "broadcasts have it";
constexpr std::string_view kDisc = "discs have it";
constexpr std::string_view kMatroska = "players of Matroska know it";
constexpr std::string_view kOgg = "it was made for Ogg";
constexpr std::string_view kPlain = "it is how such files are stored";

/// AC-3 in MPEG-4 is silent in most browsers and on many phones, so that it is none of them.
constexpr Row kRows[] = {
    {" mp4 mov ipod 3gp 3g2 f4v psp ", AV_CODEC_ID_AAC, kMpeg4},
    {" ipod ", AV_CODEC_ID_ALAC, "music players know it from there"},
    {" 3gp 3g2 amr ", AV_CODEC_ID_AMR_NB, "phones have it"},
    {" flv ", AV_CODEC_ID_AAC, kOwn},
    {" flv ", AV_CODEC_ID_MP3, kOwn},

    {" mpegts ", AV_CODEC_ID_AAC, kBroadcast},
    {" mpegts ", AV_CODEC_ID_AAC_LATM, kBroadcast},
    {" mpegts ", AV_CODEC_ID_AC3, kBroadcast},
    {" mpegts ", AV_CODEC_ID_EAC3, kBroadcast},
    {" mpegts mpeg vob dvd svcd vcd ", AV_CODEC_ID_MP2, kBroadcast},
    {" mpeg vob dvd ", AV_CODEC_ID_AC3, kDisc},

    {" matroska ", AV_CODEC_ID_AAC, kMatroska},
    {" matroska ", AV_CODEC_ID_AC3, kMatroska},
    {" matroska ", AV_CODEC_ID_EAC3, kMatroska},
    {" matroska ", AV_CODEC_ID_DTS, kMatroska},
    {" matroska ", AV_CODEC_ID_TRUEHD, kMatroska},
    {" matroska ", AV_CODEC_ID_FLAC, kMatroska},
    {" matroska ", AV_CODEC_ID_OPUS, kMatroska},
    {" matroska ", AV_CODEC_ID_VORBIS, kMatroska},
    {" matroska ", AV_CODEC_ID_MP3, kMatroska},
    {" matroska ", AV_CODEC_ID_MP2, kMatroska},
    {" webm ", AV_CODEC_ID_OPUS, kOwn},
    {" webm ", AV_CODEC_ID_VORBIS, kOwn},
    {" ogg oga ogv ", AV_CODEC_ID_VORBIS, kOgg},
    {" ogg oga ogv opus ", AV_CODEC_ID_OPUS, kOgg},
    {" ogg oga ", AV_CODEC_ID_FLAC, kOgg},
    {" asf ", AV_CODEC_ID_WMAV2, kOwn},
    {" avi ", AV_CODEC_ID_MP3, "players of AVI know it"},
    {" avi ", AV_CODEC_ID_AC3, "players of AVI know it"},

    {" mp3 ", AV_CODEC_ID_MP3, kOwn},
    {" mp2 ", AV_CODEC_ID_MP2, kOwn},
    {" flac ", AV_CODEC_ID_FLAC, kOwn},
    {" adts ", AV_CODEC_ID_AAC, kOwn},
    {" ac3 ", AV_CODEC_ID_AC3, kOwn},
    {" eac3 ", AV_CODEC_ID_EAC3, kOwn},
    {" dts ", AV_CODEC_ID_DTS, kOwn},
    {" truehd ", AV_CODEC_ID_TRUEHD, kOwn},
    {" wv ", AV_CODEC_ID_WAVPACK, kOwn},
    {" wav w64 ", AV_CODEC_ID_PCM_U8, kPlain},
    {" wav w64 ", AV_CODEC_ID_PCM_S16LE, kPlain},
    {" wav w64 ", AV_CODEC_ID_PCM_S24LE, kPlain},
    {" wav w64 ", AV_CODEC_ID_PCM_S32LE, kPlain},
    {" wav w64 ", AV_CODEC_ID_PCM_F32LE, kPlain},
    {" wav w64 ", AV_CODEC_ID_PCM_F64LE, kPlain},
    {" aiff ", AV_CODEC_ID_PCM_S16BE, kPlain},
    {" aiff ", AV_CODEC_ID_PCM_S24BE, kPlain},
    {" aiff ", AV_CODEC_ID_PCM_S32BE, kPlain},
};

bool isAmong(std::string_view name, std::string_view names) {
  for (size_t at = names.find(name); at != std::string_view::npos; at = names.find(name, at + 1))
    if (names[at - 1] == ' ' && names[at + name.size()] == ' ') return true;
  return false;
}

/// The containers, of those in the table, in which one packet of sound follows the other.
constexpr std::string_view kRowsOfPackets =
    " avi mp3 mp2 flac adts ac3 eac3 dts truehd wv wav w64 aiff amr ";
constexpr std::string_view kRowsRead = " avi mp3 flac aac ac3 eac3 dts truehd wv wav w64 aiff amr ";

/// By how much sound may begin later than it should; microseconds.
constexpr int64_t kUnheard = 20000;

bool isRow(const AVFormatContext& input) {
  return input.iformat && isAmong(input.iformat->name, kRowsRead);
}

/// Whether an index has every packet of a stream, each following on the one before.
bool isIndexedWhole(AVStream& sound) {
  const int count = avformat_index_get_entries_count(&sound);
  const int samples = sound.codecpar->frame_size;
  if (count < 2 || samples <= 0) return false;
  const int64_t first = avformat_index_get_entry(&sound, 0)->timestamp;
  const int64_t last = avformat_index_get_entry(&sound, count - 1)->timestamp;
  const int64_t heard =
      av_rescale_q(last - first, sound.time_base, {1, sound.codecpar->sample_rate});
  return std::abs(heard - int64_t{samples} * (count - 1)) < samples;
}

}  // namespace

std::string_view everydaySound(const AVOutputFormat& container, AVCodecID codec) {
  const auto* const row = std::ranges::find_if(kRows, [&](const Row& known) {
    return known.codec == codec && isAmong(container.name, known.containers);
  });
  return row == std::end(kRows) ? std::string_view() : row->reason;
}

bool timesSound(const AVOutputFormat& container) {
  return !isAmong(container.name, kRowsOfPackets);
}

bool beginsWithInput(const AVStream& sound, const AVFormatContext& input) {
  if (isRow(input)) return true;
  // A stream of which opening has seen nothing gets the input's start.
  if (isBroadcast(input) && input.nb_streams > 1) return false;
  if (sound.start_time == AV_NOPTS_VALUE || input.start_time == AV_NOPTS_VALUE) return false;
  const int64_t start = av_rescale_q(sound.start_time, sound.time_base, AV_TIME_BASE_Q);
  return start - input.start_time <= kUnheard;
}

bool isKnownToBeWhole(const AVStream& sound, const AVFormatContext& input) {
  return isRow(input) ||
         (beginsWithInput(sound, input) && isMpeg4(input) && sound.codecpar->sample_rate > 0 &&
          isIndexedWhole(const_cast<AVStream&>(sound)));
}

}  // namespace kestrel
