#pragma once

#include <string>

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/avutil.h>
}

struct AVOutputFormat;
struct AVStream;

namespace kestrel {

/// Which codecs a conversion can use, and in which container. What throws throws a `Failure`.

/// The container that a file's name asks for; throws when none is known by that name.
const AVOutputFormat& outputFormatFor(const std::string& path);

/// The container that a user names: by an extension ("mkv") or by FFmpeg's name ("matroska").
const AVOutputFormat& outputFormatNamed(const std::string& name);

/// A codec and the encoder that writes it, by FFmpeg's name.
struct CodecChoice {
  AVCodecID codec = AV_CODEC_ID_NONE;
  std::string encoder = {};
};

/// The best encoder of a codec.
CodecChoice choiceOf(AVCodecID codec);

/// The library's name of a codec that people call so: "hevc" for "H265" and "x265". Any other name
/// in small letters.
std::string codecNameOf(const std::string& name);

/// What a user's name means: of a codec ("h264", "x265") its best encoder, of an encoder
/// ("h264_nvenc", "libaom-av1") exactly that one. Throws unless it is of that type and there is an
/// encoder.
CodecChoice codecByName(const std::string& name, AVMediaType type);

/// Whether a user's name means a codec of sound: its own, "pcm" for all samples without one, "all"
/// for every codec.
bool namesSound(const std::string& name, AVCodecID codec);

/// Throws unless it means any.
void requireSoundName(const std::string& setting, const std::string& name);

/// The codec that pictures get without a word, none where the file is for sound.
AVCodecID defaultVideoCodec(const AVOutputFormat& format, const std::string& path);

/// The codec that sound gets without a word.
AVCodecID defaultAudioCodec(const AVOutputFormat& format);

/// The one rate of sound (Hz) that a container takes; 0 where there are several.
int onlySampleRate(const AVOutputFormat& format);

/// Throws unless the container has a place for a codec, one that players will find it in.
void requireContainerHolds(const AVOutputFormat& format, AVCodecID codec, const std::string& path);

/// Whether it has a place for such subtitles, whose times are the container's.
bool holdsSubtitles(const AVOutputFormat& format, AVCodecID codec, const std::string& path);

/// The form of text subtitles that a container has, for texts in another form; none where it has
/// none.
AVCodecID textCodecOf(const AVOutputFormat& format);

/// Whether pictures of a codec may come at any time in it, not only at a constant rate.
bool holdsTimes(const AVOutputFormat& format, AVCodecID codec);

/// Whether the container's muxer says that it takes a codec; where it says nothing, it may still
/// refuse it when the file is begun.
bool isKnownToHold(const AVOutputFormat& format, AVCodecID codec);

/// Why the container does not take a stream's packets as they are, "" where it does: its muxer is
/// asked, and what players would not find there is refused.
std::string refusalOf(const AVOutputFormat& format, const AVStream& stream);

/// Throws where there is such a reason.
void requireContainerTakes(const AVOutputFormat& format, const AVStream& stream,
                           const std::string& path);

/// Throws unless it can be encoded, too.
void requireEncodable(const AVOutputFormat& format, AVCodecID codec, const std::string& path);

}  // namespace kestrel
