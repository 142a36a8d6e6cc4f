#include "PictureMaker.h"

#include <kestrel/Image.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
}

using namespace kestrel;

namespace {

constexpr AVRational kMicroseconds{1, 1000000};

int64_t durationOf(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

}  // namespace

PictureMaker::PictureMaker(LMFFMovie& movie, const LMFFImageColorspaceConverter& output)
    : movie_(movie) {
  converter_.setOutputFormat(output.outputFormat());
  converter_.setOutputColor(output.outputColor());
}

/// A stream holds the subtitle that it read last, and discs bring the next before the one that
/// shows has ended: so each is kept here until its time has come and gone.
std::shared_ptr<const Image> PictureMaker::bitmapAt(const LMFFMedia& media, int64_t time) {
  const auto stream = media.subtitleStream();
  if (!stream) return nullptr;
  const AVFrame& frame = *stream->frame();
  if (frame.pts != AV_NOPTS_VALUE) {
    const AVRational timebase{stream->timebase().num, stream->timebase().den};
    const auto toMedia = [&](int64_t ticks) {
      return av_rescale_q(ticks, timebase, kMicroseconds) - media.start_time();
    };
    const Bitmap newest{toMedia(frame.pts), toMedia(frame.pts + durationOf(frame)),
                        stream->subtitle()};
    const bool isNew = bitmaps_.empty() || bitmaps_.back().start != newest.start ||
                       bitmaps_.back().image != newest.image;
    if (isNew) bitmaps_.push_back(newest);
  }
  while (bitmaps_.size() > 1 && bitmaps_[1].start < time) bitmaps_.pop_front();
  const bool isShown =
      !bitmaps_.empty() && bitmaps_.front().start < time && time < bitmaps_.front().end;
  return isShown ? bitmaps_.front().image : nullptr;
}

std::shared_ptr<LMFFImage> PictureMaker::make(const std::shared_ptr<LMFFImage>& frame,
                                              int64_t time) {
  Parts parts{frame, nullptr, std::nullopt};
  if (const auto media = movie_.currentVideoMedia())
    parts.bitmapSubtitle = bitmapAt(*media, time - media->movie_position());
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
