#pragma once

#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "convert/look/Look.h"

namespace kestrel {

class LMMediaSource;

/// What `kestrel` lays over a movie's pictures. All throw a `Failure` that names the file or the
/// track when it cannot be had.

/// A picture at its place in an output `outputHeight` pixels high, scaled and faded.
std::shared_ptr<const Image> loadWatermark(const Watermark& watermark, double outputHeight);

/// Makes a text file the movie's subtitles, whatever encoding it is in.
void openSubtitles(LMFFMovie& movie, const std::string& path);

/// Makes one of the input's own subtitle streams the movie's: a number from 0, or a language.
void openSubtitleTrack(LMFFMovie& movie, const TrackChoice& track);

/// Which stream of an opened input that is, by its container index; none where a disc's has yet to
/// appear.
std::optional<uint32_t> subtitleStreamOf(const LMMediaSource& source, const TrackChoice& track);

}  // namespace kestrel
