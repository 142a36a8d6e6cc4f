#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

struct AVStream;

namespace CLI {
class App;
}

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
  std::string path;
  double x = 0;  ///< of its upper left corner in the output, pixels from the upper left
  double y = 0;
  double scale = 1;
  double opacity = 1;

  bool operator==(const Watermark&) const = default;
};

/// How a movie's pictures are to look; `{}` leaves them as they are.
struct LookSettings {
  std::optional<Area> crop;     ///< of the upright picture, before `rotate`
  bool autoCrop = false;        ///< leaves black bars out
  std::optional<Area> picture;  ///< what lies between them, of the stored picture
  std::optional<int32_t> zoom;  ///< the movie's `zoomType`
  double displayAspect = 0;     ///< width / height that the source was meant to have; 0: its own
  double rotate = 0;            ///< degrees clockwise, beside what the input says itself
  bool hflip = false;
  bool vflip = false;
  float saturation = 0.5F;  ///< the movie's own scales
  float brightness = 0.5F;
  float contrast = 0.25F;
  float hue = 0.5F;
  std::string effect;  ///< a name of the catalogue; "": none
  std::optional<Watermark> watermark;
  std::string subtitles;      ///< a file; "": none
  std::string subtitleTrack;  ///< a number from 0 or a language; "": none
  std::optional<kestrel::Font> subtitleFont;
  std::optional<kestrel::Color> subtitleColor;
  std::optional<float> subtitleOutline;  ///< pixels; absent: as suits the font
  float subtitlePosition = 0.05F;        ///< of the output's height, from below
};

/// Adds the options of the look to a verb. What they were given is read by the function that this
/// answers, which throws the `Failure` of wrong usage where a value is none.
std::function<LookSettings()> addLookOptions(CLI::App& verb);

/// What a movie's pictures have to become before they are brought to the size of the output.
///
/// The pictures are turned upright as the input's tags say, then as the settings say.
class Look {
 public:
  Look() = default;

  /// `stream`: where the pictures come from. Throws `Failure` for what does not fit it, such as a
  /// crop beyond the picture.
  Look(const LookSettings& settings, const AVStream& stream);

  /// Whether pictures may go to the output as they were decoded.
  bool isPlain() const;

  /// The size that the cropped and turned pictures have by themselves, pixels. Turns that are no
  /// quarter turns do not count: the picture is fitted into the size that it had.
  kestrel::Size size() const { return size_; }

  /// Whether the picture is fitted into a size of another shape, rather than the shape of the
  /// output's pixels made to suit it.
  bool isFitted() const { return isFitted_; }

  /// The shape of a pixel of that picture, width / height.
  double pixelAspect() const { return pixelAspect_; }

  /// Sets an opened movie's look for an output of that size; throws `Failure` for a watermark or
  /// subtitles that cannot be read or are not there.
  void apply(kestrel::LMFFMovie& movie, kestrel::Size output) const;

 private:
  LookSettings settings_;
  kestrel::Rect crop_;        // as the movie takes it
  double displayAspect_ = 0;  // as the movie takes it
  float rotate_ = 0;          // as the movie takes it
  bool mirrored_ = false;
  kestrel::Size size_;
  double pixelAspect_ = 1;
  bool isFitted_ = false;
  bool isTransparent_ = false;  // the pictures may be; they lie on black
};
