#include "convert/pictures/PictureReader.h"

#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>

#include "convert/probe/Input.h"
#include "convert/probe/Streams.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

/// Where nothing is known of key pictures, so far ahead is worth decoding.
constexpr int64_t kNearEnough = 2000000;

/// Pictures that a decoder may hold back beside those of its threads and of its reordering.
constexpr int64_t kSpareFrames = 4;

}  // namespace

PictureReader::PictureReader(LMFFMovie& movie) : movie_(movie) {
  const auto videos = movie.videos();
  if (videos.empty()) return;
  media_ = videos.front();
  stream_ = media_->videoStream();
  const AVRational rate = toAV(realFrameRate(*stream_->stream()));
  frameDuration_ = av_rescale_q(1, av_inv_q(rate), kMicroseconds);
  // Only these have many pictures to leave out; without a time for each nobody knows which.
  const int codec = stream_->get_codec_id();
  canLeaveOut_ = (codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC) &&
                 !(media_->formatContext()->iformat->flags & AVFMT_NOTIMESTAMPS);
}

PictureReader::~PictureReader() { leaveOut(false); }

const HeldPicture& PictureReader::frameAt(int64_t time) {
  if (!stream_) return newest_;
  const int64_t wanted = meant(time);
  const bool isThere =
      newest_ && newest_.start <= wanted && (atEnd_ || newest_.lastsBeyond(wanted));
  if (isThere) return newest_;
  if (!isNear(wanted)) seek(wanted, canLeaveOut_);
  if (!readUpTo(wanted, canLeaveOut_)) {
    seek(wanted, false);
    readUpTo(wanted, false);
  }
  return newest_;
}

std::shared_ptr<const Image> PictureReader::imageAt(int64_t time) {
  const auto frame = frameAt(time).image;
  const auto effects = movie_.videoEffectStream();
  if (!frame || !effects) return nullptr;
  // A subtitle that begins at this very time is shown, too.
  const int64_t wanted = meant(time);
  effects->setMediaSubtitleImage(media_->subtitleAtTime(wanted - media_->movie_position()));
  const auto text = movie_.subtitle();
  effects->showTexts(text, text ? wanted - text->movie_position() : wanted);
  effects->writeFrame(frame->getFrame());
  return effects->currentEffectImage();
}

const HeldPicture& PictureReader::next() {
  if (!stream_) return newest_;
  leaveOut(false);
  newest_.hold(media_->nextPicture(), *media_);
  noteSent();
  atEnd_ = media_->isAtEnd();
  if (newest_ && atEnd_) end_ = newest_.end;
  return newest_;
}

std::shared_ptr<const Image> PictureReader::drawn(const LMFFImage& frame) {
  const auto effects = movie_.videoEffectStream();
  if (!effects) return nullptr;
  effects->setMediaSubtitleImage(nullptr);
  effects->setSubtitleCurrentString(std::nullopt);
  effects->writeFrame(frame.getFrame());
  return effects->currentEffectImage();
}

/// Whether the way on from here to `wanted` is no longer than from the key picture before it.
bool PictureReader::isNear(int64_t wanted) const {
  if (!newest_ || wanted < newest_.start) return false;
  const auto key = keyBefore(wanted);
  return key ? *key <= sent_ : wanted - newest_.end < kNearEnough;
}

std::optional<int64_t> PictureReader::keyBefore(int64_t wanted) const {
  const auto key = keyTimeBefore(*stream_->stream(), wanted + timeOffset());
  return key ? std::optional(*key - timeOffset()) : std::nullopt;
}

/// From times of the movie to those of the container.
int64_t PictureReader::timeOffset() const {
  return media_->start_time() - media_->movie_position();
}

int64_t PictureReader::refused() const {
  // A way that was gone twice counts once.
  return isFromFirst_ ? std::max(refused_, stream_->decodeErrors() - refusedAtSeek_) : refused_;
}

void PictureReader::seek(int64_t wanted, bool mayLeaveOut) {
  newest_ = {};
  atEnd_ = false;
  sent_ = wholeFrom_ = kNever;
  int64_t target = wanted;
  const int64_t ahead = 2 * framesAhead() * frameDuration_;
  const auto key = mayLeaveOut ? keyBefore(wanted) : std::nullopt;
  const bool leavesOut = key && *key + ahead < wanted - ahead;
  if (leavesOut) target = wanted - ahead;
  leaveOut(leavesOut);
  refused_ = refused();
  refusedAtSeek_ = stream_->decodeErrors();
  isFromFirst_ = keyEntryBefore(*stream_->stream(), target + timeOffset()) == 0;
  media_->seek(target - media_->movie_position());
  noteSent();
}

/// Makes `newest_` the picture for a time, the last one when there is none so late. False where it
/// may be another one than that, since some were left out.
bool PictureReader::readUpTo(int64_t wanted, bool mayLeaveOut) {
  const int64_t ahead = framesAhead() * frameDuration_;
  while (mayLeaveOut && sent_ != kNever && sent_ + ahead < wanted) {
    leaveOut(true);
    if (!media_->forwardNextPacket()) break;
    noteSent();
  }
  leaveOut(false);
  newest_.hold(media_->pictureAtTime(wanted - media_->movie_position()), *media_);
  noteSent();
  atEnd_ = media_->isAtEnd();
  if (newest_ && atEnd_) end_ = newest_.end;
  return newest_.start >= wholeFrom_ || isInterrupted(movie_);
}

void PictureReader::noteSent() {
  const int64_t last = media_->last_pts();
  if (last == AV_NOPTS_VALUE) return;
  sent_ = std::max(sent_, last - media_->start_time() + media_->movie_position());
}

/// Has the decoder leave out, or not, those pictures that no other one refers to.
void PictureReader::leaveOut(bool leavesOut) {
  if (leavesOut == isLeavingOut_) return;
  isLeavingOut_ = leavesOut;
  stream_->codecContext()->skip_frame = leavesOut ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  if (!leavesOut) wholeFrom_ = sent_ == kNever ? kNever : sent_ + 1;
}

/// How many pictures the decoder is ahead of what it gives out, at most.
int64_t PictureReader::framesAhead() const {
  const AVCodecContext& context = *stream_->codecContext();
  return context.has_b_frames + context.thread_count + kSpareFrames;
}

}  // namespace kestrel
