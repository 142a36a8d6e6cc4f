#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>

namespace kestrel {

/// A named place where the processes of one user leave short texts for each other, each under a
/// type's name.
///
/// Contents lie in files below the user's runtime folder, which nobody else may enter, and stay
/// there until they are replaced or the session ends. Every change is a single step: whoever reads
/// sees what was there before it or after it. All operations are safe from any thread and process.
/// Where nothing can be stored, nothing is: reading then finds no text.
class KESTREL_API Pasteboard {
 public:
  /// The same name means the same pasteboard everywhere.
  static Pasteboard pasteboardWithName(const std::string& name);

  const std::string& name() const { return name_; }

  void clearContents();

  /// Sets the text of a type; those of other types stay.
  void setStringForType(const std::string& text, const std::string& type);

  /// Clears the contents and sets the text of a type, in one step.
  void replaceContents(const std::string& text, const std::string& type);

  /// The text of a type, absent where there is none.
  std::optional<std::string> stringForType(const std::string& type) const;

 private:
  explicit Pasteboard(std::string name);

  std::string name_;
  std::string path_;  // of the file with the contents, "" where there is no place for it
};

}  // namespace kestrel
