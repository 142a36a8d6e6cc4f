#include "Placement.h"

#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <charconv>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>

#include "Failure.h"
#include "Text.h"

using namespace kestrel;

namespace {

constexpr char kTracks[] = "tracks";
constexpr char kStreams[] = "streams";

bool isFile(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

/// Takes ":NUMBER" off the end of a path that is no file as it stands.
void takeTrack(Placement& placement) {
  const size_t colon = placement.path.rfind(':');
  if (isFile(placement.path) || colon == std::string::npos) return;
  const std::string file = placement.path.substr(0, colon);
  const std::string text = placement.path.substr(colon + 1);
  const char* const end = text.data() + text.size();
  const auto [next, problem] = std::from_chars(text.data(), end, placement.track);
  const bool isNumber = problem == std::errc{} && next == end && placement.track >= 0;
  if (!isNumber && isFile(file))
    throw wrongUsage("'" + text + "' is no stream of '" + file + "': they are numbers from 0");
  if (!isNumber) {
    placement.track = 0;
    return;
  }
  placement.path = file;
}

/// A stream's number as it is stored.
int32_t trackIn(const CodedValue& value) {
  const auto number = value.as<int64_t>();
  if (number < 0 || number > std::numeric_limits<int32_t>::max())
    throw ArchiveError("a stream's number is none");
  return static_cast<int32_t>(number);
}

/// The list under a key of an archive's dictionary; null where there is none.
std::shared_ptr<CodedValue::Array> listIn(const CodedValue::Dictionary& dictionary,
                                          const char* key) {
  const auto place = dictionary.find(key);
  if (place == dictionary.end()) return nullptr;
  return place->second.as<std::shared_ptr<CodedValue::Array>>();
}

}  // namespace

Placement parsePlacement(const std::string& text) {
  Placement placement{text};
  const size_t at = text.rfind('@');
  if (!isFile(text) && at != std::string::npos) {
    placement.path = text.substr(0, at);
    takeTrack(placement);
    placement.position = static_cast<double>(parseTime("the position", text.substr(at + 1))) / 1e6;
  } else {
    takeTrack(placement);
  }
  if (placement.path.empty()) throw wrongUsage("'" + text + "' names no file");
  return placement;
}

void savePlacements(const std::vector<Placement>& placements, const std::string& path) {
  CodedValue::Array tracks;
  CodedValue::Array streams;
  for (const Placement& placement : placements) {
    std::error_code ignored;
    const std::string place = std::filesystem::absolute(placement.path, ignored).string();
    if (!isUtf8(place))  // its bytes would be lost
      throw Failure{kFailed, "cannot store '" + place + "': its name is no UTF-8"};
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setPath(place);
    track->setPosition(placement.position);
    track->setRate(placement.rate);
    tracks.emplace_back(std::move(track));
    streams.emplace_back(placement.track);
  }
  Error error;
  const CodedValue root = CodedValue::Dictionary{{kTracks, tracks}, {kStreams, streams}};
  if (!KeyedArchiver::archiveRootObject(root, path, &error))
    throw Failure{kFailed, "cannot write '" + path + "': " + error.message};
}

std::vector<Placement> loadPlacements(const std::string& path) {
  try {
    const CodedValue root = KeyedUnarchiver::unarchiveObjectWithFile(path);
    const auto& dictionary = *root.as<std::shared_ptr<CodedValue::Dictionary>>();
    const auto tracks = listIn(dictionary, kTracks);
    const auto streams = listIn(dictionary, kStreams);
    if (!tracks || (streams && streams->size() != tracks->size()))
      throw ArchiveError("its lists do not match");
    std::vector<Placement> placements;
    for (size_t i = 0; i < tracks->size(); ++i) {
      const auto track = (*tracks)[i].object<LMMovieCompositionTrack>();
      if (!track) throw ArchiveError("a track is missing");
      placements.push_back(
          {track->path(), streams ? trackIn((*streams)[i]) : 0, track->position(), track->rate()});
    }
    return placements;
  } catch (const ArchiveError& problem) {
    throw Failure{kFailed, "'" + path + "' is no stored composition: " + problem.what()};
  }
}
