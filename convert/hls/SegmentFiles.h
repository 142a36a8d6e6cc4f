#pragma once

#include <kestrel/Fragment.h>

#include <string>

#include "convert/hls/Playlists.h"

namespace kestrel {

/// Writes what an output hands out into a rendition's folder: its head, and a file for each
/// fragment.
class SegmentFiles {
 public:
  /// Makes the rendition's folder in `parent`. The rendition, which lasts longer, is told of each
  /// file, and by the head its codec.
  SegmentFiles(const std::string& parent, Rendition& rendition);

  /// False where that cannot be written.
  bool take(const Fragment& fragment);

 private:
  const std::string folder_;
  Rendition& rendition_;
};

}  // namespace kestrel
