#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/Scaler.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

/// All settings of how a movie's pictures are finished; a movie can get and set them as a whole
/// (`LMFFMovie::look`) or, most of them, one by one. With the defaults, pictures are only fitted
/// into the output, but `cropRect` must be set: an empty one leaves nothing of them but black.
struct MovieLook {
  /// Display aspect: 1 is 4:3, 2 is 16:9, anything else the source's.
  int64_t aspectType = 0;
  /// Display aspect of the whole source, width / height, for sources that are neither 4:3 nor 16:9.
  /// Overrides `aspectType` if above 0.
  double displayAspect = 0;
  Rect cropRect = {};  ///< the part of the source that is kept, pixels
  bool hflip = false;
  bool vflip = false;
  float rotate = 0;         ///< degrees counter-clockwise, after mirroring
  float saturation = 0.5F;  ///< 0.5 changes nothing
  float brightness = 0.5F;  ///< 0.5 changes nothing
  float contrast = 0.25F;   ///< 0.25 changes nothing
  float hue = 0.5F;         ///< 0.5 changes nothing
  int32_t zoomType = 5;     ///< see `LMFFMovie::zoomType`
  Scaler scaler = {};       ///< brings the pictures to their size
  /// HDR pictures (PQ, HLG) are brought to SDR, as `kestrel::toneMapped` does it. Else they stay as
  /// they are, and what is drawn over them has its white at `kGraphicsWhite`.
  bool toneMaps = false;
  std::optional<std::string> effectName = {};        ///< of the catalogue; nullopt: none
  std::shared_ptr<const Image> watermark = nullptr;  ///< drawn over every picture; null: none

  // Text subtitles.

  std::optional<Font> subtitleFont = {};    ///< nullopt: the system's font at 80 pixels
  std::optional<Color> subtitleColor = {};  ///< nullopt: white
  /// Position of the text's lower edge: 0 at the bottom of the output, 1 at its top.
  float subtitlePosition = 0;
  /// If true, "<b>", "<i>", "<u>" and "<s>" up to their closing tags mean bold, italic, underlined
  /// and struck through, and "&lt;", "&gt;", "&amp;" stand for the characters.
  bool subtitleMarkup = false;
  /// If true, subtitles with styles of their own are drawn with them, in their places: scripts of
  /// ASS and SSA, and texts with marks for places, colours, sizes or fonts. The settings here count
  /// for what has no style. If false, all are drawn by these settings alone.
  bool subtitleStyles = false;
  float subtitleOutline = 0;  ///< width of the black outline around the text, pixels
  float subtitleMargin = 0;   ///< on each side of the text, as a fraction of the output's width

  bool operator==(const MovieLook&) const = default;
};

}  // namespace kestrel
