#pragma once

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Adds a chapter without tags to a container that is being written; times are microseconds. Null
/// when there is no memory. Some containers write chapters in their header; MPEG-4 files and
/// Matroska also write those that come later, up to the trailer, where the header had none.
AVChapter* addChapter(AVFormatContext& context, int64_t start, int64_t end);

}  // namespace kestrel
