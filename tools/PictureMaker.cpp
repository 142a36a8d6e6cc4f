#include "PictureMaker.h"

#include <kestrel/Image.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>

#include <utility>

extern "C" {
#include <libavutil/frame.h>
}

using namespace kestrel;

PictureMaker::PictureMaker(LMFFMovie& movie, const LMFFImageColorspaceConverter& output)
    : movie_(movie) {
  converter_.setOutputFormat(output.outputFormat());
  converter_.setOutputColor(output.outputColor());
}

std::shared_ptr<LMFFImage> PictureMaker::make(const std::shared_ptr<LMFFImage>& frame,
                                              int64_t time) {
  Parts parts{frame, nullptr, std::nullopt};
  if (const auto media = movie_.currentVideoMedia())
    parts.bitmapSubtitle = media->subtitleAtTime(time - media->movie_position());
  if (const auto media = movie_.subtitle())
    parts.text = media->subtitleMarkupAtTime(time - media->movie_position());
  if (picture_ && parts == parts_) return picture_;

  const auto stream = movie_.videoEffectStream();
  stream->setMediaSubtitleImage(parts.bitmapSubtitle);
  stream->setSubtitleCurrentString(parts.text);
  stream->writeFrame(frame->getFrame());
  converter_.convertImage(stream->currentEffectImage());
  picture_ = LMFFImage::imageWithFrame(av_frame_clone(converter_.outputFrame()), true);
  parts_ = std::move(parts);
  return picture_;
}
