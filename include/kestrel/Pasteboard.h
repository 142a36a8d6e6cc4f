#pragma once

#include <kestrel/Export.h>

#include <optional>
#include <string>

namespace kestrel {

/// A named place where processes of one user exchange short texts, each stored under the name of a
/// type.
///
/// Contents are files in the user's runtime folder, which other users cannot enter. They stay until
/// they are replaced or the session ends. Changes are atomic: readers see the state before or after
/// one. All operations are safe from any thread and process. If nothing can be stored, writing has
/// no effect and reading finds no text.
class KESTREL_API Pasteboard {
 public:
  /// The same name refers to the same pasteboard in every process.
  static Pasteboard pasteboardWithName(const std::string& name);

  const std::string& name() const { return name_; }

  void clearContents();

  /// Sets the text of a type; other types stay.
  void setStringForType(const std::string& text, const std::string& type);

  /// Clears the contents and sets the text of a type in one step.
  void replaceContents(const std::string& text, const std::string& type);

  /// The text of a type; nullopt if there is none.
  std::optional<std::string> stringForType(const std::string& type) const;

 private:
  explicit Pasteboard(std::string name);

  std::string name_;
  std::string path_;  // of the file with the contents; "" if there is no place for it
};

}  // namespace kestrel
