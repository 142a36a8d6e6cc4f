#pragma once

#include <cstdint>
#include <vector>

struct AVCodec;
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

/// The rates that an encoder knows, the one nearest to `own` first; of one that knows any, `own`.
std::vector<int32_t> ratesLike(int32_t own, const AVCodec& encoder);

/// The rate, layout and depth of a track of an input, as far as an encoder and the container take
/// them: both are asked. Else the nearest rate, and the speakers that the most of
/// fewer channels usually have.
SoundFormat soundFormatLike(const AVStream& sound, const AVCodec& encoder,
                            const AVOutputFormat& container);

}  // namespace kestrel
