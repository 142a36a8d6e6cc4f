#pragma once

#include <filesystem>
#include <string>

namespace kestrel::test {

/// A new, empty folder that goes away, with all it holds, when the object does.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }

  /// The path of `name` inside; nothing is made there.
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace kestrel::test
