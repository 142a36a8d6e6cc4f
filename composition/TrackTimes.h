#pragma once

#include <kestrel/LMMovieCompositionTrack.h>

#include <cstdint>

#include "support/FFmpegOwners.h"

struct AVStream;

namespace kestrel {

/// What containers say of the times of their tracks; all in microseconds.

int64_t inMicroseconds(int64_t time, AVRational base);

/// How long a picture or a packet of sound usually lasts.
int64_t usualDuration(const AVStream& stream);

/// How long after they are decoded pictures are shown that do not tell when: as soon as a decoder
/// can return them.
int64_t displayDelay(const AVStream& stream);

/// When a track begins.
int64_t startOf(LMMovieCompositionTrack& track);

/// When a track ends; INT64_MAX where nothing is said.
int64_t statedEnd(const AVStream& stream);

}  // namespace kestrel
