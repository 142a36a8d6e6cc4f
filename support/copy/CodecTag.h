#pragma once

#include <cstdint>

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

/// The tag by which a container is to know a stream's codec: the one that it had in its input, 0
/// for none, where the container uses that for the same codec, because some variants of codecs are
/// only known by their tag; 0 where the muxer's own choice is right.
uint32_t codecTagFor(const AVOutputFormat& container, AVCodecID codec, uint32_t tag);

}  // namespace kestrel
