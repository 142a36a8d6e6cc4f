#pragma once

#include <kestrel/convert/Scanning.h>

namespace kestrel {

class LMFFMovie;

/// How the pictures of an opened movie were scanned. The movie is read from the first video media;
/// where that stands afterwards is not said. Throws a `Failure` when the interrupt of what it reads
/// says so.
Scanning measuredScanning(LMFFMovie& movie);

}  // namespace kestrel
