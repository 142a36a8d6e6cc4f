#include "sources/PipeReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

#include "support/ReadCallbacks.h"

namespace kestrel {

namespace {

/// What was read last can be sought in: small files with their index at the end can be read, too.
constexpr int kBufferSize = 1 << 20;
constexpr int kPatience = 100;  // milliseconds between two questions

bool mayWait(mode_t mode) { return S_ISFIFO(mode) || S_ISSOCK(mode) || S_ISCHR(mode); }

/// The number in "pipe:3", 0 in "pipe:", or nothing.
int fileNumber(std::string_view path) {
  constexpr std::string_view kPipe = "pipe:";
  if (!path.starts_with(kPipe)) return -1;
  const std::string_view digits = path.substr(kPipe.size());
  int number = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), number);
  return digits.empty() || (error == std::errc() && end == digits.end()) ? number : -1;
}

/// An own number for what `path` names, or -1.
int openPipe(const std::string& path) {
  struct stat status = {};
  if (const int number = fileNumber(path); number >= 0)
    return fstat(number, &status) == 0 && mayWait(status.st_mode)
               ? fcntl(number, F_DUPFD_CLOEXEC, 3)
               : -1;
  if (stat(path.c_str(), &status) != 0 || !mayWait(status.st_mode)) return -1;
  // Waits for no writer: the first read does.
  return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

}  // namespace

std::unique_ptr<PipeReader> PipeReader::open(const std::string& path, Interrupt interrupt) {
  const int file = openPipe(path);
  if (file < 0) return nullptr;
  return std::unique_ptr<PipeReader>(new PipeReader(file, std::move(interrupt)));
}

PipeReader::PipeReader(int file, Interrupt interrupt)
    : file_(file),
      interrupt_(std::move(interrupt)),
      io_(makeReadContext(kBufferSize, this, read)) {}

PipeReader::~PipeReader() { close(file_); }

int PipeReader::read(void* reader, unsigned char* bytes, int size) {
  const auto& self = *static_cast<const PipeReader*>(reader);
  while (!self.interrupt_ || !self.interrupt_()) {
    // A pipe that nobody has written to yet is neither readable nor at its end.
    pollfd wanted = {self.file_, POLLIN, 0};
    const int ready = poll(&wanted, 1, kPatience);
    if (ready < 0 && errno != EINTR) return AVERROR(errno);
    if (ready <= 0) continue;
    const ssize_t count = ::read(self.file_, bytes, static_cast<size_t>(size));
    if (count > 0) return static_cast<int>(count);
    if (count == 0) return AVERROR_EOF;
    if (errno != EAGAIN && errno != EINTR) return AVERROR(errno);
  }
  return AVERROR_EXIT;
}

}  // namespace kestrel
