#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>

#include <optional>
#include <string>

struct AVOutputFormat;

namespace kestrel {

/// How the planned pictures are encoded: plans their pixel format, their quality or bit rate, the
/// distance of key pictures and the encoder's options. The plan has its encoder, size and rate.
/// Throws a `Failure` of the settings for what the encoder does not know.
void planEncoding(ConversionPlan& plan, const ConversionSettings& settings, const VideoInfo& source,
                  bool isPlain, const AVOutputFormat& container);

/// What is asked of the format of pictures.
struct PixelWishes {
  bool isCompatible = false;  ///< 8-bit 4:2:0 where the encoder has it
  std::optional<int> depth = {};
  std::optional<ChromaSampling> chroma = {};
};

/// The format of an encoder's list that loses least of a source's depth, chroma and alpha, by
/// FFmpeg's name. `depth`: the most bits of a component that the pictures have. Throws a `Failure`
/// of the settings where the encoder has none that is wanted.
std::string pixelFormatFor(const std::string& encoder, const std::string& source, int depth,
                           const PixelWishes& wishes = {});

}  // namespace kestrel
