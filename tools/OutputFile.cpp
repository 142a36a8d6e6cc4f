#include "OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

#include "Failure.h"
#include "Interrupt.h"

namespace fs = std::filesystem;

namespace {

/// The longest name that file systems take, in bytes.
constexpr size_t kLongestName = 255;

Failure cannotWrite(const std::string& target, const std::string& why) {
  return {kFailed, "cannot write '" + target + "': " + why};
}

Failure alreadyExists(const std::string& target) {
  return {kFailed, "'" + target + "' exists; --force replaces it"};
}

/// The file that a target names: what a link leads to, and with a folder in front always.
fs::path resolved(const fs::path& target) {
  std::error_code failed;
  const fs::path real = fs::canonical(target, failed);
  if (!failed) return real;
  return target.has_parent_path() ? target : fs::path(".") / target;
}

/// ".movie.partial-4711-0.mp4" beside "movie.mp4". The numbers tell processes, and conversions
/// within one, apart.
fs::path partialBeside(const fs::path& target) {
  static std::atomic<unsigned> counter{0};
  const std::string end =
      fmt::format(".partial-{}-{}{}", getpid(), counter++, target.extension().string());
  std::string stem = fmt::format(".{}", target.stem().string());
  stem.resize(std::min(stem.size(), kLongestName - std::min(kLongestName, end.size())));
  return target.parent_path() / (stem + end);
}

/// The file does not stay: whoever writes it makes it anew. (One that is truncated when it is
/// opened is written out to the disk when it is closed, by file systems that mean well.)
void requireWritable(const fs::path& path, const std::string& target) {
  const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) throw cannotWrite(target, std::generic_category().message(errno));
  close(file);
  unlink(path.c_str());
}

}  // namespace

OutputFile::OutputFile(const std::string& target, bool force, const std::string& input)
    : target_(target), final_(resolved(target)), path_(final_), force_(force) {
  if (target.empty()) throw wrongUsage("the output's name is empty");
  std::error_code error;
  const fs::file_status status = fs::status(target, error);
  if (status.type() == fs::file_type::none) throw cannotWrite(target, error.message());
  if (fs::is_directory(status)) throw cannotWrite(target, "Is a directory");
  if (fs::exists(status) && !fs::is_regular_file(status)) return;
  if (!input.empty() && fs::equivalent(target, input, error)) {
    throw Failure{kFailed, "'" + target + "' is the input itself; choose another output"};
  }
  if (fs::exists(status) && !force) throw alreadyExists(target);

  path_ = partialBeside(final_);
  removeOnInterrupt(path_);
  try {
    requireWritable(path_, target);
  } catch (...) {
    keepOnInterrupt(path_);
    throw;
  }
  isPartial_ = true;
}

OutputFile::~OutputFile() {
  if (!isPartial_) return;
  std::error_code ignored;
  fs::remove(path_, ignored);
  keepOnInterrupt(path_);
}

void OutputFile::commit() {
  if (!isPartial_) return;
  std::error_code error;
  if (fs::exists(final_, error)) {
    if (!force_) throw alreadyExists(target_);
    // Who might read the old file may read the new one. Where that can't be said, it does not
    // matter.
    fs::permissions(path_, fs::status(final_, error).permissions(), error);
  }
  fs::rename(path_, final_, error);
  if (error) throw cannotWrite(target_, error.message());
  isPartial_ = false;
  keepOnInterrupt(path_);
}

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code ignored;
  return fs::equivalent(one, other, ignored) ||
         fs::weakly_canonical(one, ignored) == fs::weakly_canonical(other, ignored);
}

void requireNoInput(const std::string& target, const std::vector<std::string>& inputs) {
  for (const std::string& input : inputs)
    if (isSameFile(target, input))
      throw Failure{kFailed, "'" + target + "' is an input itself; choose another output"};
}
