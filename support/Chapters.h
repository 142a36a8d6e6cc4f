#pragma once

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Whether a container that had no chapters when it was begun still takes some, up to its end.
/// Others write them in their header, and some write that anew at the end, over what is behind it.
bool takesLateChapters(const AVOutputFormat& format);

/// Adds a chapter without tags to a container that is being written; times are microseconds. Null
/// when there is no memory.
AVChapter* addChapter(AVFormatContext& context, int64_t start, int64_t end);

}  // namespace kestrel
