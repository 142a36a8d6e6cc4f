#pragma once

#include <string>

namespace kestrel {

/// Why something failed: what sources and outputs keep, as their calls only return false or null.
///
/// `code` is 0 while nothing has failed, otherwise a negative library or system error number
/// (`-errno`, or the media libraries' own). `message` is one sentence fragment without the file's
/// name, such as "No such file or directory".
struct Error {
  int code = 0;
  std::string message;

  explicit operator bool() const { return code != 0; }
  bool operator==(const Error&) const = default;
};

}  // namespace kestrel
