#include "platform/files/Sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace kestrel {

Error syncFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool isDone = file >= 0 && fsync(file) == 0;
  const int number = errno;
  if (file >= 0) close(file);
  if (isDone) return {};
  return {-number, std::generic_category().message(number)};
}

}  // namespace kestrel
