#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

/// How a movie's pictures are finished, all settings in one: a movie takes and returns them as a
/// whole (`LMFFMovie::look`) besides one by one. As it is made it changes nothing of a picture but
/// its size.
struct MovieLook {
  /// The display shape: 1 four by three, 2 sixteen by nine, anything else the source's.
  int64_t aspectType = 0;
  /// The display shape of the whole source, width / height, in place of `aspectType`; 0: that
  /// counts. For sources whose shape is neither of the two that it knows.
  double displayAspect = 0;
  Rect cropRect = {};  ///< what is kept of the source, pixels
  bool hflip = false;
  bool vflip = false;
  float rotate = 0;                                  ///< degrees, after the mirrors
  float saturation = 0.5F;                           ///< 0.5 changes nothing
  float brightness = 0.5F;                           ///< 0.5 changes nothing
  float contrast = 0.25F;                            ///< 0.25 changes nothing
  float hue = 0.5F;                                  ///< 0.5 changes nothing
  int32_t zoomType = 5;                              ///< how the picture fits the output
  std::optional<std::string> effectName = {};        ///< of the catalogue; absent: none
  std::shared_ptr<const Image> watermark = nullptr;  ///< laid over every picture; null: none

  // Text subtitles.

  std::optional<Font> subtitleFont = {};    ///< absent: 80 pixels of the system's font
  std::optional<Color> subtitleColor = {};  ///< absent: white
  /// Where the text's lower edge is: 0 at the output's lower edge, 1 at its upper.
  float subtitlePosition = 0;
  /// "<b>", "<i>", "<u>" and "<s>" up to their "</…>" mean bold, italic, underlined and struck
  /// through, and "&lt;", "&gt;", "&amp;" stand for what marks are made of.
  bool subtitleMarkup = false;
  float subtitleOutline = 0;  ///< how far a black outline reaches around the text, pixels
  float subtitleMargin = 0;   ///< free of text at the left and at the right, of the output's width

  bool operator==(const MovieLook&) const = default;
};

}  // namespace kestrel
