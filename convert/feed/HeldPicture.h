#pragma once

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>

#include <memory>

namespace kestrel {

/// A picture that was taken from its media, which may decode on. Times are microseconds on the
/// movie's time line.
struct HeldPicture : LMFFMedia::Picture {
  std::shared_ptr<LMFFImage> image;  ///< what `frame` belongs to

  /// Takes a media's picture, none where that has none. The same picture stays the same object.
  void hold(const LMFFMedia::Picture& picture, const LMFFMedia& media);
};

}  // namespace kestrel
