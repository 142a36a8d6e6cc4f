#include "platform/process/HelperPath.h"

#include <dlfcn.h>
#include <kestrel/Bundle.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

/// The file that this code was loaded from, links in its name resolved; empty if unknown.
fs::path ownFile() {
  Dl_info found{};
  static const char kHere = 0;
  if (dladdr(&kHere, &found) == 0 || !found.dli_fname) return {};
  std::error_code unknown;
  fs::path file = fs::canonical(found.dli_fname, unknown);
  return unknown ? fs::path() : file;
}

}  // namespace

std::string helperPath(const std::string& name) {
  std::string beside = Bundle::mainBundle().siblingPath(name);
  std::error_code ignored;
  if (fs::exists(beside, ignored)) return beside;
  const fs::path installed =
      (ownFile().parent_path() / KESTREL_HELPERS_FROM_LIBRARY / name).lexically_normal();
  return fs::exists(installed, ignored) ? installed.string() : beside;
}

}  // namespace kestrel
