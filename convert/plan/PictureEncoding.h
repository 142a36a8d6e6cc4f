#pragma once

#include <kestrel/convert/ConversionPlan.h>

struct AVOutputFormat;

namespace kestrel {

/// How the planned pictures are encoded: plans their quality or bit rate, the distance of key
/// pictures and the encoder's options. The plan has its encoder, pixel format, size and rate.
/// Throws a `Failure` of the settings for what the encoder does not know.
void planEncoding(ConversionPlan& plan, const ConversionSettings& settings,
                  const AVOutputFormat& container);

/// Bits per second that suit the size, rate and codec of pictures.
double usualBitrate(const LMFFMovieFileOutputFormat& format);

}  // namespace kestrel
