#include "support/FFmpegError.h"

#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel {

Error libraryError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return {code, text};
}

Error engineError(int code, std::string message) { return {code, std::move(message)}; }

}  // namespace kestrel
