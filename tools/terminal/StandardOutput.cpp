#include "tools/terminal/StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "tools/terminal/Outcome.h"

void writeStandardOutput(const std::string& text) {
  errno = 0;
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isWritten && std::fflush(stdout) == 0) return;
  if (errno == EPIPE) throw failed("");
  throw failed("cannot write to standard output: " + std::generic_category().message(errno));
}
