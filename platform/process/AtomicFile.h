#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <span>
#include <string>

namespace kestrel {

/// Replaces a file as a whole: what is written goes to a file beside it, which then takes its
/// place. Whoever reads meanwhile sees the old bytes or the new ones. Without a commit, and when
/// one fails, the old file is as it was, and no other one stays behind. What is no file, such as a
/// device, is written to.
class AtomicFile {
 public:
  explicit AtomicFile(const std::string& path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void write(std::span<const uint8_t> bytes);

  /// Puts it in place; the first error on the way, if any.
  Error commit();

 private:
  const std::string path_;
  const std::string partial_;  // "" where that is not possible
  int file_;
  Error error_;
};

/// Replaces a file by these bytes.
Error replaceFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace kestrel
