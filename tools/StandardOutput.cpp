#include "StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "Failure.h"

void writeStandardOutput(const std::string& text) {
  errno = 0;
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isWritten && std::fflush(stdout) == 0) return;
  if (errno == EPIPE) throw Failure{kFailed, ""};
  throw Failure{kFailed,
                "cannot write to standard output: " + std::generic_category().message(errno)};
}
