#pragma once

#include <memory>

struct AVFormatContext;

namespace kestrel {

/// What a container tells of itself and of its streams, without the container: an input need not
/// stay open for it. Tags and what lies beside the
/// packets, such as the pictures' rotation, are included, chapters and packets are not.
/// Throws std::bad_alloc.
std::shared_ptr<AVFormatContext> outlineOf(const AVFormatContext& input);

}  // namespace kestrel
