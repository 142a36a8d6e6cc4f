#pragma once

#include <kestrel/convert/OutputFile.h>

#include <string>

#include "platform/files/AtomicFolder.h"

namespace kestrel {

/// The name of the folder that lies beside a playlist ("movie.segments" of "my/movie.m3u8"), in
/// letters that mean the same in an address as in a file system.
std::string segmentFolderOf(const std::string& playlist);

/// Where that folder lies.
std::string segmentFolderBeside(const std::string& playlist);

/// A playlist and, beside it, the folder of what it names. Both appear when both are whole, the
/// playlist last; until then old ones stay as they are.
class PlaylistTarget {
 public:
  /// Claims the names. Throws `Failure` as `OutputFile` does, and where there is a folder of that
  /// name that no old playlist names: it is not replaced.
  PlaylistTarget(const std::string& target, bool replaces, const std::string& input);

  /// Where to write what the playlist names.
  const std::string& folder() const { return folder_.path(); }

  /// Both take their names. Throws `Failure` when that can't be done.
  void commit(const std::string& playlist);

 private:
  void require(const Error& error) const;

  OutputFile file_;
  const std::string folderPath_;
  const bool replaces_;
  AtomicFolder folder_;
};

}  // namespace kestrel
