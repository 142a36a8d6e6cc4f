#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// One stream of a file, or of a title of a disc, placed on a time line.
struct Placement {
  std::string path = {};
  int32_t track = 0;              ///< the stream's index in the file
  double position = 0;            ///< seconds, from 0 up to a week
  double rate = 1;                ///< kept for other programs; packets are copied as they are
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file

  bool operator==(const Placement&) const = default;
};

/// A placement as people write it: "FILE[:TRACK][@POSITION]" or, of a disc,
/// "DISC#TITLE[.ANGLE][:TRACK][@POSITION]"; the position is written like any time (`parseTime`). A
/// text that names a file as a whole is that file. Throws a `Failure` of the settings for anything
/// else.
KESTREL_API Placement parsePlacement(const std::string& text);

/// Stores placements in a file as a keyed archive: a dictionary with the tracks under "tracks" and
/// the numbers of their streams under "streams"; where one is of a disc, titles and angles, with 0
/// for no title, under "titles" and "angles". Throws `Failure` when it can't be written.
KESTREL_API void savePlacements(const std::vector<Placement>& placements, const std::string& path);

/// Reads such a file; one without "streams" has the first stream of each. Throws `Failure` for
/// anything else.
KESTREL_API std::vector<Placement> loadPlacements(const std::string& path);

/// What is to be put on one time line.
struct CompositionSettings {
  std::vector<Placement> placements = {};
  std::string output = {};   ///< "": nothing is composed, which makes sense only with an `archive`
  bool replaces = false;     ///< existing targets may be replaced
  std::string archive = {};  ///< where the placements are stored, too, as `savePlacements` does
};

/// Puts streams of several files on one time line by copying their packets. Only pictures that
/// depend on hidden ones are encoded anew; `events.note` and `Report::encoded` tell of them. Throws
/// a `Failure` when it can't be done, also where the output is one of the inputs. Output and
/// archive appear only when they are whole; no archive is stored where composing failed or a file
/// cannot be opened. Blocks until it is done; several run side by side.
KESTREL_API Report compose(const CompositionSettings& settings, const Events& events = {});

}  // namespace kestrel
