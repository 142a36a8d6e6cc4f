#pragma once

#include <kestrel/convert/Scanning.h>

#include <memory>

struct AVStream;

namespace kestrel {

class LMMediaSource;

/// What a stream's marks say of its pictures, none of which is looked at.
Scanning markedScanning(const AVStream& stream);

/// How the pictures of an opened input, of which nothing was read, were scanned. Where it is read
/// from afterwards is not said. Throws a `Failure` when the input's interrupt says so.
Scanning measuredScanning(const std::shared_ptr<LMMediaSource>& source);

}  // namespace kestrel
