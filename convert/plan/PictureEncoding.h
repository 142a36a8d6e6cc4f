#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>

#include <string>

struct AVOutputFormat;

namespace kestrel {

/// How the planned pictures are encoded: plans their pixel format, their quality or bit rate, the
/// distance of key pictures and the encoder's options. The plan has its encoder, size and rate.
/// Throws a `Failure` of the settings for what the encoder does not know.
void planEncoding(ConversionPlan& plan, const ConversionSettings& settings, const VideoInfo& source,
                  bool isPlain, const AVOutputFormat& container);

/// The format of an encoder's list that loses least of a source's depth, chroma and alpha, by
/// FFmpeg's name. `depth`: the most bits of a component that the pictures have. `isCompatible`:
/// 8-bit 4:2:0 where the encoder has it.
std::string pixelFormatFor(const std::string& encoder, const std::string& source, int depth,
                           bool isCompatible);

}  // namespace kestrel
