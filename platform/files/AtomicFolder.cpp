#include "platform/files/AtomicFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform/files/PartialFiles.h"

namespace kestrel {

namespace fs = std::filesystem;

namespace {

Error errorOf(int number) { return {-number, std::generic_category().message(number)}; }

bool isThere(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0;
}

}  // namespace

AtomicFolder::AtomicFolder(const std::string& target) {
  const fs::path wanted(target);
  target_ = wanted.has_parent_path() ? target : (fs::path(".") / wanted).string();
  const std::string partial = partialBeside(target_);
  if (mkdir(partial.c_str(), 0777) != 0) {
    error_ = errorOf(errno);
  } else if (!notePartial(partial)) {
    std::error_code ignored;
    fs::remove(partial, ignored);
    error_ = errorOf(ECANCELED);
  } else {
    path_ = partial;
  }
}

AtomicFolder::~AtomicFolder() {
  if (!path_.empty()) removePartial(path_);
}

/// Both folders change names in one step or, where the file system knows none, in three.
bool AtomicFolder::exchange() const {
  const char* const from = path_.c_str();
  const char* const to = target_.c_str();
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  const std::string aside = partialBeside(target_);
  if (std::rename(to, aside.c_str()) != 0) return false;
  if (std::rename(from, to) == 0) return std::rename(aside.c_str(), from) == 0;
  const int problem = errno;
  std::rename(aside.c_str(), to);
  errno = problem;
  return false;
}

Error AtomicFolder::place(bool replaces) {
  if (error_) return error_;
  const bool hasOld = isThere(target_);
  if (hasOld && !replaces) return error_ = errorOf(EEXIST);
  // Nothing but an empty folder could have come between, which is no loss.
  const bool isDone = hasOld ? exchange() : std::rename(path_.c_str(), target_.c_str()) == 0;
  if (!isDone) return error_ = errorOf(errno);
  isPlaced_ = true;
  hasReplaced_ = hasOld;
  return {};
}

void AtomicFolder::undo() {
  if (!isPlaced_) return;
  isPlaced_ = false;
  if (hasReplaced_)
    exchange();
  else
    std::rename(target_.c_str(), path_.c_str());
}

}  // namespace kestrel
