#include "convert/feed/Tracks.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "convert/probe/Input.h"
#include "support/FFmpegOwners.h"
#include "support/copy/PacketTimes.h"

namespace kestrel {

namespace {

constexpr int32_t kBlockFrames = 4096;  // what one audio job carries at most
constexpr int64_t kRounding = 1000;     // of times in containers that count milliseconds

/// Has a subtitle end within a time, microseconds.
void endSubtitle(AVPacket& packet, int64_t length, AVRational base) {
  packet.duration = std::min(packet.duration, av_rescale_q(length, kMicroseconds, base));
}

}  // namespace

EncodedVideoTrack::EncodedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate,
                                     PictureShaper shape, std::optional<PictureStretch> stretch)
    : feed_(movie, span.start, rate, std::move(shape), stretch),
      stop_(span.length()),
      isStretch_(stretch.has_value()) {}

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
  const int64_t tick = feed_.tick();
  auto picture = feed_.next();
  ended_ = !picture;
  if (ended_) return {};
  if (isStretch_)
    return [picture = std::move(picture), tick](LMFFMovieFileOutput& output) {
      output.writeImage(picture, tick, 1);
    };
  return
      [picture = std::move(picture)](LMFFMovieFileOutput& output) { output.writeImage(picture); };
}

TimedVideoTrack::TimedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate, bool repeats,
                                 PictureShaper shape, std::optional<PictureStretch> stretch)
    : feed_(movie, span.start, span.end, rate, repeats, stretch),
      shape_(std::move(shape)),
      span_(span),
      tick_(pictureTick(rate)) {}

int64_t TimedVideoTrack::end() const {
  const auto length = span_.length();
  return length ? std::min(feed_.time(), *length) : feed_.time();
}

Track::Job TimedVideoTrack::step() {
  auto timed = feed_.next();
  ended_ = !timed;
  if (ended_) return {};
  const int64_t middle =
      av_rescale_q(timed->time + timed->duration / 2, toAV(tick_), kMicroseconds);
  if (shape_) timed->image = shape_(timed->image, span_.start + middle);
  return [timed = std::move(*timed)](LMFFMovieFileOutput& output) {
    output.writeImage(timed.image, timed.time, timed.duration);
  };
}

PacedVideoTrack::PacedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate,
                                 PictureShaper shape)
    : feed_(movie, span.start, span.end, rate), shape_(std::move(shape)), span_(span) {}

int64_t PacedVideoTrack::end() const {
  const auto length = span_.length();
  return length ? std::min(feed_.time(), *length) : feed_.time();
}

Track::Job PacedVideoTrack::step() {
  const int64_t middle = span_.start + feed_.time() + feed_.tickDuration() / 2;
  auto picture = feed_.next();
  ended_ = !picture;
  if (ended_) return {};
  if (shape_) picture = shape_(picture, middle);
  return
      [picture = std::move(picture)](LMFFMovieFileOutput& output) { output.writeImage(picture); };
}

EncodedAudioTrack::EncodedAudioTrack(AudioFeed feed, AVStream* output, const Span& span,
                                     int64_t preroll, const Level& level, const Track* leader)
    : feed_(std::move(feed)),
      output_(output),
      leader_(leader),
      volume_(static_cast<float>(level.volume)),
      told_(level.told) {
  if (told_) meter_.emplace(feed_.format().sample_rate, feed_.format().channel_layout);
  if (level.mayRise) limiter_.emplace(feed_.format().sample_rate, feed_.channels());
  if (const auto length = span.length()) stopFrame_ = framesIn(*length);
  feed_.skip(framesIn(preroll));
}

int64_t EncodedAudioTrack::framesIn(int64_t time) const {
  return av_rescale_q(time, kMicroseconds, {1, feed_.format().sample_rate});
}

int64_t EncodedAudioTrack::time() const {
  if (ended_) return kEnded;
  const bool waits = leader_ && leader_->time() != kEnded && feed_.waitingFrames() < kBlockFrames;
  return waits ? std::max(end(), leader_->time() + 1) : end();
}

int64_t EncodedAudioTrack::end() const {
  return av_rescale_q(frames_, {1, feed_.format().sample_rate}, kMicroseconds);
}

Track::Job EncodedAudioTrack::writing(std::vector<std::byte> samples) {
  if (samples.empty()) return {};
  const auto frames = static_cast<int32_t>(samples.size() / feed_.frameBytes());
  return [samples = std::make_shared<std::vector<std::byte>>(std::move(samples)), frames,
          stream = output_](LMFFMovieFileOutput& output) {
    output.writeSample(samples->data(), frames, stream);
  };
}

/// Writes samples as loud as they are to be.
Track::Job EncodedAudioTrack::shaping(std::span<const float> samples) {
  if (meter_) meter_->take(samples);
  std::vector<std::byte> bytes(samples.size_bytes());
  if (!bytes.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
  return writing(std::move(bytes));
}

Track::Job EncodedAudioTrack::step() {
  if (leader_ && leader_->time() == kEnded) feed_.readAlone();
  std::vector<std::byte> block(kBlockFrames * feed_.frameBytes());
  int32_t count = 0;
  const int64_t left = stopFrame_ ? *stopFrame_ - frames_ : kBlockFrames;
  const auto wanted = static_cast<int32_t>(std::min<int64_t>(left, kBlockFrames));
  while (count < wanted && !ended_) {
    const int32_t got =
        feed_.read(block.data() + static_cast<size_t>(count) * feed_.frameBytes(), wanted - count);
    ended_ = got == 0;
    count += got;
  }
  frames_ += count;
  ended_ = ended_ || wanted <= 0;
  block.resize(static_cast<size_t>(count) * feed_.frameBytes());
  if (volume_ == 1 && !limiter_ && !meter_) return writing(std::move(block));
  std::vector<float> samples(block.size() / sizeof(float));
  std::memcpy(samples.data(), block.data(), block.size());
  if (volume_ != 1)
    for (float& sample : samples) sample *= volume_;
  return shaping(limiter_ ? limiter_->process(samples) : samples);
}

Track::Job EncodedAudioTrack::finish() {
  Job rest = shaping(limiter_ ? limiter_->finish() : std::vector<float>());
  if (told_) *told_ = {meter_->loudness(), limiter_ && limiter_->hasActed()};
  return [rest = std::move(rest), stream = output_](LMFFMovieFileOutput& output) {
    if (rest) rest(output);
    output.finishAudio(stream);
  };
}

CopiedTrack::CopiedTrack(std::shared_ptr<LMFFMedia> media, std::shared_ptr<LMFFMediaStream> stream,
                         AVStream* output, const Span& span, const Track* leader, bool hidesFirst,
                         std::unique_ptr<SoundCheck> check)
    : media_(std::move(media)),
      stream_(std::move(stream)),
      output_(output),
      leader_(leader),
      span_(span),
      hidesFirst_(hidesFirst),
      check_(std::move(check)),
      waitsForKey_(stream_->isVideo() && span.start > 0),
      first_(span.start) {}

bool CopiedTrack::waitsForLeader() const {
  return leader_ && leader_->time() != kEnded && !stream_->hasPacket();
}

int64_t CopiedTrack::time() const {
  if (ended_) return kEnded;
  return waitsForLeader() ? std::max(time_, leader_->time() + 1) : time_;
}

/// Subtitles may lie far apart, so that they do not tell where the media is: the input need not be
/// read on where the span has ended.
int64_t CopiedTrack::end() const { return stream_->isSubtitle() ? 0 : end_; }

bool CopiedTrack::isBeyondStop() const {
  return span_.end && media_->last_pts() != AV_NOPTS_VALUE &&
         media_->last_pts() - media_->start_time() > *span_.end + kMicroseconds.den;
}

std::shared_ptr<LMFFImage> CopiedTrack::readPacket() {
  for (;;) {
    // A media with pictures reads only for them; when none are wanted any more, this track does.
    if (!stream_->isVideo())
      while (!stream_->hasPacket() && !isBeyondStop() && media_->forwardNextPacket()) {
      }
    auto packet = media_->readNextPacketInStream(stream_);
    if (packet || media_->isAtEnd() || isBeyondStop() || isInterrupted(*media_)) return packet;
  }
}

/// Subtitles that still show at the start are read before it is sought, and may come again then.
bool CopiedTrack::isRepeated(const AVPacket& packet) {
  if (!stream_->isSubtitle() || packet.pos < 0 || time_ > 0) return false;
  return !early_.insert(packet.pos).second;
}

/// Whether a packet of pictures goes on. Those before the start are hidden, but for the one that is
/// still shown then; those that a first key picture within the span leads are left out. Times are
/// rounded, by containers to milliseconds.
bool CopiedTrack::beginsWith(LMFFImage& item) {
  AVPacket& packet = *item.getPacket();
  const bool isTold = packet.pts != AV_NOPTS_VALUE;
  const AVRational base = toAV(item.time_base());
  const int64_t shown = av_rescale_q(isTold ? packet.pts : packet.dts, base, kMicroseconds) +
                        item.get_pkt_offset_time();
  const auto isBefore = [&](int64_t time) {
    return (isTold || packet.dts != AV_NOPTS_VALUE) && shown + kRounding < time;
  };
  const bool mayHide = isTold && hidesFirst_;
  const bool mayBegin = item.isKeyPacket() && (mayHide || !isBefore(span_.start));
  if (waitsForKey_ && mayBegin) {
    waitsForKey_ = false;
    hidesLead_ = isBefore(span_.start);
    first_ = std::max(shown, span_.start);
  }
  if (waitsForKey_ || (isBefore(first_) && !(mayHide && hidesLead_))) {
    hasSkipped_ = hasSkipped_ || !isBefore(span_.start);
    return false;
  }
  const bool isHidden = (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
  if (!isBefore(first_) || isHidden) return true;
  const int64_t early = av_rescale_q_rnd(first_ - shown, kMicroseconds, base, AV_ROUND_UP);
  if (early >= packet.duration - av_rescale_q(kRounding, kMicroseconds, base)) {
    packet.flags |= AV_PKT_FLAG_DISCARD;
  } else {
    packet.pts += early;
    packet.duration -= early;
  }
  return true;
}

int64_t CopiedTrack::missing() const { return hasSkipped_ ? first_ - span_.start : 0; }

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
  const bool isHidden = stream_->isVideo() && (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
  if (stamp != AV_NOPTS_VALUE && !isHidden) {
    const int64_t time = av_rescale_q(stamp, base, kMicroseconds) + item->get_pkt_offset_time();
    if (span_.end && time >= *span_.end) {
      ended_ = true;
      end_ = std::max(end_, *span_.length());  // the input goes on
      return {};
    }
    if (span_.end && stream_->isSubtitle())
      endSubtitle(*item->getPacket(), *span_.end - time, base);
    time_ = std::max(time_, time - span_.start);
    if (check_ && !check_->takes(*packet)) return {};
    end_ = std::max(end_, time - span_.start + av_rescale_q(packet->duration, base, kMicroseconds));
    if (time < span_.start && span_.start > 0 && stream_->isAudio()) return {};
  }
  if (isRepeated(*packet)) return {};
  if (stream_->isVideo() && span_.start > 0 && !beginsWith(*item)) return {};
  isShown_ = !stream_->isVideo() || (packet->flags & AV_PKT_FLAG_DISCARD) == 0;
  const bool isEmptyText = stream_->isSubtitle() && end_ == 0 && packet->duration != 0;
  hasBrought_ = hasBrought_ || (isShown_ && !isEmptyText);
  item->set_movie_real_start_time(span_.start);
  const bool isAudio = stream_->isAudio();
  return [item = std::move(item), isAudio, base, stream = output_](LMFFMovieFileOutput& output) {
    const TimeShift shift(base, stream->time_base, item->get_pkt_offset_time());
    if (isAudio) followOn(*item->getPacket(), shift, output.streamTime(stream));
    output.writeRawPacket(item, stream);
  };
}

}  // namespace kestrel
