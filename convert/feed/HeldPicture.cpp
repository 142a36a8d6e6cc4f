#include "convert/feed/HeldPicture.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel {

void HeldPicture::hold(const LMFFMedia::Picture& picture, const LMFFMedia& media) {
  if (!picture) {
    *this = {};
    return;
  }
  const int64_t position = media.movie_position();
  // Pixels that are held are nobody else's.
  const bool isSame =
      image && frame->data[0] == picture.frame->data[0] && start == picture.start + position;
  if (!isSame) image = LMFFImage::imageWithFrame(av_frame_clone(picture.frame), true);
  frame = image->getFrame();
  start = picture.start + position;
  end = picture.end + position;
}

}  // namespace kestrel
