#pragma once

#include <kestrel/LMMediaSource.h>

namespace kestrel {

/// Has `copy` open what its original opens, and in the same way.
inline void copySettings(const LMMediaSource& original, LMMediaSource& copy) {
  copy.setFullpath(original.fullpath());
  copy.setInputFormat(original.inputFormat());
  copy.setDemuxerOptions(original.demuxerOptions());
  copy.setProtocols(original.protocols());
}

}  // namespace kestrel
