#include <kestrel/AtomicFile.h>
#include <kestrel/Bundle.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/Log.h>
#include <kestrel/MovieHelperTask.h>
#include <kestrel/Task.h>
#include <kestrel/VideoJoiner.h>
#include <kestrel/VideoJoinerItem.h>

#include <fmt/format.h>
#include <unistd.h>

#include <exception>
#include <filesystem>
#include <mutex>
#include <random>
#include <system_error>
#include <utility>

#include "platform/process/PrivateFolder.h"
#include "support/Guarded.h"

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr char kClassName[] = "VideoJoiner";
constexpr char kPath[] = "path";
constexpr char kTracks[] = "tracks";
constexpr char kTemporaryName[] = "Video--Joiner--Temp";
constexpr char kCommand[] = "joiner";

[[maybe_unused]] const bool kIsKnown =
    (registerCodingClass(kClassName, VideoJoiner::initWithCoder), true);

unsigned randomNumber() {
  static std::mutex lock;
  static std::mt19937 generator{std::random_device{}()};
  const std::lock_guard guard(lock);
  return static_cast<unsigned>(generator() & 0x7FFFFFFFU);
}

/// A folder that nobody else can put an archive into: the helper writes where an archive says.
/// Where another user has taken its name, one named by this user's number; "" where that is taken,
/// too.
std::string privateFolder() {
  const std::string base =
      fmt::format("{}/{}", temporaryDirectory(), Bundle::mainBundle().bundleIdentifier());
  for (const std::string& outer : {base, fmt::format("{}-{}", base, geteuid())}) {
    const std::string inner = fmt::format("{}/{}", outer, kTemporaryName);
    if (makePrivateFolder(outer) && makePrivateFolder(inner)) return inner;
  }
  return "";
}

}  // namespace

struct VideoJoiner::State {
  Guarded<std::string> path;
  Guarded<ItemList> tracks;
};

VideoJoiner::VideoJoiner() : state_(std::make_unique<State>()) {}

VideoJoiner::~VideoJoiner() = default;

std::shared_ptr<VideoJoiner> VideoJoiner::joinerWithPath(const std::string& path) {
  try {
    return KeyedUnarchiver::unarchiveObjectWithFile(path).object<VideoJoiner>();
  } catch (const std::exception& problem) {
    log(problem.what());
    return nullptr;
  }
}

std::string VideoJoiner::path() const { return state_->path.get(); }
void VideoJoiner::setPath(const std::string& path) { state_->path.set(path); }
VideoJoiner::ItemList VideoJoiner::tracks() const { return state_->tracks.get(); }
void VideoJoiner::setTracks(ItemList tracks) {
  std::erase(tracks, nullptr);
  state_->tracks.set(std::move(tracks));
}

void VideoJoiner::join(const std::string& input, double position, double rate) {
  auto item = std::make_shared<VideoJoinerItem>();
  item->setPath(input);
  item->setPosition(position);
  item->setRate(rate);
  ItemList items = tracks();
  items.push_back(std::move(item));
  setTracks(std::move(items));
}

std::string VideoJoiner::tempFilePath() const {
  const std::string folder = privateFolder();
  if (folder.empty()) return "";
  return fmt::format("{}/{}-{}-{:x}", folder, kTemporaryName, getpid(), randomNumber());
}

void VideoJoiner::exportMovie() const {
  const std::string path = tempFilePath();
  if (path.empty()) return log("there is no folder for temporary files that is this user's alone");
  try {
    AtomicFile archive(path, AtomicFile::Existing::kKeep);
    auto copy = std::make_shared<VideoJoiner>();  // as it is now; an archive shares its objects
    copy->setPath(this->path());
    copy->setTracks(tracks());
    archive.write(KeyedArchiver::archivedDataWithRootObject(copy));
    if (const Error error = archive.commit())
      return log(fmt::format("cannot write '{}': {}", path, error.message));
    launchMovieHelperTask(kCommand, {path})->waitUntilExit();
  } catch (const std::exception& problem) {
    log(problem.what());
  }
  std::error_code ignored;
  fs::remove(path, ignored);
}

std::string VideoJoiner::codingName() const { return kClassName; }

void VideoJoiner::encodeWithCoder(KeyedArchiver& archiver) const {
  archiver.encodeObject(path(), kPath);
  CodedValue::Array items;
  for (const auto& item : tracks()) items.emplace_back(item);
  archiver.encodeObject(items.empty() ? CodedValue() : CodedValue(std::move(items)), kTracks);
}

std::shared_ptr<VideoJoiner> VideoJoiner::initWithCoder(KeyedUnarchiver& unarchiver) {
  auto joiner = std::make_shared<VideoJoiner>();
  joiner->setPath(unarchiver.decodeObjectForKey(kPath).text().value_or(""));
  const CodedValue stored = unarchiver.decodeObjectForKey(kTracks);
  if (stored.isNull()) return joiner;
  ItemList items;
  for (const CodedValue& value : *stored.as<std::shared_ptr<CodedValue::Array>>()) {
    items.push_back(value.object<VideoJoinerItem>());
    if (!items.back()) throw ArchiveError("an input of a joiner is missing");
  }
  joiner->setTracks(std::move(items));
  return joiner;
}

}  // namespace kestrel
