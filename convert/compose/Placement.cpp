#include <kestrel/convert/Compose.h>

#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>

#include <kestrel/convert/Failure.h>
#include "support/Words.h"

namespace kestrel {

namespace {

constexpr char kTracks[] = "tracks";
constexpr char kStreams[] = "streams";

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

void savePlacements(const std::vector<Placement>& placements, const std::string& path) {
  CodedValue::Array tracks;
  CodedValue::Array streams;
  for (const Placement& placement : placements) {
    std::error_code ignored;
    const std::string place = std::filesystem::absolute(placement.path, ignored).string();
    if (!isUtf8(place))  // its bytes would be lost
      throw Failure::output(path, "cannot store '" + place + "': its name is no UTF-8");
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
    throw Failure::output(path, "cannot write '" + path + "': " + error.message);
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
    throw Failure::input(path, "'" + path + "' is no stored composition: " + problem.what());
  }
}

}  // namespace kestrel
