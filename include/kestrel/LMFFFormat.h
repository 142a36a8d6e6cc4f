#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <map>
#include <string>
#include <variant>

struct AVDictionary;

namespace kestrel {

/// A fraction; a time base is the duration of one tick in seconds.
struct Rational {
  int32_t num = 0;
  int32_t den = 1;

  bool operator==(const Rational&) const = default;
};

/// Pixel format and size of video frames.
struct LMFFVideoFormat {
  int32_t pix_fmt = 0;  ///< libavutil pixel format (`AV_PIX_FMT_…`)
  int32_t width = 0;    ///< pixels
  int32_t height = 0;   ///< pixels

  bool operator==(const LMFFVideoFormat&) const = default;
};

/// Format of audio samples.
struct LMFFAudioFormat {
  int32_t sample_fmt = 0;      ///< libavutil sample format (`AV_SAMPLE_FMT_…`)
  int64_t channel_layout = 0;  ///< libavutil channel mask
  int32_t sample_rate = 0;     ///< Hz

  bool operator==(const LMFFAudioFormat&) const = default;
};

/// Encoding parameters of an output file. A value-initialised record is all zeros;
/// `lm_get_default_movie_file_ouput_format` returns the defaults given here.
struct LMFFMovieFileOutputFormat {
  int32_t width = 0;           ///< picture width, pixels
  int32_t height = 0;          ///< picture height, pixels
  int32_t video_codec = 0;     ///< `AV_CODEC_ID_…`; 0: the container's default
  int32_t video_bitrate = 0;   ///< bits per second; default 20000000
  int32_t framerate = 0;       ///< the encoder's time base is frameTime / framerate seconds
  int32_t frameTime = 0;       ///< duration of a frame in 1 / framerate seconds; default 1
  float aspect = 0;            ///< display aspect, width / height; 0: not signalled
  int64_t channel_layout = 0;  ///< libavutil channel mask; default stereo
  int32_t sample_rate = 0;     ///< Hz; default 44100
  int32_t audio_codec = 0;     ///< `AV_CODEC_ID_…`; 0: the container's default
  int32_t audio_bitrate = 0;   ///< bits per second; default 192000

  bool operator==(const LMFFMovieFileOutputFormat&) const = default;
};

/// Stands for the functions below; it has no state or behaviour.
class LMFFFormat {};

/// A value in a record's dictionary form; its type is preserved.
using LMFFFormatValue = std::variant<int32_t, int64_t, float>;

using FormatValue = LMFFFormatValue;

/// A record as a dictionary: eleven values, keyed by the names of its fields.
using LMFFFormatDictionary = std::map<std::string, LMFFFormatValue>;

using FormatDictionary = LMFFFormatDictionary;

/// True when all three fields are equal.
KESTREL_API bool isFFAudioFormatEqual(const LMFFAudioFormat& a, const LMFFAudioFormat& b);

/// The engine's own PCM: interleaved 32-bit float, default stereo layout, 44100 Hz.
KESTREL_API LMFFAudioFormat lm_get_default_audio_format();

/// The default channel mask for `count` channels; 0 if there is none.
KESTREL_API int64_t lm_get_default_channel_layout(int count);

/// Interleaved 32-bit float (`AV_SAMPLE_FMT_FLT`).
KESTREL_API int lm_get_default_sample_fmt();

KESTREL_API LMFFMovieFileOutputFormat lm_get_default_movie_file_ouput_format();

/// Sets `format` to the defaults. `format` must not be null.
KESTREL_API void movieFileOutputFormatToDefaults(LMFFMovieFileOutputFormat* format);

/// Stores "aspect" as float, "channel_layout" as 64-bit and everything else as 32-bit integers.
KESTREL_API LMFFFormatDictionary
lm_movie_file_ouput_format_to_dict(const LMFFMovieFileOutputFormat& format);

/// Reads the dictionary form. A missing key gives 0, not the default. Values of another numeric
/// type are cast.
KESTREL_API LMFFMovieFileOutputFormat
lm_movie_file_ouput_format_from_dict(const LMFFFormatDictionary& dict);

/// Always 1000000: times in the engine are in microseconds.
KESTREL_API int64_t lm_default_time_base();

/// Converts microseconds to seconds.
KESTREL_API double lm_ff_time_to_double(int64_t time);

/// The channel mask for a layout's name ("stereo", "5.1"); 0 if unknown.
KESTREL_API int64_t lm_get_channel_layout_by_name(const std::string& name);

/// The number of channels in a mask.
KESTREL_API int lm_get_channel_layout_nb_channels(int64_t layout);

/// The codec id (`AV_CODEC_ID_…`) for a name given by a user, not case-sensitive; 0 if unknown.
/// Also understands "mpeg1", "mpeg2", "animation", "ac-3", "wma1", "wma2" and "ffv". Only decoders
/// are searched: the name of an encoder without a decoder of that name gives 0.
KESTREL_API int lm_get_codec_id_by_name(const std::string& name);

/// The short name of the codec's decoder; "" if there is none.
KESTREL_API std::string lm_get_codec_name_by_id(int codec_id);

/// Logs ":key:value:" for each entry, in order. Null logs nothing.
KESTREL_API void lm_ff_dump_av_dict(const AVDictionary* dict);

}  // namespace kestrel
