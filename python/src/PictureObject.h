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

/// Width and height, pixels; none are a picture's own.
using Sides = std::optional<std::pair<int, int>>;

/// A reader of pictures that threads take turns with, and that can be closed while its pictures are
/// held. Nothing here is to be called with Python's lock held.
class PictureReading : public std::enable_shared_from_this<PictureReading> {
 public:
  PictureReading(const PicturesSettings& settings, const Interrupt& interrupt);

  std::optional<int64_t> duration();
  Size size();

  /// The picture shown at a time.
  PictureObject at(int64_t time, const Sides& size);

  /// The one that follows the one that was last asked for.
  std::optional<PictureObject> next(const Sides& size);

  /// The pixels of a picture.
  std::shared_ptr<const BitmapImage> drawn(const Pictures::Shown& shown, Size size);

  void close();

 private:
  Pictures& opened();
  void setSize(const Sides& size);
  PictureObject object(const Pictures::Shown& shown);
  std::shared_ptr<const BitmapImage> pixels(const Pictures::Shown& shown);

  std::mutex turn_;
  const bool hasSubtitles_;
  std::optional<Pictures> pictures_;
};

/// A picture of a movie, drawn when it is looked at.
class PictureObject {
 public:
  /// `bitmap`: where it is drawn already.
  PictureObject(std::shared_ptr<PictureReading> reading, Pictures::Shown shown, Size size,
                std::shared_ptr<const BitmapImage> bitmap = nullptr);

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
