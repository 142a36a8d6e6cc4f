#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Location and name of the running program. All operations are safe from any thread.
class KESTREL_API Bundle {
 public:
  /// The program that this process runs.
  static Bundle mainBundle();

  /// Absolute path of the program's file; "" if unknown.
  const std::string& executablePath() const { return executable_; }

  /// The program's name, used to keep its temporary files apart from those of other programs.
  std::string bundleIdentifier() const;

  /// The path of another program in the same folder as this one.
  std::string siblingPath(const std::string& name) const;

 private:
  std::string executable_;
};

/// The folder for temporary files: TMPDIR if set, without a trailing slash.
KESTREL_API std::string temporaryDirectory();

}  // namespace kestrel
