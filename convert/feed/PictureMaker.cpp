#include "convert/feed/PictureMaker.h"

#include <kestrel/Image.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <utility>

#include "support/FFmpegCompat.h"

namespace kestrel {

namespace {

/// Whether a media's subtitles are pictures; a stream that has yet to come will be of a disc.
bool hasBitmaps(const LMFFMedia& media) {
  const auto stream = media.subtitleStream();
  const AVCodecDescriptor* codec =
      stream ? avcodec_descriptor_get(stream->stream()->codecpar->codec_id) : nullptr;
  return !codec || (codec->props & AV_CODEC_PROP_BITMAP_SUB) != 0;
}

}  // namespace

PictureMaker::PictureMaker(LMFFMovie& movie, const LMFFImageColorspaceConverter& output)
    : movie_(movie) {
  converter_.setOutputFormat(output.outputFormat());
  converter_.setOutputColor(output.outputColor());
}

/// Keeps the subtitle that a media read last, if it is a new one, `lift` pixels higher.
void PictureMaker::note(const LMFFMedia& media, int32_t lift) {
  const auto stream = media.subtitleStream();
  if (!stream || stream->frame()->pts == AV_NOPTS_VALUE) return;
  const AVFrame& frame = *stream->frame();
  const AVRational timebase = toAV(stream->timebase());
  const auto toMedia = [&](int64_t ticks) {
    return av_rescale_q(ticks, timebase, kMicroseconds) - media.start_time();
  };
  const auto image = stream->subtitle();
  const int64_t start = toMedia(frame.pts);
  const bool isKnown =
      !bitmaps_.empty() && bitmaps_.back().start == start && bitmaps_.back().read == image;
  if (isKnown) return;
  bitmaps_.push_back({start, toMedia(frame.pts + frameDuration(frame)), image,
                      image && lift != 0 ? image->translated(0, lift) : image});
}

/// A stream holds the subtitle that it read last, and that may be the next while one still shows:
/// so each is kept here until its time has come and gone.
std::shared_ptr<const Image> PictureMaker::bitmapAt(int64_t time) {
  while (bitmaps_.size() > 1 && bitmaps_[1].start < time) bitmaps_.pop_front();
  const bool isShown =
      !bitmaps_.empty() && bitmaps_.front().start < time && time < bitmaps_.front().end;
  return isShown ? bitmaps_.front().shown : nullptr;
}

/// Reads bitmaps of a media of their own up to the first that begins later than `time`.
void PictureMaker::readBitmaps(LMFFMedia& media, int64_t time, int32_t lift) {
  note(media, lift);
  while ((bitmaps_.empty() || bitmaps_.back().start <= time) && media.forwardNextPacket())
    note(media, lift);
}

/// The subtitle of a time, microseconds on the movie's time line.
void PictureMaker::addSubtitle(Parts& parts, int64_t time) {
  const auto video = movie_.currentVideoMedia();
  const auto own = movie_.subtitle();
  if (own && !hasBitmaps(*own)) {
    const auto effects = movie_.videoEffectStream();
    effects->showTexts(own, time - own->movie_position());
    parts.text = effects->subtitleCurrentString();
    parts.styledText = effects->styledSubtitle();
  } else if (own && video) {
    const int64_t ownTime = time - own->movie_position();
    // Bitmaps are placed from the top of their media's pictures; this media has none.
    readBitmaps(*own, ownTime, video->videoFormat().height);
    parts.bitmapSubtitle = bitmapAt(ownTime);
  } else if (video) {
    parts.bitmapSubtitle = video->subtitleAtTime(time - video->movie_position());
  }
}

std::shared_ptr<LMFFImage> PictureMaker::make(const std::shared_ptr<LMFFImage>& frame,
                                              int64_t time) {
  Parts parts{.frame = frame};
  addSubtitle(parts, time);
  if (picture_ && parts == parts_) return picture_;

  const auto stream = movie_.videoEffectStream();
  stream->setMediaSubtitleImage(parts.bitmapSubtitle);
  const AVFrame& source = *frame->getFrame();
  converter_.setChromaPlace(
      source.chroma_location,
      source.interlaced_frame && source.height == converter_.outputFormat().height);
  stream->writeFrame(&source);
  converter_.convertImage(stream->currentEffectImage());
  picture_ = LMFFImage::imageWithFrame(av_frame_clone(converter_.outputFrame()), true);
  parts_ = std::move(parts);
  return picture_;
}

}  // namespace kestrel
