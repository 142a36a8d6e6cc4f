#pragma once

#include <kestrel/Export.h>

#include <string>

namespace kestrel {

/// Looks into a volume for those who have to find out what is wrong with it.
class KESTREL_API LMDVDIO {
 public:
  /// Logs the structure of the volume at `path` line by line: its titles, and for each title set
  /// its size, program chains, cells and cell addresses. What cannot be opened is left out.
  static void test(const std::string& path);
};

}  // namespace kestrel
