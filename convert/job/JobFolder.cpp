#include "convert/job/JobFolder.h"

#include <fcntl.h>
#include <kestrel/convert/Failure.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <utility>

#include "convert/job/JobFiles.h"
#include "platform/files/Sync.h"

namespace kestrel {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr double kNanoseconds = 1e9;

/// The machine since it was started: process ids mean nothing beyond.
const std::string& hostName() {
  static const std::string kName = [] {
    std::string name(256, '\0');
    gethostname(name.data(), name.size() - 1);
    name.resize(std::strlen(name.c_str()));
    std::ifstream boot("/proc/sys/kernel/random/boot_id");
    std::string id;
    boot >> id;
    return name + " " + id;
  }();
  return kName;
}

/// When a process began, in ticks of the machine; 0 where there is none.
int64_t startOf(int64_t process) {
  std::ifstream file(fmt::format("/proc/{}/stat", process));
  std::string text;
  std::getline(file, text);
  const size_t name = text.rfind(')');  // it may hold blanks itself
  if (name == std::string::npos) return 0;
  std::istringstream fields(text.substr(name + 1));
  std::string field;
  std::string state;
  fields >> state;
  for (int i = 0; i < 19 && fields; ++i) fields >> field;
  if (state == "Z" || state == "X" || !fields) return 0;
  return std::strtoll(field.c_str(), nullptr, 10);
}

json jsonOf(const PartClaim& claim) {
  return {{"token", claim.token},
          {"worker", claim.worker},
          {"host", claim.host},
          {"process", claim.process},
          {"started", claim.started}};
}

PartClaim claimIn(const json& document) {
  return {.token = document.value("token", ""),
          .worker = document.value("worker", ""),
          .host = document.value("host", ""),
          .process = document.value("process", int64_t{0}),
          .started = document.value("started", int64_t{0})};
}

int64_t modified(const struct stat& found) {
  return int64_t{found.st_mtim.tv_sec} * 1'000'000'000 + found.st_mtim.tv_nsec;
}

[[noreturn]] void fail(const std::string& path) {
  throw Failure::output(path, fmt::format("cannot write '{}': {}", path, std::strerror(errno)));
}

void write(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) fail(path);
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(file, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) break;
    done += static_cast<size_t>(count);
  }
  const bool isWritten = done == text.size() && fsync(file) == 0;
  const int number = errno;
  if (close(file) != 0 || !isWritten) {
    errno = isWritten ? errno : number;
    fail(path);
  }
}

/// Makes a second name of a file; false where there is one of that name. Where an answer was lost
/// on the way, the count of names tells (NFS).
bool linked(const std::string& from, const std::string& to) {
  if (link(from.c_str(), to.c_str()) == 0) return true;
  const int number = errno;
  struct stat found {};
  if (stat(from.c_str(), &found) == 0 && found.st_nlink > 1) return true;
  errno = number;
  if (number != EEXIST) fail(to);
  return false;
}

}  // namespace

std::string JobFolder::uniqueName() const {
  static std::atomic<unsigned> counter{0};
  static const unsigned kOwn = std::random_device()();
  return fmt::format("{}-{}-{:08x}", getpid(), counter++, kOwn);
}

PartClaim JobFolder::ownClaim(const std::string& worker) const {
  return {.token = uniqueName(),
          .worker = worker,
          .host = hostName(),
          .process = getpid(),
          .started = startOf(getpid())};
}

bool JobFolder::isOwn() const {
  return isJobPlan(planPath()) || std::ranges::all_of(entriesOf(path_), isLeftOver);
}

void JobFolder::requireOwn() const {
  if (!isOwn())
    throw Failure::output(path_, fmt::format("'{}' is not empty and holds no job", path_));
}

void JobFolder::remove() const {
  if (!isOwn()) return;
  std::error_code failed;
  for (const char* name : kJobFolders) {
    for (const auto& entry : entriesOf(in(name))) fs::remove(entry.path(), failed);
    fs::remove(in(name), failed);
  }
  for (const auto& entry : entriesOf(path_))
    if (isJobNote(entry.path().filename().string())) unlink(entry.path().c_str());
  unlink(planPath().c_str());
  unlink(in("whole").c_str());
  rmdir(path_.c_str());
}

void JobFolder::begin() const {
  requireOwn();
  if (!isJobPlan(planPath())) unlink(in("whole").c_str());
  std::error_code failed;
  const auto make = [&](const std::string& path) {
    fs::create_directories(path, failed);
    if (failed)
      throw Failure::output(path_, fmt::format("cannot make '{}': {}", path, failed.message()));
  };
  make(path_);
  for (const char* name : kJobFolders) make(in(name));
}

void JobFolder::writeOnce(const std::string& name, const std::string& text) const {
  const std::string partial = in("partial/" + uniqueName());
  write(partial, text);
  const bool isFirst = linked(partial, in(name));
  unlink(partial.c_str());
  syncFile(path_);
  if (!isFirst && name == "plan.json")
    throw Failure(Failure::Kind::kExists, fmt::format("'{}' has a job already", path_), path_);
}

void JobFolder::replace(const std::string& name, const std::string& text) const {
  const std::string partial = in("partial/" + uniqueName());
  write(partial, text);
  if (std::rename(partial.c_str(), in(name).c_str()) != 0) fail(in(name));
}

bool JobFolder::isDone(const std::string& part) const {
  return access(partPath(part).c_str(), F_OK) == 0;
}

bool JobFolder::isAssembled() const { return access(in("assembled").c_str(), F_OK) == 0; }

void JobFolder::unmarkAssembled() const {
  if (unlink(in("assembled").c_str()) != 0 && errno != ENOENT) fail(in("assembled"));
}

std::string JobFolder::partialPath(const std::string& part) const {
  return in(fmt::format("partial/{}.{}", part, uniqueName()));
}

void JobFolder::commit(const std::string& partial, const std::string& part) const {
  if (std::rename(partial.c_str(), partPath(part).c_str()) != 0) fail(partPath(part));
  if (const Error error = syncFile(in("parts")))
    throw Failure::output(path_, fmt::format("cannot write '{}': {}", path_, error.message));
}

/// Of whoever keeps the folder: times of files are told by it.
int64_t JobFolder::now() const {
  const std::string path = in("partial/now-" + uniqueName());
  write(path, "");
  struct stat found {};
  const bool isThere = stat(path.c_str(), &found) == 0;
  unlink(path.c_str());
  return isThere ? modified(found) : 0;
}

bool JobFolder::isStale(const std::string& path, const PartClaim& claim, double lease) const {
  if (claim.host == hostName() && startOf(claim.process) != claim.started) return true;
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return false;
  return static_cast<double>(now() - modified(found)) > lease * kNanoseconds;
}

std::optional<PartClaim> JobFolder::claimOf(const std::string& part) const {
  const json document = readDocument(in("claims/" + part));
  if (!document.is_object()) return std::nullopt;
  return claimIn(document);
}

std::optional<PartClaim> JobFolder::claim(const std::string& part, const std::string& worker,
                                          double lease) const {
  const std::string path = in("claims/" + part);
  if (const auto other = claimOf(part)) {
    if (!isStale(path, *other, lease)) return std::nullopt;
    // Whoever comes first moves the stale claim away. Was it a new one by then, it gets its name
    // back.
    const std::string aside = in("partial/stale-" + uniqueName());
    if (std::rename(path.c_str(), aside.c_str()) != 0) return std::nullopt;
    const json moved = readDocument(aside);
    const bool isOther = !moved.is_object() || claimIn(moved).token != other->token;
    if (isOther) linked(aside, path);
    unlink(aside.c_str());
    if (isOther) return std::nullopt;
  }
  const PartClaim own = ownClaim(worker);
  const std::string partial = in("partial/claim-" + own.token);
  write(partial, jsonOf(own).dump());
  const bool isOurs = linked(partial, path);
  unlink(partial.c_str());
  return isOurs ? std::optional(own) : std::nullopt;
}

void JobFolder::renew(const std::string& part, const PartClaim& own) const {
  const std::string path = in("claims/" + part);
  const auto now = claimOf(part);
  if (now && now->token == own.token) utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
}

void JobFolder::release(const std::string& part, const PartClaim& own) const {
  const auto now = claimOf(part);
  if (now && now->token == own.token) unlink(in("claims/" + part).c_str());
}

bool JobFolder::addProblem(const std::string& part, const PartProblem& problem) {
  try {
    writeProblem(part, problem);
    return true;
  } catch (const Failure&) {
    unwritten_[part].push_back(problem);
    return false;
  }
}

void JobFolder::writeProblem(const std::string& part, const PartProblem& problem) const {
  const json document{{"sentence", problem.sentence}, {"killed", problem.wasKilled}};
  const std::string partial = in("partial/problem-" + uniqueName());
  write(partial, document.dump(-1, ' ', false, json::error_handler_t::replace));
  const std::string path = in(fmt::format("problems/{}-{}", part, uniqueName()));
  if (std::rename(partial.c_str(), path.c_str()) != 0) fail(path);
}

std::vector<PartProblem> JobFolder::problemsOf(const std::string& part) const {
  std::vector<std::string> names;
  std::error_code failed;
  for (const auto& entry : fs::directory_iterator(in("problems"), failed))
    if (entry.path().filename().string().starts_with(part + "-"))
      names.push_back(entry.path().string());
  std::ranges::sort(names);
  std::vector<PartProblem> problems;
  for (const std::string& name : names)
    if (const json document = readDocument(name); document.is_object())
      problems.push_back({document.value("sentence", ""), document.value("killed", false)});
  if (const auto own = unwritten_.find(part); own != unwritten_.end())
    problems.insert(problems.end(), own->second.begin(), own->second.end());
  return problems;
}

bool JobFolder::isPoison(const std::string& part) const {
  const auto problems = problemsOf(part);
  const auto kills = std::ranges::count(problems, true, &PartProblem::wasKilled);
  return std::ssize(problems) - kills >= kMostFaults || kills >= kMostKills;
}

void JobFolder::moveAside(const std::string& part) const {
  const std::string aside = in(fmt::format("partial/damaged-{}-{}", part, uniqueName()));
  if (std::rename(partPath(part).c_str(), aside.c_str()) != 0) fail(aside);
}

void JobFolder::noteTarget(const std::string& partial) const {
  const json document{{"path", fs::absolute(partial).string()}, {"claim", jsonOf(ownClaim(""))}};
  write(in("partial/target-" + uniqueName()), document.dump());
}

void JobFolder::removeTargets() const {
  std::error_code failed;
  std::vector<fs::path> notes;
  for (const auto& entry : fs::directory_iterator(in("partial"), failed))
    if (entry.path().filename().string().starts_with("target-")) notes.push_back(entry.path());
  for (const fs::path& note : notes) {
    const json document = readDocument(note.string());
    if (!document.is_object()) continue;
    const PartClaim claim = claimIn(document.value("claim", json::object()));
    if (claim.host != hostName() || startOf(claim.process) == claim.started) continue;
    fs::remove(document.value("path", ""), failed);
    fs::remove(note, failed);
  }
}

void JobFolder::noteWhole(const std::string& partial) const {
  struct stat found {};
  if (stat(partial.c_str(), &found) != 0) fail(partial);
  const std::string note = in("partial/whole-" + uniqueName());
  write(note, json{{"file", found.st_ino}, {"size", found.st_size}}.dump());
  if (std::rename(note.c_str(), in("whole").c_str()) != 0) fail(in("whole"));
}

bool JobFolder::isWhole(const std::string& target) const {
  const json document = readDocument(in("whole"));
  struct stat found {};
  return isTargetNote(document) && stat(target.c_str(), &found) == 0 &&
         document.value("file", ino_t{0}) == found.st_ino &&
         document.value("size", off_t{-1}) == found.st_size;
}

void JobFolder::removePartials(const std::string& part) const {
  std::error_code failed;
  std::vector<fs::path> left;
  for (const auto& entry : fs::directory_iterator(in("partial"), failed))
    if (entry.path().filename().string().starts_with(part + ".")) left.push_back(entry.path());
  for (const fs::path& path : left) fs::remove(path, failed);
}

}  // namespace kestrel
