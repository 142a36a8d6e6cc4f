#pragma once

#include <string>

namespace kestrel {

/// A shared library that is loaded when it is first needed: one that brings dozens of others along
/// is not to be loaded by programs that do without. It stays loaded, for its threads may outlive
/// whoever used it.
class LoadedLibrary {
 public:
  /// `name`: as the loader knows it, "libz.so.1".
  explicit LoadedLibrary(const std::string& name);

  /// Finds a function; null where it is missing.
  template <typename Function>
  void find(Function*& function, const char* name) {
    function = reinterpret_cast<Function*>(address(name));
  }

  /// False where the library is not installed, and where a function was missing.
  bool isWhole() const { return isWhole_; }

 private:
  void* address(const char* name);

  void* handle_;
  bool isWhole_;
};

}  // namespace kestrel
