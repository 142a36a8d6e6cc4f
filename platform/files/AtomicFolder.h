#pragma once

#include <kestrel/Error.h>

#include <string>

namespace kestrel {

/// A folder that is never visible half filled. What goes into it is written to a partial folder
/// beside it, which takes the name when it is placed; an old folder of that name stays as it is
/// until then. What is not placed goes away with the object, and with the program however that ends
/// by itself.
class AtomicFolder {
 public:
  /// Makes the partial folder.
  explicit AtomicFolder(const std::string& target);
  ~AtomicFolder();
  AtomicFolder(const AtomicFolder&) = delete;
  AtomicFolder& operator=(const AtomicFolder&) = delete;

  /// Why there is none.
  const Error& error() const { return error_; }

  /// Where to write; always with a folder in front.
  const std::string& path() const { return path_; }

  /// Gives the folder its name. An old one, which may be there only where `replaces` says so, goes
  /// away with this object.
  Error place(bool replaces);

  /// Takes that back: the old folder, if there was one, has the name again.
  void undo();

 private:
  bool exchange() const;

  std::string target_;
  std::string path_;
  Error error_;
  bool isPlaced_ = false;
  bool hasReplaced_ = false;
};

}  // namespace kestrel
