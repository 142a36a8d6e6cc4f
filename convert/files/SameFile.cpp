#include "convert/files/SameFile.h"

#include <kestrel/convert/Failure.h>

#include <filesystem>
#include <system_error>

namespace kestrel {

namespace fs = std::filesystem;

namespace {

/// The name from the root on, without links as far as there are files.
fs::path wholeName(const std::string& name) {
  std::error_code ignored;
  return fs::weakly_canonical(fs::absolute(name, ignored), ignored);
}

}  // namespace

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return fs::equivalent(one, other, ignored) || wholeName(one) == wholeName(other);
}

void requireNoInput(const std::string& target, const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs)
    if (isSameFile(target, input))
      throw Failure::output(target, "'" + target + "' is an input itself; choose another output");
}

}  // namespace kestrel
