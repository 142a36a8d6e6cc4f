#pragma once

#include <kestrel/IndexSet.h>

#include <cstdint>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/avutil.h>
}

struct AVFormatContext;

namespace kestrel {

/// The container index of the stream of a kind that a player chooses by itself; none where there is
/// no such stream.
std::optional<uint32_t> bestStream(AVFormatContext& input, AVMediaType kind);

/// The container indexes of all sound tracks, in the container's order.
std::vector<uint32_t> soundTracks(const AVFormatContext& input);

/// The container indexes of the sound tracks with these places among all of them, of those that are
/// there; without `tracks` of the one that a player chooses.
std::vector<uint32_t> soundTracks(AVFormatContext& input, const std::optional<IndexSet>& tracks);

}  // namespace kestrel
