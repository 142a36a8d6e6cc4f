#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// What text is drawn with: a family of typefaces, a size, a weight and a slant.
///
/// A plain value that asks for a typeface and holds none: a family that is not installed is legal
/// and drawn with what the system puts in its place, and characters that a typeface lacks come from
/// another one. The functions that look at the installed fonts may be called from any thread.
struct KESTREL_API Font {
  /// UTF-8. Case does not matter. "sans-serif", "serif" and "monospace" mean the system's own
  /// choice.
  std::string family = "sans-serif";

  /// The height of the em square in pixels, which are points at the same time. A size that is not
  /// above 0 draws nothing; one above 4096 counts as 4096.
  double size = 12;

  /// 100 (thin) to 1000 (heaviest); 400 is regular, 700 bold.
  int weight = 400;

  bool italic = false;

  /// The system's font for its own texts.
  static Font systemFontOfSize(double size);

  /// Reads a font as people write it: "Family Name", then words of style such as "Bold", "Light" or
  /// "Italic", then a size: "DejaVu Sans Bold 40".
  ///
  /// Every part may be missing: the family is the system's then, the size `defaultSize`. Where an
  /// installed family's name ends in a word of style, that word belongs to the name. Nothing for a
  /// description without any word, or with a size that is not above 0.
  static std::optional<Font> fontWithDescription(std::string_view description, double defaultSize);

  /// The names of all installed families, in each language that they are named in, sorted, each
  /// once.
  static std::vector<std::string> availableFontFamilies();

  /// True when the family is installed, or stands for the system's own choice.
  bool exists() const;

  /// The installed family that text in this font is drawn with; empty when no font is installed.
  std::string resolvedFamily() const;

  bool operator==(const Font&) const = default;
};

}  // namespace kestrel
