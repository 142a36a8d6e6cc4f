#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Scaler.h>
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
  double scale = 1;    ///< above 0 and up to 100
  double opacity = 1;  ///< 0 to 1

  bool operator==(const Watermark&) const = default;
};

/// How a picture is brought to the output's size; the numbers are those of `LMFFMovie::zoomType`,
/// which says what each does.
enum class Zoom : int32_t {
  kStretch = 1,
  kFit = 2,  ///< whole, with bars where the shapes differ
  k16To9 = 3,
  k4To3 = 4,
  kFillWidth = 6,
};

/// What becomes of HDR pictures (PQ and HLG).
enum class HdrHandling {
  kKeep,  ///< they stay so; what is drawn over them has its white at 203 candelas per square metre
  kSdr,   ///< they are brought to BT.709, as `toneMapped` does it
};

/// How a movie's pictures are to look; `{}` leaves them as they are.
///
/// The pictures are set upright first, as the input's tags say; all that is said here is of the
/// upright picture, with the origin at its upper left, and turns are clockwise. (`LMFFMovie`, which
/// carries it out, counts from the lower left and turns counter-clockwise.) Colours have the
/// movie's own scales, whose defaults change nothing. What is out of range is refused.
struct LookSettings {
  std::optional<Area> crop = {};  ///< before `rotate`, within the picture; not beside `autoCrop`
  bool autoCrop = false;          ///< leave black bars out
  std::optional<Zoom> zoom = {};
  Scaler scaler = {};  ///< brings pictures to another size, whether anything else is done or not
  /// Absent: they stay HDR in conversions whose encoder holds at least 10 bits of a component, and
  /// become SDR everywhere else.
  std::optional<HdrHandling> hdr = {};
  /// The width / height that the source was meant to have, 0.01 to 100; 0: its own.
  double displayAspect = 0;
  double rotate = 0;  ///< degrees clockwise, any finite number
  bool hflip = false;
  bool vflip = false;
  float saturation = 0.5F;  ///< 0 (grey) to 10; 1 is twice as colourful
  float brightness = 0.5F;  ///< 0 (black) to 10; 1 is white
  float contrast = 0.25F;   ///< 0 (flat) to 10; 0.5 is twice as much
  float hue = 0.5F;         ///< 0 to 10; 0 and 1 turn the colours half way round
  std::string effect = {};  ///< a name of the catalogue (`EffectManager`); "": none
  std::optional<Watermark> watermark = {};
  std::string subtitles = {};  ///< a file of subtitles to draw; "": none
  /// One of the input's own tracks to draw, in place of a file.
  std::optional<TrackChoice> subtitleTrack = {};
  /// Draw all subtitles alike, whatever styles, places and colours they name.
  bool ignoreStyles = false;
  // How subtitles look that name no style of their own:
  std::optional<Font> subtitleFont = {};
  std::optional<Color> subtitleColor = {};
  std::optional<float> subtitleOutline = {};  ///< 0 to 100 pixels; absent: as suits the font
  float subtitlePosition = 0.05F;             ///< 0 to 0.9 of the output's height, from below

  bool operator==(const LookSettings&) const = default;
};

}  // namespace kestrel
