#include <kestrel/AtomicFile.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

#include "platform/files/PartialFiles.h"

namespace fs = std::filesystem;

namespace kestrel {

namespace {

/// The longest name that file systems take, in bytes.
constexpr size_t kLongestName = 255;

/// As many links in a row as the system itself follows.
constexpr int kLongestChain = 40;

Error errorOf(int number) { return {-number, std::generic_category().message(number)}; }
Error systemError() { return errorOf(errno); }

/// The partial files of this process. Never destroyed: whoever ends the program may need it while
/// the program's statics go.
struct Registry {
  std::mutex lock;
  std::set<std::string> paths;
  bool isClosed = false;

  static Registry& shared() {
    static auto& registry = *new Registry;
    return registry;
  }

  bool add(const std::string& path) {
    const std::lock_guard guard(lock);
    return !isClosed && paths.insert(path).second;
  }

  void remove(const std::string& path) {
    const std::lock_guard guard(lock);
    std::error_code ignored;
    if (paths.erase(path)) fs::remove_all(path, ignored);
  }
};

/// What the last link of a chain leads to, whether or not there is such a file, and always with a
/// folder in front.
fs::path resolved(fs::path target) {
  std::error_code failed;
  for (int links = 0; links < kLongestChain && fs::is_symlink(target, failed); ++links) {
    const fs::path next = fs::read_symlink(target, failed);
    if (failed) break;
    target = target.parent_path() / next;  // an absolute one replaces the folder
  }
  const fs::path real = fs::canonical(target, failed);
  if (!failed) return real;
  return target.has_parent_path() ? target : fs::path(".") / target;
}

/// Other users may make files in this folder.
bool isShared(const fs::path& folder) {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) return true;
  const bool isOurs = status.st_uid == geteuid() || status.st_uid == 0;
  return !isOurs || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool writeAll(int file, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
  return true;
}

/// Gives a new file the owner, group and permissions of the one that it replaces. Only the
/// administrator may give files away; where the owner can't be kept, the bits that let a program
/// run as its owner would mean somebody else and go.
void inherit(const std::string& path, const struct stat& old) {
  struct stat now {};
  if (lstat(path.c_str(), &now) != 0) return;
  const bool isOwner = now.st_uid == old.st_uid || lchown(path.c_str(), old.st_uid, -1) == 0;
  const bool isGroup = now.st_gid == old.st_gid || lchown(path.c_str(), -1, old.st_gid) == 0;
  chmod(path.c_str(), old.st_mode & (isOwner && isGroup ? 07777 : 00777));
}

/// Renames a file unless the new name is taken.
bool renameToFree(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // The file system can't do that in one step. Few can't make a second link either.
  if (link(from.c_str(), to.c_str()) == 0) return unlink(from.c_str()) == 0;
  if (errno == EEXIST) return false;
  struct stat taken {};
  if (lstat(to.c_str(), &taken) == 0) {
    errno = EEXIST;
    return false;
  }
  return std::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

struct AtomicFile::State {
  State(const std::string& name, Existing whatIfThere)
      : target(resolved(name)), path(target.string()), existing(whatIfThere) {}

  /// Finds out what the target is and, unless it is written directly, claims a partial file.
  Error prepare();

  /// Makes the partial file, to see whether that is possible, and removes it again unless it has to
  /// stay: in a shared folder somebody else could put a link in its place, and beside an old file
  /// it already has that one's permissions. (Otherwise it is left to whoever writes it: a file that
  /// is truncated when it is opened is written out to the disk when it is closed, by file systems
  /// that mean well.)
  Error claim();

  /// Opens what `path` names, at the first bytes.
  bool isOpened();

  /// Something lies at `path` that is worth being committed.
  bool isWritten() const;

  /// Renames the partial file to the target.
  Error place();

  fs::path target;
  std::string path;
  Existing existing;
  struct stat old {};  // of the target, where there is one
  bool hasOld = false;
  bool isDirect = true;
  bool isClaimed = false;       // the partial file's name is in the registry
  bool hasPlaceholder = false;  // `claim` left an empty file there
  int file = -1;
  bool wasOpened = false;
  Error error;
};

Error AtomicFile::State::prepare() {
  hasOld = stat(target.c_str(), &old) == 0;
  if (!hasOld && errno != ENOENT) return systemError();
  if (hasOld && S_ISDIR(old.st_mode)) return errorOf(EISDIR);
  if (hasOld && !S_ISREG(old.st_mode)) return {};
  if (hasOld && existing == Existing::kKeep) return errorOf(EEXIST);
  isDirect = false;
  return claim();
}

Error AtomicFile::State::claim() {
  path = partialBeside(target);
  if (!Registry::shared().add(path)) return errorOf(ECANCELED);
  const mode_t mode = hasOld ? (old.st_mode & 0666) | S_IWUSR : 0666;
  const int made = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode);
  if (made < 0) {
    const Error problem = systemError();
    auto& registry = Registry::shared();
    const std::lock_guard guard(registry.lock);
    registry.paths.erase(path);  // and what lies there is not ours
    return problem;
  }
  close(made);
  isClaimed = true;
  hasPlaceholder = hasOld || isShared(target.parent_path());
  if (!hasPlaceholder) unlink(path.c_str());
  return {};
}

bool AtomicFile::State::isOpened() {
  if (!wasOpened) {
    const int making = isDirect ? 0 : O_CREAT | O_TRUNC | O_NOFOLLOW;
    file = open(path.c_str(), O_WRONLY | O_CLOEXEC | making, 0666);
    wasOpened = true;
  }
  return file >= 0;
}

bool AtomicFile::State::isWritten() const {
  struct stat now {};
  return lstat(path.c_str(), &now) == 0 && (now.st_size > 0 || wasOpened || !hasPlaceholder);
}

Error AtomicFile::State::place() {
  if (!isWritten()) return errorOf(ENOENT);
  auto& registry = Registry::shared();
  const std::lock_guard guard(registry.lock);
  if (!registry.paths.contains(path)) return errorOf(ECANCELED);
  // The old file as it is now: it may have changed while the new one was written.
  if (stat(target.c_str(), &old) == 0 && existing == Existing::kReplace) inherit(path, old);
  const bool isPlaced = existing == Existing::kKeep
                            ? renameToFree(path, target.string())
                            : std::rename(path.c_str(), target.c_str()) == 0;
  if (!isPlaced) return systemError();
  registry.paths.erase(path);
  isClaimed = false;
  return {};
}

AtomicFile::AtomicFile(const std::string& target, Existing existing)
    : state_(std::make_unique<State>(target, existing)) {
  state_->error = target.empty() ? errorOf(ENOENT) : state_->prepare();
}

AtomicFile::~AtomicFile() {
  if (state_->file >= 0) close(state_->file);
  if (state_->isClaimed) Registry::shared().remove(state_->path);
}

const Error& AtomicFile::error() const { return state_->error; }

const std::string& AtomicFile::path() const { return state_->path; }

bool AtomicFile::isDirect() const { return state_->isDirect; }

void AtomicFile::write(std::span<const uint8_t> bytes) {
  if (state_->error) return;
  if (!state_->isOpened() || !writeAll(state_->file, bytes)) state_->error = systemError();
}

Error AtomicFile::commit() {
  if (state_->file >= 0 && close(std::exchange(state_->file, -1)) != 0 && !state_->error)
    state_->error = systemError();
  if (!state_->error && state_->isClaimed) state_->error = state_->place();
  if (state_->isClaimed) Registry::shared().remove(state_->path);
  state_->isClaimed = false;
  return state_->error;
}

void AtomicFile::removeAll() {
  auto& registry = Registry::shared();
  const std::lock_guard guard(registry.lock);
  std::error_code ignored;
  for (const std::string& path : registry.paths) fs::remove_all(path, ignored);
  registry.paths.clear();
  registry.isClosed = true;
}

std::string partialBeside(const fs::path& target) {
  static std::atomic<unsigned> counter{0};
  const std::string end =
      fmt::format(".partial-{}-{}{}", getpid(), counter++, target.extension().string());
  std::string stem = fmt::format(".{}", target.stem().string());
  stem.resize(std::min(stem.size(), kLongestName - std::min(kLongestName, end.size())));
  return (target.parent_path() / (stem + end)).string();
}

bool notePartial(const std::string& path) { return Registry::shared().add(path); }

void removePartial(const std::string& path) { Registry::shared().remove(path); }

Error replaceFile(const std::string& path, std::span<const uint8_t> bytes) {
  AtomicFile file(path);
  file.write(bytes);
  return file.commit();
}

}  // namespace kestrel
