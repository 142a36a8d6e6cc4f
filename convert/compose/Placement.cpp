#include <kestrel/convert/Compose.h>

#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include "support/Words.h"

namespace kestrel {

namespace {

constexpr char kTracks[] = "tracks";
constexpr char kStreams[] = "streams";
constexpr char kTitles[] = "titles";
constexpr char kAngles[] = "angles";
constexpr int kNoTitle = 0;

/// A number as it is stored, no less than `least`; `what` says whose it is.
int32_t numberIn(const CodedValue& value, const char* what, int64_t least = 0) {
  const auto number = value.as<int64_t>();
  if (number < least || number > std::numeric_limits<int32_t>::max())
    throw ArchiveError(std::string(what) + "'s number is none");
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
  CodedValue::Array streams, titles, angles;
  for (const Placement& placement : placements) {
    std::error_code ignored;
    const std::string place = protocolOf(placement.path).empty()
                                  ? std::filesystem::absolute(placement.path, ignored).string()
                                  : placement.path;
    if (!isUtf8(place))  // its bytes would be lost
      throw Failure::output(path, "cannot store '" + place + "': its name is no UTF-8");
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setPath(place);
    track->setPosition(placement.position);
    track->setRate(placement.rate);
    tracks.emplace_back(std::move(track));
    streams.emplace_back(placement.track);
    titles.emplace_back(placement.title.value_or(kNoTitle));
    angles.emplace_back(placement.angle);
  }
  Error error;
  CodedValue::Dictionary root{{kTracks, tracks}, {kStreams, streams}};
  if (std::ranges::any_of(placements,
                          [](const Placement& placed) { return placed.title.has_value(); }))
    root.insert({{kTitles, titles}, {kAngles, angles}});
  if (!KeyedArchiver::archiveRootObject(root, path, &error))
    throw Failure::output(path, "cannot write '" + path + "': " + error.message);
}

std::vector<Placement> loadPlacements(const std::string& path) {
  try {
    const CodedValue root = KeyedUnarchiver::unarchiveObjectWithFile(path);
    const auto& dictionary = *root.as<std::shared_ptr<CodedValue::Dictionary>>();
    const auto tracks = listIn(dictionary, kTracks);
    const auto streams = listIn(dictionary, kStreams);
    const auto titles = listIn(dictionary, kTitles);
    const auto angles = listIn(dictionary, kAngles);
    const auto matches = [&](const auto& list) { return !list || list->size() == tracks->size(); };
    if (!tracks || !matches(streams) || !matches(titles) || !matches(angles))
      throw ArchiveError("its lists do not match");
    std::vector<Placement> placements;
    for (size_t i = 0; i < tracks->size(); ++i) {
      const auto track = (*tracks)[i].object<LMMovieCompositionTrack>();
      if (!track) throw ArchiveError("a track is missing");
      Placement placement{track->path(), streams ? numberIn((*streams)[i], "a stream") : 0,
                          track->position(), track->rate()};
      const int title = titles ? numberIn((*titles)[i], "a title", kMainTitle) : kNoTitle;
      if (title != kNoTitle) placement.title = title;
      if (angles) placement.angle = numberIn((*angles)[i], "an angle", 1);
      placements.push_back(std::move(placement));
    }
    return placements;
  } catch (const ArchiveError& problem) {
    throw Failure::input(path, "'" + path + "' is no stored composition: " + problem.what());
  }
}

}  // namespace kestrel
