#pragma once

#include <kestrel/Export.h>

#include <string>
#include <vector>

struct AVStream;

namespace kestrel {

/// A property in which two streams differ, in words for people.
struct StreamDifference {
  std::string property;  ///< such as "size"
  std::string first;     ///< such as "1920x1080"
  std::string second;

  bool operator==(const StreamDifference&) const = default;
};

/// Why packets of the second stream can't continue those of the first: codec, codec data, size,
/// pixel format, shape, colours and rotation of pictures; codec, codec data, sample format, rate
/// and channels of sound; codec, codec data and, where they are pictures, size of subtitles. Empty
/// where they can. Codec data are compared by what they mean to a decoder: what they tell of one
/// stream's content alone, such as its length, does not count, nor do time bases.
KESTREL_API std::vector<StreamDifference> streamDifferences(const AVStream& first,
                                                            const AVStream& second);

/// Why a container, by its short name, does not take packets of a stream as they are; "" where it
/// does. Its muxer is asked by beginning a file in memory.
KESTREL_API std::string containerRefusal(const AVStream& stream, const std::string& container);

}  // namespace kestrel
