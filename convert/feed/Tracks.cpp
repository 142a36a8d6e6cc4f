#include "convert/feed/Tracks.h"

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <utility>

#include "convert/probe/Input.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr AVRational kSamples{1, 44100};  // the movie's own rate
constexpr int32_t kChannels = 2;
constexpr int32_t kBlockFrames = 4096;  // what one audio job carries at most

/// The time left from the conversion's start to its end.
std::optional<int64_t> lengthOf(const ConversionPlan& plan) {
  if (!plan.end) return std::nullopt;
  return *plan.end - plan.start;
}

/// Makes a sound packet follow on the one before. Where time stamps lie closer together than ticks
/// of the output, or begin before it, several packets fall on one tick, and the output would drop
/// all but one of them.
void catchUp(const LMFFImage& item, const LMFFMovieFileOutput& output) {
  AVPacket& packet = *item.getPacket();
  if (packet.dts == AV_NOPTS_VALUE) return;
  const AVRational from = toAV(item.time_base());
  const AVRational to = output.audioStream()->time_base;
  const int64_t offset = av_rescale_q(item.get_pkt_offset_time(), kMicroseconds, to);
  if (output.audio_pts() <= av_rescale_q(packet.dts, from, to) + offset) return;
  packet.dts = av_rescale_q_rnd(output.audio_pts() - offset, to, from, AV_ROUND_UP);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts = std::max(packet.pts, packet.dts);
}

}  // namespace

EncodedVideoTrack::EncodedVideoTrack(LMFFMovie& movie, const ConversionPlan& plan,
                                     std::unique_ptr<PictureMaker> maker)
    : feed_(movie, plan.start, plan.rate()),
      maker_(std::move(maker)),
      start_(plan.start),
      stop_(lengthOf(plan)) {}

int64_t EncodedVideoTrack::time() const {
  // A picture that would show for less than half its time is left out, unless it is the only one.
  const bool isPast = stop_ && feed_.time() > 0 && feed_.time() + feed_.tickDuration() / 2 > *stop_;
  return ended_ || isPast ? kEnded : feed_.time();
}

int64_t EncodedVideoTrack::end() const {
  // Where the input did not end, the span did, be it in the middle of a long tick.
  return stop_ && !ended_ ? std::max(feed_.time(), *stop_) : feed_.time();
}

Track::Job EncodedVideoTrack::step() {
  const int64_t middle = start_ + feed_.time() + feed_.tickDuration() / 2;
  auto picture = feed_.next();
  ended_ = !picture;
  if (ended_) return {};
  if (maker_) picture = maker_->make(picture, middle);
  return
      [picture = std::move(picture)](LMFFMovieFileOutput& output) { output.writeImage(picture); };
}

EncodedAudioTrack::EncodedAudioTrack(LMFFMovie& movie, const ConversionPlan& plan, int64_t preroll,
                                     const Track* reader)
    : feed_(movie), reader_(reader) {
  if (const auto length = lengthOf(plan))
    stopFrame_ = av_rescale_q(*length, kMicroseconds, kSamples);
  feed_.skip(av_rescale_q(preroll, kMicroseconds, kSamples));
}

int64_t EncodedAudioTrack::time() const {
  if (ended_) return kEnded;
  const bool waits = reader_ && reader_->time() != kEnded && feed_.waitingFrames() < kBlockFrames;
  return waits ? std::max(end(), reader_->time() + 1) : end();
}

int64_t EncodedAudioTrack::end() const { return av_rescale_q(frames_, kSamples, kMicroseconds); }

Track::Job EncodedAudioTrack::step() {
  if (reader_ && reader_->time() == kEnded) feed_.readAlone();
  auto samples =
      std::make_shared<std::vector<float>>(static_cast<size_t>(kBlockFrames) * kChannels);
  int32_t count = 0;
  const int64_t left = stopFrame_ ? *stopFrame_ - frames_ : kBlockFrames;
  const auto wanted = static_cast<int32_t>(std::min<int64_t>(left, kBlockFrames));
  while (count < wanted && !ended_) {
    const int32_t got =
        feed_.read(samples->data() + static_cast<size_t>(count) * kChannels, wanted - count);
    ended_ = got == 0;
    count += got;
  }
  frames_ += count;
  ended_ = ended_ || wanted <= 0;
  if (count == 0) return {};
  return [samples = std::move(samples), count](LMFFMovieFileOutput& output) {
    output.writeSample(samples->data(), count);
  };
}

CopiedTrack::CopiedTrack(LMFFMovie& movie, const ConversionPlan& plan, bool isVideo,
                         const Track* reader)
    : movie_(movie),
      isVideo_(isVideo),
      reader_(reader),
      start_(plan.start),
      stop_(plan.end),
      waitsForKey_(isVideo && plan.start > 0) {
  if (reader_) sound_ = movie_.audios().back()->audioStream();
}

bool CopiedTrack::waitsForReader() const {
  return reader_ && reader_->time() != kEnded && !sound_->hasPacket();
}

int64_t CopiedTrack::time() const {
  if (ended_) return kEnded;
  return waitsForReader() ? std::max(time_, reader_->time() + 1) : time_;
}

std::shared_ptr<LMFFImage> CopiedTrack::readVideoPacket(bool& atEnd) {
  std::shared_ptr<LMFFImage> packet;
  movie_.decodeImageAtTime(std::max<int64_t>(start_ + time_, 0), false,
                           [&](const auto& image) { packet = image; });
  if (const auto media = movie_.currentVideoMedia()) atEnd = media->isAtEnd();
  return packet;
}

std::shared_ptr<LMFFImage> CopiedTrack::readAudioPacket(bool& atEnd) {
  // A media with pictures reads only for them; when none are wanted any more, this track does.
  if (reader_)
    while (!sound_->hasPacket() && sound_->media()->forwardNextPacket()) {
    }
  auto packet = movie_.readNextAudioPacket();
  if (const auto media = movie_.currentAudioMedia()) atEnd = media->isAtEnd();
  return packet;
}

std::shared_ptr<LMFFImage> CopiedTrack::readPacket() {
  for (;;) {
    holdClock(movie_);
    bool atEnd = true;
    auto packet = isVideo_ ? readVideoPacket(atEnd) : readAudioPacket(atEnd);
    if (packet || atEnd || isInterrupted(movie_)) return packet;
  }
}

Track::Job CopiedTrack::step() {
  auto item = readPacket();
  const AVPacket* packet = item ? item->getPacket() : nullptr;
  if (!packet) {
    ended_ = true;
    return {};
  }
  const AVRational base = toAV(item->time_base());
  const int64_t stamp = packet->dts == AV_NOPTS_VALUE ? packet->pts : packet->dts;
  // A hidden picture goes along for those that need it, and has no place in time.
  const bool isHidden = isVideo_ && (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
  if (stamp != AV_NOPTS_VALUE && !isHidden) {
    const int64_t time = av_rescale_q(stamp, base, kMicroseconds) + item->get_pkt_offset_time();
    if (stop_ && time >= *stop_) {
      ended_ = true;
      end_ = std::max(end_, *stop_ - start_);  // the input goes on
      return {};
    }
    time_ = std::max(time_, time - start_);
    end_ = std::max(end_, time - start_ + av_rescale_q(packet->duration, base, kMicroseconds));
    if (time < start_ && start_ > 0 && !isVideo_) return {};
  }
  // A picture can only be decoded from a key picture on.
  if (waitsForKey_ && !item->isKeyPacket()) return {};
  waitsForKey_ = false;
  item->set_movie_real_start_time(start_);
  return [item = std::move(item), isVideo = isVideo_](LMFFMovieFileOutput& output) {
    if (isVideo) return output.writeVideoPacket(item);
    catchUp(*item, output);
    output.writeAudioPacket(item);
  };
}

}  // namespace kestrel
