#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Sets up an unopened video encoder, and the aspect of its stream, as the record says.
/// Where matrix or range of `color` are open, they are those that such pictures are taken for.
void configurePicture(const LMFFMovieFileOutputFormat& format, const LMFFVideoColor& color,
                      AVStream& stream, AVCodecContext& encoder);

/// What an encoder says of its pictures' colours.
LMFFVideoColor colorOf(const AVCodecContext& encoder);

/// Then makes it what a DVD player takes: a constant bit rate, pictures in groups of about half a
/// second, 4:2:0.
void configureForDvd(const LMFFMovieFileOutputFormat& format, AVFormatContext& container,
                     AVCodecContext& encoder);

}  // namespace kestrel
