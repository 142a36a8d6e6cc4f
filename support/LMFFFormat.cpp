#include <kestrel/LMFFFormat.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "support/FFmpegCompat.h"
#include "support/Words.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
}

namespace kestrel {

namespace {

/// Calls `visit(key, field)` for each field of a record in order: the one list of the dictionary's
/// keys.
template <typename Record, typename Visitor>
void forEachField(Record& record, Visitor visit) {
  visit("width", record.width);
  visit("height", record.height);
  visit("video_codec", record.video_codec);
  visit("video_bitrate", record.video_bitrate);
  visit("framerate", record.framerate);
  visit("frameTime", record.frameTime);
  visit("aspect", record.aspect);
  visit("channel_layout", record.channel_layout);
  visit("sample_rate", record.sample_rate);
  visit("audio_codec", record.audio_codec);
  visit("audio_bitrate", record.audio_bitrate);
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 7> kCodecAliases{{
    {"mpeg1", "mpeg1video"},
    {"mpeg2", "mpeg2video"},
    {"animation", "qtrle"},
    {"ac-3", "ac3"},
    {"wma1", "wmav1"},
    {"wma2", "wmav2"},
    {"ffv", "ffv1"},
}};

}  // namespace

bool isFFAudioFormatEqual(const LMFFAudioFormat& a, const LMFFAudioFormat& b) { return a == b; }

LMFFAudioFormat lm_get_default_audio_format() {
  return {lm_get_default_sample_fmt(), lm_get_default_channel_layout(2), 44100};
}

int64_t lm_get_default_channel_layout(int count) {
  AVChannelLayout layout{};
  av_channel_layout_default(&layout, count);
  return layoutMask(layout);
}

int lm_get_default_sample_fmt() { return AV_SAMPLE_FMT_FLT; }

LMFFMovieFileOutputFormat lm_get_default_movie_file_ouput_format() {
  LMFFMovieFileOutputFormat format;
  movieFileOutputFormatToDefaults(&format);
  return format;
}

void movieFileOutputFormatToDefaults(LMFFMovieFileOutputFormat* format) {
  *format = {.video_bitrate = 20000000,
             .frameTime = 1,
             .channel_layout = lm_get_default_channel_layout(2),
             .sample_rate = 44100,
             .audio_bitrate = 192000};
}

LMFFFormatDictionary lm_movie_file_ouput_format_to_dict(const LMFFMovieFileOutputFormat& format) {
  LMFFFormatDictionary dict;
  forEachField(format, [&dict](const char* key, auto value) { dict[key] = value; });
  return dict;
}

LMFFMovieFileOutputFormat lm_movie_file_ouput_format_from_dict(const LMFFFormatDictionary& dict) {
  LMFFMovieFileOutputFormat format;
  forEachField(format, [&dict](const char* key, auto& field) {
    using Field = std::remove_reference_t<decltype(field)>;
    const auto entry = dict.find(key);
    field = entry == dict.end()
                ? Field{0}
                : std::visit([](auto value) { return static_cast<Field>(value); }, entry->second);
  });
  return format;
}

int64_t lm_default_time_base() { return kMicroseconds.den; }

double lm_ff_time_to_double(int64_t time) { return static_cast<double>(time) / kMicroseconds.den; }

int64_t lm_get_channel_layout_by_name(const std::string& name) {
  AVChannelLayout layout{};
  if (av_channel_layout_from_string(&layout, name.c_str()) < 0) return 0;
  const int64_t mask = layoutMask(layout);
  av_channel_layout_uninit(&layout);
  return mask;
}

int lm_get_channel_layout_nb_channels(int64_t layout) {
  return __builtin_popcountll(static_cast<uint64_t>(layout));
}

int lm_get_codec_id_by_name(const std::string& name) {
  std::string wanted = lowerCased(name);
  const auto alias = std::ranges::find(kCodecAliases, std::string_view(wanted),
                                       &std::pair<std::string_view, std::string_view>::first);
  if (alias != kCodecAliases.end()) wanted = alias->second;
  const AVCodec* decoder = avcodec_find_decoder_by_name(wanted.c_str());
  return decoder ? decoder->id : AV_CODEC_ID_NONE;
}

std::string lm_get_codec_name_by_id(int codec_id) {
  const AVCodec* decoder = avcodec_find_decoder(static_cast<AVCodecID>(codec_id));
  return decoder && decoder->name ? decoder->name : "";
}

void lm_ff_dump_av_dict(const AVDictionary* dict) {
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dict, "", entry, AV_DICT_IGNORE_SUFFIX)))
    log(fmt::format(":{}:{}:", entry->key, entry->value));
}

}  // namespace kestrel
