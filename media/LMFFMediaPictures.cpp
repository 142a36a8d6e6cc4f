#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>

#include "media/LMFFMediaState.h"
#include "media/StreamTime.h"

namespace kestrel {

namespace {

constexpr int kMostForwards = 10;

/// Sound that may wait while pictures are looked for, seconds: slow pictures lie far apart, and a
/// decoder with many threads takes dozens of them before it gives the first.
constexpr int64_t kMostSoundAhead = 300;

/// A time and a media's start are both rounded to whole microseconds: so much too early is no
/// sooner.
constexpr int64_t kRounding = 2;

}  // namespace

LMFFMedia::Picture::operator bool() const { return frame && frame->data[0]; }

bool LMFFMedia::Picture::beginsBy(int64_t time) const { return start < time + kRounding; }

bool LMFFMedia::Picture::lastsBeyond(int64_t time) const { return end >= time + kRounding; }

AVFrame* LMFFMedia::videoFrameAtTime(int64_t time) {
  const auto stream = videoStream();
  if (!stream) return nullptr;
  const int64_t wanted = toStream(start_time() + time, *stream);
  const auto isBefore = [&] {
    const AVFrame& frame = *stream->frame();
    return !frame.data[0] || frameEnd(frame) < wanted;
  };
  for (int i = 0; i < kMostForwards && isBefore(); ++i)
    if (!forwardStream(stream)) break;
  return stream->frame();
}

LMFFMedia::Picture LMFFMedia::currentPicture() const {
  const auto stream = decodesPictures() ? videoStream() : nullptr;
  if (!stream) return {};
  AVFrame* frame = stream->frame();
  if (!frame->data[0]) return {};
  const AVRational ticks = ticksOf(*frame, *stream);
  return {frame, av_rescale_q(frame->pts, ticks, kMicroseconds) - start_time(),
          av_rescale_q(frameEnd(*frame), ticks, kMicroseconds) - start_time()};
}

LMFFMedia::Picture LMFFMedia::pictureAtTime(int64_t time) {
  const auto stream = videoStream();
  while (!hasPictureFor(time) && readPicture(*stream)) {
  }
  return currentPicture();
}

LMFFMedia::Picture LMFFMedia::nextPicture() {
  const auto stream = decodesPictures() ? videoStream() : nullptr;
  return stream && readPicture(*stream) ? currentPicture() : Picture{};
}

/// Decodes the next picture; false when there is none.
bool LMFFMedia::readPicture(LMFFMediaStream& stream) {
  stream.setHasFrame(false);
  if (stream.takeQueuedFrame()) return true;
  while (!stream.hasFrame())
    if (isSoundFull() || !forwardNextPacket()) return false;
  return true;
}

bool LMFFMedia::isSoundFull() const {
  const auto list = audios();
  return std::ranges::any_of(list, [](const auto& stream) {
    return stream->outputSamples() > kMostSoundAhead * stream->audioOutputFormat().sample_rate;
  });
}

bool LMFFMedia::decodesPictures() const { return hasVideo() && !videoStream()->isCopied(); }

/// Whether the decoded picture lasts beyond a time, or none is wanted.
bool LMFFMedia::hasPictureFor(int64_t time) const {
  if (!decodesPictures()) return true;
  const Picture picture = currentPicture();
  return picture && picture.lastsBeyond(time);
}

void LMFFMedia::thumbnailAtTime(int64_t time, const FrameBlock& block) {
  const auto stream = videoStream();
  if (!stream) return;
  seek(time);
  pictureAtTime(time);
  block(stream->frame());
}

}  // namespace kestrel
