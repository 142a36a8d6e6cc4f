#pragma once

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Adds a chapter without tags to a container that is being written; times are microseconds. Null
/// when there is no memory.
AVChapter* addChapter(AVFormatContext& context, int64_t start, int64_t end);

}  // namespace kestrel
