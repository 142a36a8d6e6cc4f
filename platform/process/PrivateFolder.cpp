#include "platform/process/PrivateFolder.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kestrel {

bool makePrivateFolder(const std::string& path) {
  mkdir(path.c_str(), 0700);
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid() && (status.st_mode & 0077) == 0;
}

}  // namespace kestrel
