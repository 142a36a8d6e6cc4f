#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kestrel {

/// A part of a picture as people name it: whole pixels from the upper left corner.
struct Area {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const Area&) const = default;
};

/// A picture to lay over all others.
struct Watermark {
  std::string path = {};  ///< a PNG, JPEG or other picture file
  double x = 0;           ///< of its upper left corner in the output, pixels from the upper left
  double y = 0;
  double scale = 1;
  double opacity = 1;  ///< 0 to 1

  bool operator==(const Watermark&) const = default;
};

/// How a picture is brought to the output's size; the numbers are `LMFFMovie::zoomType`'s.
enum class Zoom : int32_t {
  kStretch = 1,
  kFit = 2,  ///< whole, with bars where the shapes differ
  k16To9 = 3,
  k4To3 = 4,
  kFillWidth = 6,
};

/// How a movie's pictures are to look; `{}` leaves them as they are.
///
/// The pictures are set upright first, as the input's tags say. Colours have the movie's own
/// scales, whose middle changes nothing.
struct LookSettings {
  std::optional<Area> crop = {};  ///< of the upright picture, before `rotate`
  bool autoCrop = false;          ///< leave black bars out
  std::optional<Zoom> zoom = {};
  double displayAspect = 0;  ///< width / height that the source was meant to have; 0: its own
  double rotate = 0;         ///< degrees clockwise
  bool hflip = false;
  bool vflip = false;
  float saturation = 0.5F;  ///< 0 to 1
  float brightness = 0.5F;  ///< 0 to 1
  float contrast = 0.25F;   ///< 0 to 1
  float hue = 0.5F;         ///< 0 to 1
  std::string effect = {};  ///< a name of the catalogue (`EffectManager`); "": none
  std::optional<Watermark> watermark = {};
  std::string subtitles = {};  ///< a file of subtitles to draw; "": none
  std::optional<TrackChoice> subtitleTrack =
      {};  ///< one of the input's own to draw, in place of a file
  std::optional<Font> subtitleFont = {};
  std::optional<Color> subtitleColor = {};
  std::optional<float> subtitleOutline = {};  ///< pixels; absent: as suits the font
  float subtitlePosition = 0.05F;             ///< of the output's height, from below
};

}  // namespace kestrel
