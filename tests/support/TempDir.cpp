#include "tests/support/TempDir.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace kestrel::test {

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "kestrel-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  path_ = name;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace kestrel::test
