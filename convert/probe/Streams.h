#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <optional>
#include <vector>

struct AVFormatContext;
struct AVStream;

namespace kestrel {

class LMMediaSource;

/// The container index of the pictures that a viewer sees; none where there are none, and for a
/// cover.
std::optional<uint32_t> mainVideo(AVFormatContext& input);

/// When an input begins, microseconds in the container's time; 0 where it does not tell.
int64_t startOf(const AVFormatContext& input);

/// Pictures per second of a stream that tells no rate.
inline constexpr Rational kUsualRate{25, 1};

/// The rate at which a stream's pictures really come: the container's base rate, unless that
/// counts fields or clock ticks instead of pictures.
Rational realFrameRate(AVStream& stream);

/// Where in a stream's index the last key picture up to a time is (microseconds in the container's
/// time), and the time of that; none where the container has no index that reaches so far.
std::optional<int> keyEntryBefore(AVStream& stream, int64_t time);
std::optional<int64_t> keyTimeBefore(AVStream& stream, int64_t time);

/// How long after its input's start a stream begins, microseconds; 0 where that is not told.
int64_t beginOf(const StreamInfo& stream, const MediaInfo& input);

/// How a player turns a stream's pictures before it shows them.
Orientation orientationOf(const AVStream& stream);

/// Whether pictures may have an alpha: by their pixels or, where that lies beside the pictures as
/// in WebM, by the stream's tags.
bool hasAlpha(const AVStream& stream);

/// The container indexes of the sound that can be decoded. Sound alone of which no packet told a
/// rate is none: its bytes are something else.
IndexSet decodableAudios(const AVFormatContext& input);

/// The audio streams in the order in which users count them: a disc's own order, with none for a
/// track that its VOBs do not hold, or else the container's.
std::vector<std::optional<uint32_t>> audioTracksOf(const LMMediaSource& source);

/// The container indexes of the audio streams that `wanted` names, in the order in which users
/// count them. Throws `Failure`, of the setting that chose, for one that is not there.
IndexSet chosenAudios(const TrackChoice& wanted, const LMMediaSource& source,
                      const std::string& setting = "audioTracks");

}  // namespace kestrel
