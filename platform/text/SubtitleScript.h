#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// Subtitles with styles, in the form of Advanced SubStation Alpha, laid out and drawn by libass.
/// For one thread at a time. Fonts are looked up when the first picture is drawn.
class SubtitleScript {
 public:
  /// How a text looks that names no style of its own. Lengths are in pixels of what it is drawn on.
  struct Style {
    Font font;
    Color color;
    double outline = 0;  ///< width of the black line around the text
    double beside = 0;   ///< room left free at both sides
    double below = 0;    ///< from the lower edge to the text

    bool operator==(const Style&) const = default;
  };

  /// What is drawn on. Places in a script are those of a picture, which may have been scaled.
  struct Canvas {
    int width = 0;               ///< pixels
    int height = 0;              ///< pixels
    Size picture;                ///< as it was before it was scaled to the canvas, pixels
    std::optional<Style> plain;  ///< in place of the script's default style

    bool operator==(const Canvas&) const = default;
  };

  /// A part of what is shown, with the distance of its lower left corner from that of the canvas.
  /// Parts do not overlap.
  struct Part {
    std::shared_ptr<const BitmapImage> bitmap;
    Point origin;
  };

  /// `header`: the script without its dialogue, as decoders of subtitles provide it.
  explicit SubtitleScript(std::string_view header);
  ~SubtitleScript();
  SubtitleScript(SubtitleScript&&) noexcept;
  SubtitleScript& operator=(SubtitleScript&&) noexcept;

  /// Makes a font that comes with the script known, by the names that are in it. Before the first
  /// picture is drawn.
  void addFont(const std::string& name, std::span<const uint8_t> file);

  /// Adds a line of dialogue as decoders answer it: order, layer, style, name, margins, effect and
  /// text. Times in milliseconds.
  void add(std::string_view line, int64_t start, int64_t duration);

  /// Drops all dialogue.
  void clear();

  /// What is shown at a time, in milliseconds; nullopt if nothing has changed since the last call.
  std::optional<std::vector<Part>> partsAt(int64_t time, const Canvas& canvas);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
