#include "platform/files/ScratchFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/files/PartialFiles.h"

namespace kestrel {

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder() {
  std::error_code failed;
  const fs::path place = fs::temp_directory_path(failed);
  if (failed) {
    error_ = {-failed.value(), failed.message()};
    return;
  }
  std::string name = (place / "kestrel-XXXXXX").string();
  const bool isMade = mkdtemp(name.data()) != nullptr;
  if (!isMade || !notePartial(name)) {
    const int number = isMade ? ECANCELED : errno;
    if (isMade) fs::remove(name, failed);
    error_ = {-number, std::generic_category().message(number)};
    return;
  }
  path_ = name;
}

ScratchFolder::~ScratchFolder() {
  if (!path_.empty()) removePartial(path_);
}

}  // namespace kestrel
