#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <cstdint>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

struct AVCodec;
struct AVCodecParameters;
struct AVOutputFormat;
struct AVStream;

namespace kestrel {

/// How a sound track is stored.
struct SoundFormat {
  int32_t sampleRate = 0;  ///< Hz
  int64_t layout = 0;      ///< a channel mask
  int32_t bits = 0;        ///< of a sample; 0 where the codec does not keep them all

  int channels() const;
};

/// Whether a codec keeps every bit of its samples.
bool isLossless(AVCodecID codec);

/// Whether a track's samples are floating point.
bool isFloatingPoint(const AVCodecParameters& sound);

/// How many bits a sample of a track has that mean something. Codecs that lose some say nothing of
/// that: 24 where they decode to floats, else 16.
int32_t soundBits(const AVCodecParameters& sound);

/// Its channels as a mask: those that it tells, else those that so many channels usually are.
int64_t layoutOf(const AVCodecParameters& sound);

/// The interleaved samples (an `AVSampleFormat`) in which a track goes from its decoder to its
/// encoder: float, which keeps 24 bits and is what sound is shaped in, but for whole numbers of
/// more bits and doubles that stay as they are.
int32_t carriedSamples(const AVCodecParameters& own, const PlannedStream& planned);

/// The most bits of a sample that an encoder keeps; 0 where that is not known.
int32_t deepestOf(const AVCodec& encoder);

/// The bits per second that an encoder gets which nobody told any: 96000 for each channel, less for
/// rates below 44.1 kHz in proportion, in one of the steps that the MPEG codecs have.
int32_t usualBitrate(const SoundFormat& format);

/// Whether an encoder opens for a format, and the container takes what it makes.
bool isTaken(const SoundFormat& format, const AVCodec& encoder, const AVOutputFormat& container);

/// The rates that an encoder knows, the one nearest to `own` first; of one that knows any, `own`.
std::vector<int32_t> ratesLike(int32_t own, const AVCodec& encoder);

/// The rate, layout and depth of a track of an input, as far as an encoder and the container take
/// them: both are asked. Else the nearest rate; a pair of speakers at the side in place of one at
/// the back, or the reverse; silent speakers beside them; the speakers that the most of fewer
/// channels usually have.
SoundFormat soundFormatLike(const AVStream& sound, const AVCodec& encoder,
                            const AVOutputFormat& container);

}  // namespace kestrel
