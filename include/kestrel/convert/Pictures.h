#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

class LMMediaSource;

/// Which pictures are to be had; `{}` beside the input means as they are.
struct PicturesSettings {
  std::string input = {};  ///< a file, or a disc (a folder or an image)
  /// The program's own bytes in place of a file; `input` is then what people call them. It is not
  /// opened itself: each reader gets a copy (`LMMediaSource::copy`).
  std::shared_ptr<LMMediaSource> source = {};
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
  LookSettings look = {};
  Deinterlacing deinterlacing = Deinterlacing::kCombed;
};

/// Single pictures of a movie, each exactly the one that a player shows at its time: upright, in
/// square pixels, with the look asked for and the subtitles of its time. A song's cover counts as a
/// picture.
///
///     Pictures pictures({.input = "clip.mov"});
///     auto picture = pictures.pictureAt(5'000'000);
///
/// Times in rising order cost least. Use an object from one thread at a time; several objects work
/// side by side. Times are microseconds from the movie's start.
class KESTREL_API Pictures {
 public:
  /// Opens the input. `interrupt` is asked from then on, also while pictures are read. Throws a
  /// `Failure` for what cannot be opened, has no pictures, or does not fit the look.
  explicit Pictures(const PicturesSettings& settings, const Interrupt& interrupt = {});
  ~Pictures();
  Pictures(const Pictures&) = delete;
  Pictures& operator=(const Pictures&) = delete;

  /// How long the movie is; nothing where that is not known.
  std::optional<int64_t> duration() const;

  /// The pictures' average rate, pictures per second; 0/0 where that is not known.
  Rational frameRate() const;

  /// The size of a picture by itself, in whole square pixels.
  Size size() const;

  /// Has pictures come out in a size, whole pixels: stretched to it, or as the look's zoom says.
  /// `{}` is their own. Throws a `Failure` for a side that is not above 0 and up to 32768.
  void setOutputSize(Size size);

  /// The size in which they come out, whole pixels.
  Size outputSize() const;

  /// Changes the look's named effect; "" is none. Throws a `Failure` for one that is not in the
  /// catalogue.
  void setEffect(const std::string& name);

  /// The picture shown at a time, as pixels: before 0 the first one, behind the end the last one.
  /// Throws a `Failure` when there is none at all and when interrupted, std::bad_alloc without
  /// memory for it.
  std::shared_ptr<const BitmapImage> pictureAt(int64_t time);

  /// The same as a recipe to draw on with; valid until the next call.
  std::shared_ptr<const Image> imageAt(int64_t time);

  /// A picture as it was decoded, and when it is shown: from `start` until `end`, microseconds from
  /// the movie's start. It is valid as long as it is held.
  struct Shown {
    std::shared_ptr<LMFFImage> frame;
    int64_t start = 0;
    int64_t end = 0;
  };

  /// The picture shown at a time, as it was decoded; throws as `pictureAt` does.
  Shown shownAt(int64_t time);

  /// The picture that follows the one that was last asked for, in the order in which they are
  /// shown, each once; at first the first one. Nothing behind the last one. Throws a `Failure` when
  /// interrupted.
  std::optional<Shown> next();

  /// A decoded picture of this movie as pixels, with the look asked for and without subtitles.
  std::shared_ptr<const BitmapImage> drawn(const Shown& shown);

  /// Whether the pictures asked for so far were there, or the input ended before them.
  Report report() const;

 private:
  class Input;
  std::unique_ptr<Input> input_;
};

}  // namespace kestrel
