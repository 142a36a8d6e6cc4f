#pragma once

#include <kestrel/Error.h>

#include <string>

namespace kestrel {

/// Has the media libraries log nothing but what is fatal to the process. The first call does it; a
/// host that wants more sets its level afterwards.
void quietLibraries();

/// Listens, while it lives, to the errors that the media libraries log on this thread: they say why
/// an encoder or a muxer refuses something, where the code they answer does not.
///
/// The first one made in the process sets the libraries' log callback, which passes every line on
/// to their default one. Where a host has replaced the callback since, nothing is heard.
class LibraryLog {
 public:
  LibraryLog();
  ~LibraryLog();
  LibraryLog(const LibraryLog&) = delete;
  LibraryLog& operator=(const LibraryLog&) = delete;

  /// The error for a negative library code: "`subject`: " and the first line that was logged, else
  /// the library's text for the code.
  Error explain(int code, const std::string& subject) const;

  /// Nothing was logged.
  bool isSilent() const { return line_.empty(); }

 private:
  friend struct LibraryLogCallback;

  void hear(const char* text);

  std::string line_;
  bool complete_ = false;
  LibraryLog* outer_;
};

}  // namespace kestrel
