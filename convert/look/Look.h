#pragma once

#include <kestrel/Geometry.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/MovieLook.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/MediaInfo.h>

#include <optional>

namespace kestrel {

/// What a movie's pictures have to become before they are brought to the size of the output.
///
/// The pictures are turned upright as the input's tags say, then as the settings say.
class Look {
 public:
  Look() = default;

  /// `pictures`: what is known of them; `picture`: what of the stored picture lies between black
  /// bars, which `settings.autoCrop` asks to find. Throws `Failure` for what does not fit the
  /// pictures, such as a crop beyond them.
  Look(const LookSettings& settings, const VideoInfo& pictures,
       const std::optional<Area>& picture = {});

  /// Whether they are drawn, which mixes their samples anew. Others stay in their own format, also
  /// where they are turned by quarters, mirrored or laid on black.
  bool isDrawn() const;

  /// What is done to pictures that are not drawn, in this order.
  struct Turn {
    bool mirrored = false;  ///< left and right
    bool flipped = false;   ///< upper and lower
    int quarters = 0;       ///< counterclockwise, 0 to 3

    bool isNone() const { return *this == Turn{}; }
    bool operator==(const Turn&) const = default;
  };
  Turn turn() const;

  /// The pictures may be transparent.
  bool isTransparent() const { return isTransparent_; }

  /// The size that the cropped and turned pictures have by themselves, pixels. Turns that are no
  /// quarter turns do not count: the picture is fitted into the size that it had.
  Size size() const { return size_; }

  /// Whether the picture is fitted into a size of another shape, rather than the shape of the
  /// output's pixels made to suit it.
  bool isFitted() const { return isFitted_; }

  /// The shape of a pixel of that picture, width / height.
  double pixelAspect() const { return pixelAspect_; }

  /// Sets an opened movie's look for an output of that size; throws `Failure` for a watermark or
  /// subtitles that cannot be read or are not there.
  void apply(LMFFMovie& movie, Size output) const;

 private:
  LookSettings settings_;
  MovieLook look_;  // all of it but what depends on the output's size
  Size size_;
  double pixelAspect_ = 1;
  bool isFitted_ = false;
  bool isTransparent_ = false;  // the pictures may be; they lie on black
  bool isHdr_ = false;
};

}  // namespace kestrel
