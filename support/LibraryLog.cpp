#include "support/LibraryLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

thread_local LibraryLog* listener = nullptr;

}  // namespace

void quietLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_FATAL); });
}

struct LibraryLogCallback {
  static void call(void* context, int level, const char* format, va_list arguments) {
    // The bits above the lowest eight choose a colour.
    if (listener && level >= 0 && (level & 0xFF) <= AV_LOG_ERROR) {
      va_list again;
      va_copy(again, arguments);
      std::array<char, 512> text{};
      std::vsnprintf(text.data(), text.size(), format, again);
      va_end(again);
      listener->hear(text.data());
    }
    av_log_default_callback(context, level, format, arguments);
  }
};

LibraryLog::LibraryLog() : outer_(listener) {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(&LibraryLogCallback::call); });
  listener = this;
}

LibraryLog::~LibraryLog() { listener = outer_; }

// A line may come in several pieces.
void LibraryLog::hear(const char* text) {
  if (complete_) return;
  line_ += text;
  const size_t end = line_.find('\n');
  if (end == std::string::npos) return;
  line_.resize(end);
  complete_ = !line_.empty();
}

Error LibraryLog::explain(int code, const std::string& subject) const {
  Error error = libraryError(code);
  if (!line_.empty()) error.message = line_;
  return engineError(code, subject + ": " + error.message);
}

}  // namespace kestrel
