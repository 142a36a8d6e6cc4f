#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Geometry.h>
#include <kestrel/convert/Pictures.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "Bindings.h"

namespace kestrel::python {

class PictureObject;

/// A reader of pictures that threads take turns with, and that can be closed while its pictures are
/// held. Nothing here is to be called with Python's lock held.
class PictureReading : public std::enable_shared_from_this<PictureReading> {
 public:
  explicit PictureReading(const PicturesSettings& settings);

  std::optional<int64_t> duration();
  Size size();

  /// The size of the pictures that come from now on; none is their own.
  void setSize(const std::optional<std::pair<int, int>>& size);

  Pictures::Shown shownAt(int64_t time);
  std::optional<Pictures::Shown> next();

  /// What Python holds of a picture. Subtitles are drawn at once, as they are read with it.
  PictureObject object(const Pictures::Shown& shown);

  /// The pixels of a picture in a size.
  std::shared_ptr<const BitmapImage> drawn(const Pictures::Shown& shown, Size size);

  void close();

 private:
  Pictures& opened();

  std::mutex turn_;
  bool hasSubtitles_;
  std::optional<Pictures> pictures_;
  Size size_;
};

/// A picture of a movie, drawn when it is looked at.
class PictureObject {
 public:
  PictureObject(std::shared_ptr<PictureReading> reading, Pictures::Shown shown, Size size)
      : reading_(std::move(reading)), shown_(std::move(shown)), size_(size) {}

  const Pictures::Shown& shown() const { return shown_; }
  Size size() const { return size_; }

  /// R, G, B, A. Not to be called with Python's lock held.
  const std::shared_ptr<const BitmapImage>& bitmap() const;

 private:
  std::shared_ptr<PictureReading> reading_;
  Pictures::Shown shown_;
  Size size_;
  /// Copies of a picture are drawn together, once.
  struct Drawing {
    std::once_flag once;
    std::shared_ptr<const BitmapImage> bitmap;
  };
  std::shared_ptr<Drawing> drawing_ = std::make_shared<Drawing>();
};

void bindPicture(py::module_& module);

}  // namespace kestrel::python
