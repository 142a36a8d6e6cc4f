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

/// The codec that a user's name means ("h264", "x265", "libvorbis"). Throws unless it is of that
/// type and can be encoded.
AVCodecID codecByName(const std::string& name, AVMediaType type);

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

/// Throws unless it is a preset of the H.264 and HEVC encoders, which would complain on standard
/// error by themselves.
void requirePreset(const std::string& name);

}  // namespace kestrel
