#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Names for what media files only give codes for. It has no state; all operations are safe from
/// any thread.
class KESTREL_API LibMedia {
 public:
  /// The name of a language in the user's own language, UTF-8: "French" for "fr", "fre" and "fra"
  /// under an English locale.
  ///
  /// Codes of two and three letters are understood, in either case. A longer code that has no name
  /// is looked up once more by its first two letters. A code that is still unknown, "und" and ""
  /// are shown as English. Only under a locale that has no names at all is the result the code
  /// itself.
  static std::string displayStringForLanguage(const std::string& code);
};

}  // namespace kestrel
