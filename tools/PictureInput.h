#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Look.h"
#include "PictureReader.h"

struct AVStream;

/// An input that is opened for single pictures of it: a movie of its main pictures alone, upright,
/// in square pixels, with the look that the user asked for.
class PictureInput {
 public:
  /// Throws a `Failure` for what cannot be opened, has no pictures, or does not fit the look.
  PictureInput(const std::string& path, const LookSettings& settings);

  kestrel::LMFFMovie& movie() { return movie_; }
  const AVStream& stream() const { return *stream_; }

  /// How long the movie is, microseconds; nothing where that is not known.
  std::optional<int64_t> duration() const;

  /// The size of a picture by itself, in whole square pixels.
  kestrel::Size size() const { return size_; }

  /// Has pictures come out in a size, whole pixels: stretched to it, or as the user's zoom says.
  void setOutputSize(kestrel::Size size);

  /// The picture shown at a time, microseconds. Throws a `Failure` when there is none at all, and
  /// when the user interrupts.
  std::shared_ptr<const kestrel::Image> imageAt(int64_t time);

  /// The same as pixels.
  std::shared_ptr<const kestrel::BitmapImage> pictureAt(int64_t time);

  /// The exit status: whether the pictures asked for were there, or the input ended before them,
  /// which is said then.
  int status() const;

 private:
  bool reaches(int64_t time) const;

  const std::string path_;
  std::shared_ptr<kestrel::LMMediaSource> source_;
  const AVStream* stream_ = nullptr;
  kestrel::LMFFMovie movie_;
  Look look_;
  kestrel::Size size_;
  kestrel::Size outputSize_;
  kestrel::ImageContext context_;
  std::optional<PictureReader> reader_;
  int64_t lastAsked_ = 0;
};
