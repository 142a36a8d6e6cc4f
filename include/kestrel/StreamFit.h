#pragma once

#include <kestrel/Export.h>

#include <string>
#include <vector>

struct AVStream;

namespace kestrel {

/// A property in which two streams differ, in words for users.
struct StreamDifference {
  std::string property;  ///< such as "size"
  std::string first;     ///< such as "1920x1080"
  std::string second;

  bool operator==(const StreamDifference&) const = default;
};

/// Why packets of the second stream cannot continue the first; empty if they can. Compares, of
/// pictures: codec, codec data, size, pixel format, aspect, colours and rotation; of sound: codec,
/// codec data, sample format, rate and channels; of subtitles: codec, codec data and, for bitmaps,
/// size. Codec data is compared by its meaning to a decoder, without what describes a single
/// stream's content, such as its length. Time bases may differ. Nothing continues TTA whose last
/// frame is shorter than the others, as that of nearly all files is ("frames").
KESTREL_API std::vector<StreamDifference> streamDifferences(const AVStream& first,
                                                            const AVStream& second);

/// Why a container, given by its short name, does not accept packets of a stream as they are; "" if
/// it does. Determined by starting a file in memory, with pictures in front where it takes sound
/// only behind them.
KESTREL_API std::string containerRefusal(const AVStream& stream, const std::string& container);

}  // namespace kestrel
