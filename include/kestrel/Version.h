#pragma once

#include <kestrel/Export.h>

#include <string>
#include <vector>

namespace kestrel {

/// A library used by this one.
struct LibraryVersion {
  std::string name = {};
  std::string version = {};  ///< such as "59.27.100"
};

/// This library's own version, such as "1.2.3".
KESTREL_API std::string version();

/// The libraries that affect what is read and written, with their versions at run time; for
/// libavfilter, which is loaded on first use, and ICU, the versions that this library was built
/// with.
KESTREL_API std::vector<LibraryVersion> libraryVersions();

}  // namespace kestrel
