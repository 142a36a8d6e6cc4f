#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kestrel {

/// A file that is never seen half written: the work goes to a partial file in the same folder, and
/// `commit` puts that in the target's place in one step. Until then an old target stays as it is.
/// Without a commit, or when one fails, the partial file is removed.
///
///     AtomicFile file("movie.mp4");
///     if (!file.error()) encode(file.path());  // or file.write(bytes)
///     if (const Error error = file.commit()) report(error.message);
///
/// A target that is a symbolic link stays one: the file that it leads to is replaced. The new file
/// gets the old one's permissions and, as far as the system lets this user give them, its owner and
/// group. A target that is no regular file (a device, a pipe) is written directly.
///
/// Failures are kept rather than thrown: the first one is what `error` and `commit` return. An
/// object is used by one thread at a time.
class KESTREL_API AtomicFile {
 public:
  enum class Existing {
    kReplace,  // an old target is replaced
    kKeep,     // an old target is an error (-EEXIST), also one that appears before the commit
  };

  /// Chooses the partial file's name and checks that it can be written.
  explicit AtomicFile(const std::string& target, Existing existing = Existing::kReplace);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// The first failure, if any.
  const Error& error() const;

  /// Where to write. The name says that the file is partial, and has the target's extension. It
  /// always starts with a folder, so that no part of it is taken for a protocol ("10:30.mp4").
  const std::string& path() const;

  /// There is no partial file: what is written arrives in the target at once.
  bool isDirect() const;

  /// Appends to the file. Don't mix this with writing to `path` by other means.
  void write(std::span<const uint8_t> bytes);

  /// Puts what was written in the target's place. It is an error if nothing was.
  Error commit();

  /// Removes every partial file of the process and lets no further one be made or committed: for a
  /// program that is about to end without destroying its objects. Safe from any thread, though not
  /// from a signal handler.
  static void removeAll();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Replaces a file by these bytes, all at once.
KESTREL_API Error replaceFile(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace kestrel
