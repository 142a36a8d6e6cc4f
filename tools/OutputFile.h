#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// The way to a target file that is never half written: the work goes to a partial file beside the
/// target, whose name says what it is, and `commit` puts it in the target's place. Until then an
/// old target stays as it is; without a commit, and on an interrupt, the partial file goes away.
///
/// A target that is no regular file (a device, a pipe) is written directly.
class OutputFile {
 public:
  /// Claims the partial file's name. Throws `Failure` when the target exists and may not be
  /// replaced
  /// (`force`), when it is a folder or the very file that `input` names ("": none), and when
  /// nothing can be written there.
  OutputFile(const std::string& target, bool force, const std::string& input = {});
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Where to write. It has the target's extension, and its first part is always a folder, so that
  /// no name is taken for a protocol ("10:30.mp4").
  std::string path() const { return path_.string(); }

  /// The partial file becomes the target. Throws `Failure` when that can't be done.
  void commit();

 private:
  std::string target_;           // as the user wrote it
  std::filesystem::path final_;  // what the partial file is renamed to, links resolved
  std::filesystem::path path_;
  bool force_;
  bool isPartial_ = false;  // what lies at `path_` is this object's to remove
};

/// Whether two names, given as users write them, mean one file, be it there or not.
bool isSameFile(const std::string& one, const std::string& other);

/// Throws `Failure` when `target` is one of the files that are read.
void requireNoInput(const std::string& target, const std::vector<std::string>& inputs);
