#pragma once

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

/// Makes finished pictures of a movie's frames: with the look that the movie has, the subtitles of
/// their time, and in the form that the encoder takes. It runs on the movie's queue, so that the
/// encoding thread has nothing to do but encode.
class PictureMaker {
 public:
  /// `output`: the converter of the file output, whose format the pictures get.
  PictureMaker(LMFFMovie& movie, const LMFFImageColorspaceConverter& output);

  /// The picture of a frame that is shown at `time`, microseconds on the movie's time line. One
  /// that looks the same as the one before is the same object.
  std::shared_ptr<LMFFImage> make(const std::shared_ptr<LMFFImage>& frame, int64_t time);

 private:
  /// What a picture is made of.
  struct Parts {
    std::shared_ptr<LMFFImage> frame;
    std::shared_ptr<const Image> bitmapSubtitle = nullptr;
    std::shared_ptr<const Image> styledText = nullptr;
    std::optional<std::string> text = {};

    bool operator==(const Parts&) const = default;
  };

  /// A bitmap subtitle that was read, and when it shows; microseconds in the media's own time.
  struct Bitmap {
    int64_t start = 0;
    int64_t end = 0;
    std::shared_ptr<const Image> read;   // as the stream answered it
    std::shared_ptr<const Image> shown;  // at its place in the picture
  };

  void note(const LMFFMedia& media, int32_t lift);
  std::shared_ptr<const Image> bitmapAt(int64_t time);
  void readBitmaps(LMFFMedia& media, int64_t time, int32_t lift);
  void addSubtitle(Parts& parts, int64_t time);

  LMFFMovie& movie_;
  LMFFImageColorspaceConverter converter_;
  std::deque<Bitmap> bitmaps_;  // in the order in which they begin
  Parts parts_;
  std::shared_ptr<LMFFImage> picture_;
};

}  // namespace kestrel
