#pragma once

#include <kestrel/AtomicFile.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestrel {

/// The way to a target file that is never half written: an `AtomicFile` whose failures are thrown,
/// and that no input is replaced by. Without a commit the partial file goes away.
class KESTREL_API OutputFile {
 public:
  /// Claims the partial file's name. Throws `Failure` when the target exists and may not be
  /// replaced, when it is a folder or the very file that `input` names ("": none), and when nothing
  /// can be written there.
  OutputFile(const std::string& target, bool replaces, const std::string& input = {});

  /// The target's name as the user wrote it.
  const std::string& target() const { return target_; }

  /// Where to write. It has the target's extension, and its first part is always a folder, so that
  /// no name is taken for a protocol ("10:30.mp4").
  const std::string& path() const { return file_.path(); }

  /// Appends to the file; throws `Failure` where that can't be done. Not to be mixed with writing
  /// to `path` by other means.
  void write(std::span<const uint8_t> bytes);
  void write(std::string_view text);

  /// The partial file becomes the target. Throws `Failure` when that can't be done.
  void commit();

 private:
  void require(const Error& error) const;

  const std::string target_;  // as the user wrote it
  AtomicFile file_;
};

}  // namespace kestrel
