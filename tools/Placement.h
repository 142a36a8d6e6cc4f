#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One stream of a file, placed on a time line.
struct Placement {
  std::string path;
  int32_t track = 0;    ///< the stream's index in the file
  double position = 0;  ///< seconds
  double rate = 1;      ///< kept for other programs; packets are copied as they are

  bool operator==(const Placement&) const = default;
};

/// "FILE[:TRACK][@POSITION]"; the position is written like any time. A text that names a file as a
/// whole is that file.
Placement parsePlacement(const std::string& text);

/// Stores placements in a file as a keyed archive: a dictionary with the tracks under "tracks" and
/// the numbers of their streams under "streams". Throws `Failure` when it can't be written.
void savePlacements(const std::vector<Placement>& placements, const std::string& path);

/// Reads such a file; one without "streams" has the first stream of each. Throws `Failure` for
/// anything else.
std::vector<Placement> loadPlacements(const std::string& path);
