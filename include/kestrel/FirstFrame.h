#pragma once

#include <kestrel/Export.h>

#include <memory>

struct AVFrame;

namespace kestrel {

class LMMediaSource;

/// The first picture of a stream, by its number in the source, decoded for what it tells of itself,
/// such as its colours; null where there is none among the first thousand packets.
///
/// The source, which must be open, reads on from where it was, as if nobody had looked, even if its
/// bytes come only once. Call this before anything else reads from it.
KESTREL_API std::shared_ptr<AVFrame> firstFrame(LMMediaSource& source, int stream);

}  // namespace kestrel
