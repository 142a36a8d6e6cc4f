#pragma once

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "convert/feed/VideoFeed.h"
#include "convert/look/Look.h"

namespace kestrel {

/// Makes of a decoded frame, shown at a time (microseconds on the movie's time line), the picture
/// that is encoded. Empty where frames go on as they are.
using PictureShaper =
    std::function<std::shared_ptr<LMFFImage>(const std::shared_ptr<LMFFImage>&, int64_t time)>;

/// What pictures of a look go through before they are encoded by an output in a pixel format, by
/// FFmpeg's name. A look that is drawn has been applied to the movie.
PictureShaper shaperOf(const Look& look, LMFFMovie& movie, const LMFFMovieFileOutput& output,
                       const std::string& pixelFormat);

/// A movie's pictures at a constant rate, as they are encoded.
class ShapedFeed {
 public:
  /// As of `VideoFeed`.
  ShapedFeed(LMFFMovie& movie, int64_t start, Rational rate, PictureShaper shape,
             std::optional<PictureStretch> stretch = {})
      : feed_(movie, start, rate, stretch), start_(start), shape_(std::move(shape)) {}

  /// The picture of the next tick, null at the end.
  std::shared_ptr<LMFFImage> next();

  int64_t time() const { return feed_.time(); }
  int64_t tick() const { return feed_.tick(); }
  int64_t tickDuration() const { return feed_.tickDuration(); }
  PictureTally tally() const { return feed_.tally(); }

 private:
  VideoFeed feed_;
  int64_t start_;
  PictureShaper shape_;
};

}  // namespace kestrel
