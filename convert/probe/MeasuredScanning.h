#pragma once

#include <kestrel/convert/Scanning.h>

#include <functional>
#include <memory>

struct AVStream;

namespace kestrel {

class LMMediaSource;

/// What a stream's marks say of its pictures, none of which is looked at.
Scanning markedScanning(const AVStream& stream);

/// Opens a reader of the input.
using Reader = std::function<std::shared_ptr<LMMediaSource>()>;

/// How an input's pictures were scanned. An input that can be read only once is opened once. Throws
/// a `Failure` when its interrupt says so.
Scanning measuredScanning(const Reader& open);

}  // namespace kestrel
