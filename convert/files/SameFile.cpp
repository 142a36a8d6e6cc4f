#include "convert/files/SameFile.h"

#include <kestrel/convert/Failure.h>

#include <filesystem>
#include <system_error>

namespace kestrel {

namespace fs = std::filesystem;

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return fs::equivalent(one, other, ignored) ||
         fs::weakly_canonical(one, ignored) == fs::weakly_canonical(other, ignored);
}

void requireNoInput(const std::string& target, const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs)
    if (isSameFile(target, input))
      throw Failure::output(target, "'" + target + "' is an input itself; choose another output");
}

}  // namespace kestrel
