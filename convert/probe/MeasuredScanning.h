#pragma once

#include <kestrel/convert/Scanning.h>

#include <memory>

namespace kestrel {

class LMMediaSource;

/// How the pictures of an opened input, of which nothing was read, were scanned. Where it is read
/// from afterwards is not said. Throws a `Failure` when the input's interrupt says so.
Scanning measuredScanning(const std::shared_ptr<LMMediaSource>& source);

}  // namespace kestrel
