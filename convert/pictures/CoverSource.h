#pragma once

#include <kestrel/LMMediaSource.h>

#include <memory>

struct AVStream;

namespace kestrel {

/// A cover picture that lies beside a file's sound, as a picture file of its own. The bytes are
/// copied. Not opened yet.
std::shared_ptr<LMMediaSource> makeCoverSource(const AVStream& cover);

}  // namespace kestrel
