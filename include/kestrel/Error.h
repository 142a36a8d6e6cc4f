#pragma once

#include <string>

namespace kestrel {

/// A failure. Sources and outputs keep one, because their calls only return false or null.
///
/// `code` is 0 if nothing has failed, otherwise a negative system (`-errno`) or FFmpeg error code.
/// `message` is a sentence fragment without the file's name, such as "No such file or directory".
struct Error {
  int code = 0;
  std::string message;

  explicit operator bool() const { return code != 0; }
  bool operator==(const Error&) const = default;
};

}  // namespace kestrel
