#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Where the running program lies and what it is called. All operations are safe from any thread.
class KESTREL_API Bundle {
 public:
  /// The program that this process runs.
  static Bundle mainBundle();

  /// The program's file, absolute; "" where that can't be told.
  const std::string& executablePath() const { return executable_; }

  /// The program's name: what its temporary files are kept apart by.
  std::string bundleIdentifier() const;

  /// The path of another program, in the folder that this one lies in.
  std::string siblingPath(const std::string& name) const;

 private:
  std::string executable_;
};

/// The folder for files that need not outlive the program: TMPDIR where that is set, without a
/// slash at its end.
KESTREL_API std::string temporaryDirectory();

}  // namespace kestrel
