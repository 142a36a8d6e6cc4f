#include "platform/process/AtomicFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

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

std::string partialPath(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  struct stat status {};
  const bool isNoFile = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  if (isNoFile) return {};
  return fmt::format("{}.partial-{}-{}", path, getpid(), counter++);
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path)
    : path_(path),
      partial_(partialPath(path)),
      file_(partial_.empty()
                ? open(path.c_str(), O_WRONLY | O_CLOEXEC)
                : open(partial_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666)) {
  if (file_ < 0) error_ = systemError();
}

AtomicFile::~AtomicFile() {
  if (file_ < 0) return;
  close(file_);
  if (!partial_.empty()) unlink(partial_.c_str());
}

void AtomicFile::write(std::span<const uint8_t> bytes) {
  if (!error_ && !writeAll(file_, bytes)) error_ = systemError();
}

Error AtomicFile::commit() {
  if (error_) return error_;
  if (close(std::exchange(file_, -1)) != 0) error_ = systemError();
  if (partial_.empty()) return error_;
  if (!error_ && std::rename(partial_.c_str(), path_.c_str()) != 0) error_ = systemError();
  if (error_) unlink(partial_.c_str());
  return error_;
}

Error replaceFile(const std::string& path, std::span<const uint8_t> bytes) {
  AtomicFile file(path);
  file.write(bytes);
  return file.commit();
}

}  // namespace kestrel
