#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// A request for a typeface: family, size, weight and slant.
///
/// A plain value that holds no typeface. If the family is not installed, the system's substitute is
/// used, and characters missing in a typeface come from another one. The functions that look at the
/// installed fonts are safe from any thread.
struct KESTREL_API Font {
  /// UTF-8, not case-sensitive. "sans-serif", "serif" and "monospace" mean the system's choice.
  std::string family = "sans-serif";

  /// Height of the em square in pixels, which equal points here. A size of 0 or less draws nothing;
  /// sizes above 4096 count as 4096.
  double size = 12;

  /// 100 (thin) to 1000 (heaviest); 400 is regular, 700 bold.
  int weight = 400;

  bool italic = false;

  /// The system's default font.
  static Font systemFontOfSize(double size);

  /// Parses a font description: "Family Name", then style words such as "Bold", "Light" or
  /// "Italic", then a size: "DejaVu Sans Bold 40".
  ///
  /// Every part may be omitted; the defaults are the system's family and `defaultSize`. If an
  /// installed family's name ends in a style word, the word belongs to the name. Nullopt if there
  /// are no words or the size is 0 or less.
  static std::optional<Font> fontWithDescription(std::string_view description, double defaultSize);

  /// The names of all installed families, in every language that they have a name in, sorted and
  /// without duplicates.
  static std::vector<std::string> availableFontFamilies();

  /// True if the family is installed or means the system's choice.
  bool exists() const;

  /// The installed family that this font resolves to; empty if no fonts are installed.
  std::string resolvedFamily() const;

  bool operator==(const Font&) const = default;
};

}  // namespace kestrel
