#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// Which movie is searched for scenes.
struct ScenesSettings {
  std::string input = {};  ///< a file, or a disc (a folder or an image)
  /// The program's own bytes in place of a file; `input` is then what people call them. It is not
  /// opened itself: each reader gets a copy (`LMMediaSource::copy`).
  std::shared_ptr<LMMediaSource> source = {};
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file

  /// Where a contact sheet is drawn, with the picture in the middle of each scene and the time at
  /// which it starts; of more than 400 scenes as many as that, evenly chosen. The name ends in
  /// .png, .jpg, .webp or .avif; "": nowhere.
  std::string sheet = {};
  int columns = 5;        ///< of the sheet, 1 to 100
  bool replaces = false;  ///< an existing sheet may be replaced
};

/// A stretch of a movie between two cuts, dissolves or fades; microseconds from the movie's start.
struct Scene {
  int64_t start = 0;  ///< of its first picture; of a dissolve the middle
  int64_t end = 0;    ///< where the next one starts, or the last picture ends

  bool operator==(const Scene&) const = default;
};

/// A movie's scenes without gaps, in order, and whether the movie was whole.
struct Scenes {
  std::vector<Scene> scenes = {};
  Report report = {};
};

/// Finds a movie's scenes by looking at all its pictures in small. Flashes are no cuts, and black
/// between two scenes is one boundary. A movie that has pictures has one scene at least. Takes
/// about 650 bytes of memory a picture. Throws a `Failure` for an input that has none.
KESTREL_API Scenes findScenes(const ScenesSettings& settings, const Events& events = {});

}  // namespace kestrel
