#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>

#include <optional>
#include <string>

namespace kestrel {

/// How a movie's pictures were scanned.
enum class Scan {
  kProgressive,  ///< each picture shows one moment
  kInterlaced,   ///< each shows two: its upper and its lower field are half a picture apart
  kMixed,        ///< some do, such as film that was brought to another rate by repeating fields
};

/// What the marks of a movie's pictures say of their fields, and what they show. Marks are often
/// wrong; what counts is whether combs are seen where something moves.
struct Scanning {
  Scan scan = Scan::kProgressive;
  bool isMarked = false;  ///< the container or a picture says that it is interlaced
  /// Which field is the earlier one, of interlaced pictures; absent: not known.
  std::optional<bool> topFieldFirst = {};
  int pictures = 0;  ///< that were looked at and in which enough moved to tell
  int combed = 0;    ///< how many of them show combs
};

/// Looks at a few dozen pictures from all over a file, or one title of a disc (a number from 1, or
/// `kMainTitle`) as one of its angles, from 1, shows it. Where none can be looked at or nothing
/// moves, the marks decide. Throws a `Failure` for what cannot be opened, and when interrupted.
KESTREL_API Scanning readScanning(const std::string& path, std::optional<int> title = {},
                                  const Interrupt& interrupt = {}, int angle = 1,
                                  const Protocols& protocols = {});

}  // namespace kestrel
