#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrel {

// The formats that pictures have on their way to the encoder. They are told by FFmpeg's names.

/// What is asked of the format of pictures.
struct PixelWishes {
  bool isCompatible = false;  ///< 8-bit 4:2:0 where the encoder has it
  std::optional<int> depth = {};
  std::optional<ChromaSampling> chroma = {};
};

/// The format that pictures have before they are encoded: the source's own, with the alpha that
/// lies beside it, or that of pictures that are drawn, which are opaque: of 8 bits where `isMapped`
/// says that HDR becomes SDR or where the source's samples lie in no planes, else of its own depth.
std::string formatBefore(const VideoInfo& source, bool isDrawn, bool isMapped = false);

/// The format of an encoder's list that loses least of the depth, chroma and alpha of another.
/// Throws a `Failure` of the settings where the encoder has none that is wanted.
std::string pixelFormatFor(const std::string& encoder, const std::string& before,
                           const PixelWishes& wishes = {});

/// Whether a format has alpha, or has RGB samples.
bool hasAlpha(const std::string& pixelFormat);
bool isRgb(const std::string& pixelFormat);

/// Whether the samples of a format are fine enough for HDR.
bool isFineForHdr(const std::string& pixelFormat);

/// Whether the planned pictures are HDR, of samples that are fine enough for it.
bool keepsLight(const ConversionPlan& plan);

/// Whether an encoder, which loses nothing, keeps sides that are odd.
bool keepsOddSides(const std::string& encoder);

/// What of the source's samples is lost on the way into a planned format without anybody having
/// asked for it: depth, colour, transparency; a phrase each, as "10 bits become 8, …". `hdr`: what
/// was asked to become of HDR.
std::vector<std::string> lossesOf(const ConversionPlan& plan, const PixelWishes& wishes,
                                  const std::optional<HdrHandling>& hdr, const VideoInfo& source,
                                  bool isDrawn);

}  // namespace kestrel
