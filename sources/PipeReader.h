#pragma once

#include <functional>
#include <memory>
#include <string>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Reads an input that may block: a pipe, a socket, a terminal. While waiting for data it polls an
/// interrupt, which a plain read cannot do.
class PipeReader {
 public:
  using Interrupt = std::function<bool()>;

  /// A reader of `path`, which may be "pipe:" with a file descriptor (default 0); null if it is not
  /// such an input or cannot be opened. `interrupt` is polled ten times a second.
  static std::unique_ptr<PipeReader> open(const std::string& path, Interrupt interrupt);

  ~PipeReader();
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;

  /// The I/O context for a demuxer, not seekable, owned by the reader. Null if memory runs out.
  AVIOContext* io() const { return io_.get(); }

 private:
  PipeReader(int file, Interrupt interrupt);
  static int read(void* reader, unsigned char* bytes, int size);

  int file_;
  Interrupt interrupt_;
  IOContextPtr io_;
};

}  // namespace kestrel
