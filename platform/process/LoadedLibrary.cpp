#include "platform/process/LoadedLibrary.h"

#include <dlfcn.h>

namespace kestrel {

LoadedLibrary::LoadedLibrary(const std::string& name)
    : handle_(dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)), isWhole_(handle_ != nullptr) {}

void* LoadedLibrary::address(const char* name) {
  void* found = handle_ ? dlsym(handle_, name) : nullptr;
  isWhole_ = isWhole_ && found;
  return found;
}

}  // namespace kestrel
