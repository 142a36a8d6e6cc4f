#include "convert/feed/PictureShaper.h"

#include "convert/feed/PictureMaker.h"
#include "convert/feed/PictureTurner.h"
#include "convert/plan/PixelFormats.h"

namespace kestrel {

PictureShaper shaperOf(const Look& look, LMFFMovie& movie, const LMFFMovieFileOutput& output,
                       const std::string& pixelFormat) {
  using Frame = std::shared_ptr<LMFFImage>;
  if (look.isDrawn())
    return [maker = std::make_shared<PictureMaker>(movie, *output.videoConverter())](
               const Frame& frame, int64_t time) { return maker->make(frame, time); };
  const bool flattens = look.isTransparent() && !hasAlpha(pixelFormat);
  if (look.turn().isNone() && !flattens) return {};
  return [turner = std::make_shared<PictureTurner>(look.turn(), flattens)](
             const Frame& frame, int64_t) { return turner->make(frame); };
}

std::shared_ptr<LMFFImage> ShapedFeed::next() {
  const int64_t middle = start_ + feed_.time() + feed_.tickDuration() / 2;
  auto picture = feed_.next();
  return picture && shape_ ? shape_(picture, middle) : picture;
}

}  // namespace kestrel
