#pragma once

#include <kestrel/Error.h>

#include <string>

namespace kestrel {

/// A folder in the system's place for temporary files that this user alone may enter. It goes away
/// with its object, and with the program however that ends by itself.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  /// Why there is none.
  const Error& error() const { return error_; }

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Error error_;
};

}  // namespace kestrel
