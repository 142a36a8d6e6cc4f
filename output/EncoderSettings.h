#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Configures an unopened video encoder and the aspect ratio of its stream according to `format`.
/// If it has no pixel format yet, it gets the first in its list. Unspecified matrix and range of
/// `color` get the values assumed for such pictures.
void configurePicture(const LMFFMovieFileOutputFormat& format, const LMFFVideoColor& color,
                      AVStream& stream, AVCodecContext& encoder);

/// The colours that an encoder is configured for.
LMFFVideoColor colorOf(const AVCodecContext& encoder);

/// Adapts an encoder set up by `configurePicture` to DVD players: constant bit rate, groups of
/// about half a second, 4:2:0.
void configureForDvd(const LMFFMovieFileOutputFormat& format, AVFormatContext& container,
                     AVCodecContext& encoder);

}  // namespace kestrel
