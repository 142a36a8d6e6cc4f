#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A colour in the encoded (gamma) domain of the video: the components run from 0 to 1 and are not
/// multiplied by `alpha`, which runs from 0, transparent, to 1, opaque.
///
/// A plain value; whoever paints with it clamps what lies outside of the range.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  static constexpr Color white() { return {1, 1, 1, 1}; }
  static constexpr Color black() { return {0, 0, 0, 1}; }
  /// Transparent black.
  static constexpr Color clear() { return {0, 0, 0, 0}; }

  bool operator==(const Color&) const = default;
};

/// The colour that a text means: a name that browsers know, in any case, or "#RGB", "#RRGGBB" or
/// "#RRGGBBAA", the last two also with "0x" or nothing in front; "@0.5" or "@0x80" behind it is its
/// alpha. Nothing for any other text.
KESTREL_API std::optional<Color> colorWithName(const std::string& text);

/// The names among them.
KESTREL_API std::vector<std::string> colorNames();

}  // namespace kestrel
