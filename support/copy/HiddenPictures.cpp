#include "support/copy/HiddenPictures.h"

#include <algorithm>
#include <string>
#include <utility>

#include "support/FFmpegError.h"

namespace kestrel {

namespace {

/// How late (microseconds) a track may begin and still have its hidden pictures before time 0: a
/// player shows the last of them until then.
constexpr int64_t kLatestStart = 100000;

bool isHidden(const AVPacket& packet) { return (packet.flags & AV_PKT_FLAG_DISCARD) != 0; }

bool isKey(const AVPacket& packet) { return (packet.flags & AV_PKT_FLAG_KEY) != 0; }

/// Whether a picture is decoded behind a key picture and shown before it.
bool leads(const AVPacket& packet, const AVPacket& key) {
  return packet.pts != AV_NOPTS_VALUE && key.pts != AV_NOPTS_VALUE && packet.pts < key.pts;
}

}  // namespace

HiddenPictures::HiddenPictures(const AVCodecParameters& parameters, const AVStream& stream,
                               bool hidesFirst)
    : parameters_(parameters), stream_(stream), hidesFirst_(hidesFirst), units_(parameters) {}

void HiddenPictures::beginInput(const AVStream& input) {
  // What the input before has hidden is needed by none of this one's pictures.
  finish();
  auto* stream = const_cast<AVStream*>(&input);
  const int count = avformat_index_get_entries_count(stream);
  mayHide_ = false;
  for (int i = 0; i < count && !mayHide_; ++i)
    mayHide_ = (avformat_index_get_entry(stream, i)->flags & AVINDEX_DISCARD_FRAME) != 0;
  group_.clear();
}

void HiddenPictures::push(PacketPtr packet) {
  if (!leading_.empty() && (isKey(*packet) || !leads(*packet, *leading_.front()))) endLeading();
  hasHidden_ = hasHidden_ || isHidden(*packet);
  const bool waits = isKey(*packet) && (mayHide_ || hasHidden_);
  if (waits || !leading_.empty())
    leading_.push_back(std::move(packet));
  else
    take(std::move(packet));
}

/// Goes on behind a key picture and those that are shown before it. Where none of these is shown,
/// what follows needs nothing from before the key picture, nor any of them.
void HiddenPictures::endLeading() {
  if (leading_.empty()) return;
  std::deque<PacketPtr> packets = std::exchange(leading_, {});
  const auto behindKey = packets.begin() + 1;
  const bool showsSome =
      std::any_of(behindKey, packets.end(), [](const auto& packet) { return !isHidden(*packet); });
  if (!showsSome) packets.erase(behindKey, packets.end());
  if (!showsSome || units_.isKnownToBeginAnew(*packets.front())) held_.clear();
  for (PacketPtr& packet : packets) take(std::move(packet));
}

void HiddenPictures::take(PacketPtr packet) {
  const bool endsStretch = stretch_ && isKey(*packet) && units_.beginsAnew(*packet);
  if (endsStretch) endStretch();
  if (stretch_)
    goOnStretch(std::move(packet));
  else if (isHidden(*packet))
    hold(std::move(packet));
  else
    show(std::move(packet));
}

void HiddenPictures::finish() {
  endLeading();
  if (stretch_) endStretch();
  held_.clear();
}

PacketPtr HiddenPictures::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

void HiddenPictures::hold(PacketPtr packet) {
  if (startShift_ && held_.empty() && !isKey(*packet) && fitsBeforeStart(*packet)) {
    packet->pts -= *startShift_;
    packet->dts -= *startShift_;
    return deliver(std::move(packet));
  }
  held_.push_back(std::move(packet));
}

/// Whether a picture that is decoded behind the first one that is shown may lie before time 0.
bool HiddenPictures::fitsBeforeStart(const AVPacket& packet) const {
  if (packet.pts == AV_NOPTS_VALUE || packet.dts == AV_NOPTS_VALUE) return false;
  return packet.pts < *startShift_ && packet.dts - *startShift_ > last_;
}

void HiddenPictures::show(PacketPtr packet) {
  std::erase_if(held_, [&](const PacketPtr& held) { return units_.isDisposable(*held); });
  const bool isFirst = !std::exchange(hasShown_, true);
  if (!held_.empty() && !(isFirst && hidesFirst_ && moveBeforeStart(*packet))) {
    beginStretch();
    return goOnStretch(std::move(packet));
  }
  for (PacketPtr& held : std::exchange(held_, {})) deliver(std::move(held));
  deliver(std::move(packet));
}

/// Moves what is held before time 0; false where the first picture is shown too late for that.
bool HiddenPictures::moveBeforeStart(const AVPacket& shown) {
  const int64_t time = shown.dts != AV_NOPTS_VALUE ? shown.dts : shown.pts;
  if (av_rescale_q(time, stream_.time_base, kMicroseconds) > kLatestStart) return false;
  int64_t latest = INT64_MIN;
  for (const PacketPtr& held : held_) {
    if (held->pts == AV_NOPTS_VALUE || held->dts == AV_NOPTS_VALUE) return false;
    latest = std::max(latest, held->pts);
  }
  startShift_ = std::max<int64_t>(latest + 1, 0);
  for (const PacketPtr& held : held_) {
    held->pts -= *startShift_;
    held->dts -= *startShift_;
  }
  return true;
}

void HiddenPictures::beginStretch() {
  if (!error_ && !StretchEncoder::canEncode(parameters_.codec_id))
    error_ =
        engineError(AVERROR(ENOSYS),
                    std::string("pictures that are to stay hidden can't be hidden here, and ") +
                        avcodec_get_name(parameters_.codec_id) + " can't be encoded without them");
  stretch_.emplace(parameters_, stream_);
  for (const PacketPtr& packet : std::exchange(group_, {})) {
    packet->flags |= AV_PKT_FLAG_DISCARD;
    stretch_->push(*packet);
  }
  for (const PacketPtr& packet : std::exchange(held_, {})) stretch_->push(*packet);
}

void HiddenPictures::goOnStretch(PacketPtr packet) {
  if (error_) return;
  stretch_->push(*packet);
  takeEncoded();
}

void HiddenPictures::endStretch() {
  stretch_->finish();
  takeEncoded();
  stretch_.reset();
  isChanged_ = true;
}

void HiddenPictures::takeEncoded() {
  if (!error_) error_ = stretch_->error();
  while (PacketPtr packet = stretch_->pop())
    if (units_.adopt(*packet)) {
      last_ = packet->dts;
      ++encoded_;
      ready_.push_back(std::move(packet));
    }
}

void HiddenPictures::deliver(PacketPtr packet) {
  last_ = packet->dts;
  if (isKey(*packet)) {
    group_.clear();
    if (std::exchange(isChanged_, false)) units_.prependCodecData(*packet);
  }
  if (mayHide_)
    if (PacketPtr copy{av_packet_clone(packet.get())}) group_.push_back(std::move(copy));
  ready_.push_back(std::move(packet));
}

}  // namespace kestrel
