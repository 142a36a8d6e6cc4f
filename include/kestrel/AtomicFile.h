#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kestrel {

/// A file that is never visible half written. Data goes to a partial file in the same folder;
/// `commit` moves that to the target in one step. Until then an existing target stays as it is. The
/// partial file is removed if `commit` is not called or fails.
///
///     AtomicFile file("movie.mp4");
///     if (!file.error()) encode(file.path());  // or file.write(bytes)
///     if (const Error error = file.commit()) report(error.message);
///
/// If the target is a symbolic link, the file it points to is replaced and the link stays. The new
/// file gets the old one's permissions and, as far as the user may set them, its owner and group. A
/// target that is not a regular file (a device, a pipe) is written directly.
///
/// Nothing throws: `error` and `commit` return the first failure. Use an object from one thread at
/// a time.
class KESTREL_API AtomicFile {
 public:
  enum class Existing {
    kReplace,  // an existing target is replaced
    kKeep,     // an existing target is an error (-EEXIST), even if it appears before the commit
  };

  /// Chooses the partial file's name and checks that it is writable.
  explicit AtomicFile(const std::string& target, Existing existing = Existing::kReplace);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// The first failure, if any.
  const Error& error() const;

  /// Where to write. The name marks the file as partial and has the target's extension. It always
  /// starts with a folder, so that no part of it is taken for a protocol ("10:30.mp4").
  const std::string& path() const;

  /// True if there is no partial file: everything written goes to the target immediately.
  bool isDirect() const;

  /// Appends to the file. Do not combine with other ways of writing to `path`.
  void write(std::span<const uint8_t> bytes);

  /// Moves the partial file to the target. Fails if nothing was written.
  Error commit();

  /// Removes all partial files of the process and prevents new ones and further commits, for a
  /// program that is about to exit without destroying its objects. Safe from any thread, but not
  /// from a signal handler.
  static void removeAll();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Replaces the contents of a file in one step.
KESTREL_API Error replaceFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace kestrel
