#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <map>
#include <string>
#include <variant>

struct AVDictionary;

namespace kestrel {

/// A fraction; as a time base, the seconds that one unit lasts.
struct Rational {
  int32_t num = 0;
  int32_t den = 1;

  bool operator==(const Rational&) const = default;
};

/// The pixel layout of a video frame.
struct LMFFVideoFormat {
  int32_t pix_fmt = 0;  ///< libavutil pixel format (`AV_PIX_FMT_…`)
  int32_t width = 0;    ///< pixels
  int32_t height = 0;   ///< pixels

  bool operator==(const LMFFVideoFormat&) const = default;
};

/// The sample layout of an audio stream.
struct LMFFAudioFormat {
  int32_t sample_fmt = 0;      ///< libavutil sample format (`AV_SAMPLE_FMT_…`)
  int64_t channel_layout = 0;  ///< libavutil channel mask
  int32_t sample_rate = 0;     ///< samples per second and channel

  bool operator==(const LMFFAudioFormat&) const = default;
};

/// The encoding parameters of an output movie file.
///
/// The zero record is what an empty dictionary gives; `lm_get_default_movie_file_ouput_format`
/// gives the defaults named here.
struct LMFFMovieFileOutputFormat {
  int32_t width = 0;           ///< picture width, pixels
  int32_t height = 0;          ///< picture height, pixels
  int32_t video_codec = 0;     ///< `AV_CODEC_ID_…`; 0: the container's default
  int32_t video_bitrate = 0;   ///< bits per second; default 20000000
  int32_t framerate = 0;       ///< the encoder's time base is frameTime / framerate seconds
  int32_t frameTime = 0;       ///< duration of a frame in 1 / framerate seconds; default 1
  float aspect = 0;            ///< display aspect, width / height; 0: none is signalled
  int64_t channel_layout = 0;  ///< libavutil channel mask; default stereo
  int32_t sample_rate = 0;     ///< Hz; default 44100
  int32_t audio_codec = 0;     ///< `AV_CODEC_ID_…`; 0: the container's default
  int32_t audio_bitrate = 0;   ///< bits per second; default 192000

  bool operator==(const LMFFMovieFileOutputFormat&) const = default;
};

/// The class that gives the functions below a home; it has no state and no behaviour.
class LMFFFormat {};

/// A stored value of a record's dictionary form; the kinds stay apart.
using LMFFFormatValue = std::variant<int32_t, int64_t, float>;

using FormatValue = LMFFFormatValue;

/// The dictionary form of a record: eleven values under the names of its fields.
using LMFFFormatDictionary = std::map<std::string, LMFFFormatValue>;

using FormatDictionary = LMFFFormatDictionary;

/// True when all three fields are equal.
KESTREL_API bool isFFAudioFormatEqual(const LMFFAudioFormat& a, const LMFFAudioFormat& b);

/// Interleaved 32-bit float, default stereo layout, 44100 Hz: the engine's own PCM.
KESTREL_API LMFFAudioFormat lm_get_default_audio_format();

/// The default channel mask for `count` channels, 0 when there is none.
KESTREL_API int64_t lm_get_default_channel_layout(int count);

/// Interleaved 32-bit float (`AV_SAMPLE_FMT_FLT`).
KESTREL_API int lm_get_default_sample_fmt();

KESTREL_API LMFFMovieFileOutputFormat lm_get_default_movie_file_ouput_format();

/// Fills `format` with the defaults. `format` may not be null.
KESTREL_API void movieFileOutputFormatToDefaults(LMFFMovieFileOutputFormat* format);

/// "aspect" is stored as a float, "channel_layout" as a 64-bit integer, the rest as 32-bit ones.
KESTREL_API LMFFFormatDictionary
lm_movie_file_ouput_format_to_dict(const LMFFMovieFileOutputFormat& format);

/// Reads the dictionary form back; a missing key gives 0, not the default. A value of another
/// kind is converted as a number is, by cast.
KESTREL_API LMFFMovieFileOutputFormat
lm_movie_file_ouput_format_from_dict(const LMFFFormatDictionary& dict);

/// 1000000: times are microseconds throughout the engine.
KESTREL_API int64_t lm_default_time_base();

/// Microseconds to seconds.
KESTREL_API double lm_ff_time_to_double(int64_t time);

/// The mask of a channel layout's name ("stereo", "5.1"), 0 when unknown.
KESTREL_API int64_t lm_get_channel_layout_by_name(const std::string& name);

/// The number of channels in a mask.
KESTREL_API int lm_get_channel_layout_nb_channels(int64_t layout);

/// The codec identifier for a user's name of it, 0 when unknown. Letter case does not count;
/// "mpeg1", "mpeg2", "animation", "ac-3", "wma1", "wma2" and "ffv" are understood. Names are looked
/// up among the decoders: a name that only an encoder has gives 0.
KESTREL_API int lm_get_codec_id_by_name(const std::string& name);

/// The short name of the identifier's decoder, "" when there is none.
KESTREL_API std::string lm_get_codec_name_by_id(int codec_id);

/// Logs ":key:value:" for every entry, in stored order; nothing for null.
KESTREL_API void lm_ff_dump_av_dict(const AVDictionary* dict);

}  // namespace kestrel
