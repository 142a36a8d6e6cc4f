#include "convert/cut/StretchWriter.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <utility>

#include "convert/cut/DecodedPictures.h"

namespace kestrel {

StretchWriter::StretchWriter(const CutJob& job, const PicturePlan& plan, StretchForm* form,
                             int steps, StreamCopier& copier, PacketTaker write)
    : job_(job),
      plan_(plan),
      form_(form),
      steps_(steps),
      copier_(copier),
      write_(std::move(write)) {
  for (size_t i = 0; i < job.index.pictures.size(); ++i)
    places_.emplace(job.index.pictures[i].shown, i);
}

const PictureRun* StretchWriter::current() const {
  return next_ < plan_.pictures.size() ? &plan_.stretchOf(next_) : nullptr;
}

void StretchWriter::begin(size_t window) {
  window_ = window;
  if (!isDone(window)) encodeAhead();
}

bool StretchWriter::isDone(size_t window) const { return !current() || current()->window > window; }

std::optional<size_t> StretchWriter::placeOf(int64_t time) const {
  const auto found = places_.find(time);
  return found == places_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<size_t> StretchWriter::firstCopied(size_t window) const {
  for (const PictureRun& stretch : plan_.stretches)
    if (stretch.window == window && !stretch.isEncoded) return plan_.pictures[stretch.first].index;
  return std::nullopt;
}

int64_t StretchWriter::time() const {
  const CutWindow& last = plan_.windows.back();
  const int64_t ticks =
      next_ < plan_.pictures.size() ? plan_.pictures[next_].shown : last.place + last.length();
  return av_rescale_q(ticks, job_.index.timebase, kMicroseconds);
}

int64_t StretchWriter::outputTime(int64_t ticks) const {
  return av_rescale_q(ticks, job_.index.timebase, copier_.stream()->time_base);
}

bool StretchWriter::take(const AVPacket& packet) {
  const PictureRun* stretch = current();
  if (!stretch || stretch->isEncoded || stretch->window != window_) return false;
  const PlannedPicture& picture = plan_.pictures[next_];
  if (packet.pts != picture.source) return false;
  PacketPtr own(av_packet_clone(&packet));
  if (!own) throw std::bad_alloc();
  if (std::exchange(follows_, false) && form_ && !form_->resume(*own)) throw std::bad_alloc();
  const bool opens = next_ > 0 && next_ == stretch->first && form_ &&
                     job_.index.pictures[picture.index].entry == IndexedPicture::Entry::kOpen;
  if (opens && !form_->open(*own)) throw std::bad_alloc();
  write(std::move(own), picture);
  ++next_;
  if (!isDone(window_)) encodeAhead();
  return true;
}

/// Makes what is encoded and comes next in the same window.
void StretchWriter::encodeAhead() {
  while (!isDone(window_) && current()->isEncoded) {
    const PictureRun& stretch = *current();
    encode(stretch);
    next_ = stretch.first + stretch.count;
    follows_ = true;
  }
}

FineCoding StretchWriter::coding() const {
  const AVStream& stream = *job_.outline->streams[job_.video];
  return {.parameters = *stream.codecpar,
          .rate = stream.avg_frame_rate,
          .steps = steps_,
          .apart = form_->setsApart(),
          .codesFields = form_->codesFields(),
          .options = form_->options()};
}

void StretchWriter::encode(const PictureRun& stretch) {
  DecodedPictures source(job_.reader(), job_.video);
  const int64_t first = plan_.pictures[stretch.first].source;
  source.seek(job_.index.entryBefore(first), first);
  CodecContextPtr encoder;
  size_t count = 0;
  const auto adopt = [&](PacketPtr packet) {
    if (!form_->adopt(*packet)) throw std::bad_alloc();
    if (count < stretch.count) write(std::move(packet), plan_.pictures[stretch.first + count]);
    ++count;
  };
  for (size_t i = 0; i < stretch.count; ++i) {
    FramePtr picture = source.next();
    const int64_t time = plan_.pictures[stretch.first + i].source;
    if (!picture || DecodedPictures::timeOf(*picture) != time) {
      problem_ = "not all pictures could be decoded";
      return;
    }
    if (!encoder && openFineEncoder(encoder, coding(), *picture) < 0) {
      problem_ = "the encoder refuses the pictures";
      return;
    }
    picture->pts = static_cast<int64_t>(i);
    picture->pict_type = AV_PICTURE_TYPE_NONE;
    if (encodeFrame(*encoder, picture.get(), adopt) < 0) problem_ = "the encoder failed";
    if (job_.events.isInterrupted()) throw Failure::interrupted();
  }
  if (encodeFrame(*encoder, nullptr, adopt) < 0) problem_ = "the encoder failed";
  if (count != stretch.count) problem_ = "the encoder left pictures out";
}

/// Stamps a packet for the result and passes it on.
void StretchWriter::write(PacketPtr packet, const PlannedPicture& picture) {
  packet->pts = outputTime(picture.shown);
  packet->dts = outputTime(picture.decoded);
  packet->duration = outputTime(picture.shown + picture.duration) - packet->pts;
  packet->flags &= ~AV_PKT_FLAG_DISCARD;
  copier_.push(std::move(packet));
  while (PacketPtr ready = copier_.pop()) write_(std::move(ready));
}

void StretchWriter::finish() {
  copier_.finish();
  while (PacketPtr ready = copier_.pop()) write_(std::move(ready));
}

}  // namespace kestrel
