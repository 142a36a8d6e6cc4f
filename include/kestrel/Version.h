#pragma once

#include <kestrel/Export.h>

#include <string>
#include <vector>

namespace kestrel {

/// A library that this one stands on.
struct LibraryVersion {
  std::string name = {};
  std::string version = {};  ///< such as "59.27.100"
};

/// This library's own version, such as "1.2.3".
KESTREL_API std::string version();

/// The libraries that what is read and written depends on, with the versions that the process has
/// loaded; of those that are loaded when they are first needed, the version that is counted on.
KESTREL_API std::vector<LibraryVersion> libraryVersions();

}  // namespace kestrel
