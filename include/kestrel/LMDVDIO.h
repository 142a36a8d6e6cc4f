#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Diagnostics for volumes.
class KESTREL_API LMDVDIO {
 public:
  /// Logs the structure of the volume at `path`: its titles, and for each title set its size,
  /// program chains, cells and cell addresses. What cannot be opened is left out.
  static void test(const std::string& path);
};

}  // namespace kestrel
