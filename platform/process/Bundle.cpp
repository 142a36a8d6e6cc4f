#include <kestrel/Bundle.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace kestrel {

Bundle Bundle::mainBundle() {
  Bundle bundle;
  std::error_code ignored;
  bundle.executable_ = fs::read_symlink("/proc/self/exe", ignored).string();
  return bundle;
}

std::string Bundle::bundleIdentifier() const { return fs::path(executable_).filename().string(); }

std::string Bundle::siblingPath(const std::string& name) const {
  return (fs::path(executable_).parent_path() / name).string();
}

std::string temporaryDirectory() {
  std::error_code unknown;
  std::string path = fs::temp_directory_path(unknown).string();
  if (unknown) path = "/tmp";
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace kestrel
