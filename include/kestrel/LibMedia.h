#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Display names for codes in media files. Stateless; safe from any thread.
class KESTREL_API LibMedia {
 public:
  /// The name of a language in the user's language, UTF-8: "French" for "fr", "fre" and "fra" under
  /// an English locale.
  ///
  /// Accepts codes of two and three letters, in either case. A longer code without a name is looked
  /// up again by its first two letters. Codes that are still unknown, "und" and "" show as English.
  /// If the locale has no names at all, the code itself is returned.
  static std::string displayStringForLanguage(const std::string& code);
};

}  // namespace kestrel
