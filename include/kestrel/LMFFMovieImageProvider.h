#pragma once

#include <kestrel/Image.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kestrel {

class LMFFMovie;

/// Receives the pictures that a movie makes; typically the movie's delegate or a converter.
///
/// Callbacks are optional; empty ones are not called. They run on the movie's decode queue and may
/// request further pictures, which are made immediately.
class LMFFMovieImageProvider {
 public:
  using DataBuffer = std::shared_ptr<std::vector<uint8_t>>;

  virtual ~LMFFMovieImageProvider() = default;

  /// Returns a buffer of exactly `size` bytes, to which the frame is copied in `format` before
  /// effects are applied. If it returns null, there is no picture.
  std::function<DataBuffer(LMFFMovie& movie, const LMFFVideoFormat& format, int32_t size)>
      movieFormatSize;

  /// Receives the frame before effects; null if there is none.
  std::function<void(LMFFMovie& movie, const std::shared_ptr<const Image>& image)> movieMediaImage;

  /// Receives the frame after effects and subtitles; null if there is none. Called after
  /// `movieMediaImage`.
  std::function<void(LMFFMovie& movie, const std::shared_ptr<const Image>& image)>
      movieMediaEffectImage;
};

using MovieImageProvider = LMFFMovieImageProvider;

}  // namespace kestrel
