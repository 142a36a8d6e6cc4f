#pragma once

#include <functional>
#include <memory>
#include <string>

struct AVIOContext;

namespace kestrel {

/// Reads an input that can keep its reader waiting: a pipe, a socket, a terminal. While nothing
/// comes it asks whether to go on, which a read of the system's own does not.
class PipeReader {
 public:
  using Interrupt = std::function<bool()>;

  /// A reader of `path`, which may be "pipe:" with the number of an open file, 0 if there is none;
  /// null where that is not such an input, or does not open. `interrupt` is asked ten times a
  /// second.
  static std::unique_ptr<PipeReader> open(const std::string& path, Interrupt interrupt);

  ~PipeReader();
  PipeReader(const PipeReader&) = delete;
  PipeReader& operator=(const PipeReader&) = delete;

  /// What a demuxer reads through, which cannot seek; owned by the reader. Null without memory.
  AVIOContext* io() const { return io_; }

 private:
  PipeReader(int file, Interrupt interrupt);
  static int read(void* reader, unsigned char* bytes, int size);

  int file_;
  Interrupt interrupt_;
  AVIOContext* io_ = nullptr;
};

}  // namespace kestrel
