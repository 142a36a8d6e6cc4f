#pragma once

#include <kestrel/Error.h>

#include "support/FFmpegError.h"

namespace kestrel {

/// Keeps the first failure of those that are noted.
class FirstError {
 public:
  void note(const Error& error) {
    if (!error_) error_ = error;
  }

  /// Notes a library's answer when it is a failure; answers whether it is none.
  bool succeeded(int result) {
    if (result < 0 && !error_) error_ = libraryError(result);
    return result >= 0;
  }

  const Error& get() const { return error_; }

 private:
  Error error_;
};

}  // namespace kestrel
