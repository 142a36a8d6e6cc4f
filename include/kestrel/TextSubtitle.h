#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>

#include <memory>
#include <optional>
#include <string>

namespace kestrel {

/// Where styled subtitles are drawn, and how those look that name no style of their own.
struct SubtitleCanvas {
  /// Where the picture lies in the output, whole pixels, origin at the lower left. Places in the
  /// subtitles are places of the picture.
  Rect area = {};
  Size picture = {};  ///< the picture's size before it was scaled into `area`, pixels
  Font font = {};     ///< its size in pixels of the output
  Color color = Color::white();
  double outline = 0;   ///< width of the black line around the text, pixels of the output
  double margin = 0;    ///< left free at both sides, as a fraction of the area's width
  double position = 0;  ///< of the text's lower edge, as a fraction of the area's height

  bool operator==(const SubtitleCanvas&) const = default;
};

/// What a track of text shows at a time: nothing, a text or a picture.
struct TextSubtitle {
  /// All texts shown, complete and with marks, see `LMFFMediaStream::subtitleMarkupAt`; nullopt if
  /// there are none, or `image` shows them.
  std::optional<std::string> markup = {};
  /// The texts drawn in their own styles, in pixels of the output; null if they have none, or none
  /// that marks do not tell.
  std::shared_ptr<const Image> image = nullptr;

  bool operator==(const TextSubtitle&) const = default;
};

}  // namespace kestrel
