#pragma once

#include <kestrel/Image.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kestrel {

class LMFFMovie;

/// Receives the pictures that a movie makes: typically the movie's delegate, or a converter.
///
/// Each callback is optional; an empty one is never called. They run on the movie's decode queue,
/// from where further pictures may be asked for: these are made at once.
class LMFFMovieImageProvider {
 public:
  using DataBuffer = std::shared_ptr<std::vector<uint8_t>>;

  virtual ~LMFFMovieImageProvider() = default;

  /// A buffer of exactly `size` bytes, into which the frame is then copied in `format` before any
  /// effect; null for none, after which there is no picture at all.
  std::function<DataBuffer(LMFFMovie& movie, const LMFFVideoFormat& format, int32_t size)>
      movieFormatSize;

  /// The frame before effects; null where there is none.
  std::function<void(LMFFMovie& movie, const std::shared_ptr<const Image>& image)> movieMediaImage;

  /// The frame after effects and subtitles, called after `movieMediaImage`; null where there is
  /// none.
  std::function<void(LMFFMovie& movie, const std::shared_ptr<const Image>& image)>
      movieMediaEffectImage;
};

using MovieImageProvider = LMFFMovieImageProvider;

}  // namespace kestrel
