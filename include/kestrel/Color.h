#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A colour in the encoded (gamma) domain of the video. Components run from 0 to 1 and are not
/// premultiplied by `alpha`, which runs from 0, transparent, to 1, opaque. Values out of range are
/// clamped when painting.
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

/// Parses a colour: a CSS colour name in any case, or "#RGB", "#RRGGBB" or "#RRGGBBAA", the last
/// two also with "0x" or nothing in place of "#"; each optionally followed by an alpha such as
/// "@0.5" or "@0x80". Nullopt for anything else.
KESTREL_API std::optional<Color> colorWithName(const std::string& text);

/// The names that `colorWithName` knows.
KESTREL_API std::vector<std::string> colorNames();

}  // namespace kestrel
