#include "platform/process/AtomicFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace kestrel {

namespace {

Error systemError() { return {-errno, std::generic_category().message(errno)}; }

bool writeAll(int file, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace

Error replaceFile(const std::string& path, std::span<const uint8_t> bytes) {
  static std::atomic<unsigned> counter{0};
  const std::string partial = fmt::format("{}.partial-{}-{}", path, getpid(), counter++);
  const int file = open(partial.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) return systemError();
  Error error;
  if (!writeAll(file, bytes)) error = systemError();
  if (close(file) != 0 && !error) error = systemError();
  if (!error && std::rename(partial.c_str(), path.c_str()) != 0) error = systemError();
  if (error) unlink(partial.c_str());
  return error;
}

}  // namespace kestrel
