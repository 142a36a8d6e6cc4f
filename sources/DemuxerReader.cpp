#include "sources/DemuxerReader.h"

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

#include "sources/ClockSamples.h"
#include "support/Containers.h"

namespace kestrel {

namespace {

/// A demuxer that has nothing yet is asked again, for a second in all while the input stands still.
constexpr int kMostIdle = 500;
constexpr std::chrono::milliseconds kIdle(2);

}  // namespace

void DemuxerReader::open(AVFormatContext* context, std::shared_ptr<SharedClock> clock,
                         ReadMap readMap) {
  close();
  context_ = context;
  clock_ = std::move(clock);
  readMap_ = std::move(readMap);
  isSteady_ = !clock_;
  tellsOrderAsTime_ = tellsOrderAsTime(*context);
}

void DemuxerReader::close() {
  forget();
  damage_ = {};
  context_ = nullptr;
  clock_.reset();
  readMap_ = nullptr;
  map_.reset();
  isSteady_ = true;
  position_ = 0;
  undated_.clear();
}

/// Drops what has been read ahead: reading goes on elsewhere.
void DemuxerReader::forget() {
  finder_.reset();
  courses_.clear();
  waiting_.clear();
  givenBack_.clear();
  damage_.jump();
  ending_ = 0;
}

void DemuxerReader::putBack(std::deque<PacketPtr> packets) {
  for (PacketPtr& packet : givenBack_) packets.push_back(std::move(packet));
  givenBack_ = std::move(packets);
}

int DemuxerReader::read(AVPacket& packet) {
  if (!givenBack_.empty()) {
    av_packet_move_ref(&packet, givenBack_.front().get());
    givenBack_.pop_front();
    return 0;
  }
  learn();
  while (!isSteady_ && !map_ && waiting_.empty() && ending_ == 0) watch();
  if (!waiting_.empty()) {
    av_packet_move_ref(&packet, waiting_.front().get());
    waiting_.pop_front();
  } else if (ending_ != 0) {
    return ending_;
  } else if (const int result = demux(packet); result < 0) {
    return result;
  }
  if (map_) moveByMap(packet);
  return 0;
}

/// Reads on, without a map, until the times of the next packet are known or it has become clear
/// that a map is needed.
void DemuxerReader::watch() {
  PacketPtr packet = makePacket();
  const int result = demux(*packet);
  if (result >= 0) {
    const AVStream& stream = *context_->streams[packet->stream_index];
    finder_.push(std::move(packet), stream);
  } else {
    ending_ = result;
    finder_.finish();
  }
  if (finder_.hasJumped() && readMap_) {
    waiting_ = finder_.takeAll();
    finder_.reset();
    ask();
    return;
  }
  while (auto placed = finder_.pop()) {
    move(*placed->packet, placed->offset);
    waiting_.push_back(std::move(placed->packet));
  }
}

/// Takes over what another reader of the input has found out.
void DemuxerReader::learn() {
  if (isSteady_ || map_ || !readMap_) return;
  const SharedClock::Finding finding = clock_->finding.get();
  if (!finding.isKnown) return;
  for (PacketPtr& packet : finder_.takeAll()) waiting_.push_back(std::move(packet));
  finder_.reset();
  map_ = finding.map;
  isSteady_ = !map_;
  if (map_) map_->describe(*context_);
}

/// Has the input read through, unless that has been done.
void DemuxerReader::ask() {
  learn();
  if (isSteady_ || map_) return;
  auto map = readMap_();
  isSteady_ = !map || !map->hasJumps();
  if (!map) return;  // it was interrupted
  if (!isSteady_) map_ = map;
  if (map_) map_->describe(*context_);
  clock_->finding.set({true, map_});
}

void DemuxerReader::look() {
  learn();
  if (!isSteady_ && !map_ && mayClockJump(*context_)) ask();
}

int DemuxerReader::demux(AVPacket& packet) {
  AVIOContext* const io = context_->pb;
  int64_t place = -1;
  for (int idle = 0; idle < kMostIdle; ++idle) {
    const int result = av_read_frame(context_, &packet);
    if (result >= 0) damage_.take(packet, *context_->streams[packet.stream_index]);
    if (result >= 0 && tellsOrderAsTime_) forgetFalseTime(packet);
    if (result != AVERROR(EAGAIN)) {
      // Some demuxers take a failed read for the end.
      return result == AVERROR_EOF && io && io->error < 0 ? io->error : result;
    }
    const AVIOInterruptCB& interrupt = context_->interrupt_callback;
    if (interrupt.callback && interrupt.callback(interrupt.opaque)) return AVERROR_EXIT;
    const int64_t now = io ? avio_tell(io) : 0;
    if (now != place)
      idle = 0;
    else
      std::this_thread::sleep_for(kIdle);
    place = now;
  }
  return AVERROR(EAGAIN);
}

/// MXF files without a table of display times count pictures in the order of decoding, and the
/// demuxer tells that as the order of display. A key picture that others are decoded behind and
/// shown before gives it away.
void DemuxerReader::forgetFalseTime(AVPacket& packet) {
  const AVCodecParameters& codec = *context_->streams[packet.stream_index]->codecpar;
  const bool isReordered = codec.codec_type == AVMEDIA_TYPE_VIDEO && codec.video_delay > 0;
  if (isReordered && (packet.flags & AV_PKT_FLAG_KEY) && packet.pts == packet.dts)
    undated_.insert(packet.stream_index);
  if (undated_.contains(packet.stream_index)) packet.pts = AV_NOPTS_VALUE;
}

void DemuxerReader::move(AVPacket& packet, int64_t offset) const {
  if (offset == 0) return;
  const AVRational base = context_->streams[packet.stream_index]->time_base;
  const int64_t ticks = av_rescale_q(offset, JumpFinder::kTicks, base);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += ticks;
  if (packet.dts != AV_NOPTS_VALUE) packet.dts += ticks;
}

void DemuxerReader::moveByMap(AVPacket& packet) {
  const int stream = packet.stream_index;
  const auto [found, isFirst] = courses_.try_emplace(stream);
  Course& course = found->second;
  const int64_t place = packet.pos >= 0 ? packet.pos : position_;
  if (isFirst || packet.pos >= 0) course.stretch = map_->stretchAt(stream, place);
  const int64_t own = packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (own != AV_NOPTS_VALUE) {
    const int64_t time =
        av_rescale_q(own, context_->streams[stream]->time_base, JumpFinder::kTicks);
    const auto next = packet.pos >= 0 || isFirst
                          ? std::nullopt
                          : map_->stretchAfter(stream, course.stretch.position);
    if (next && std::abs(time - next->begin) < std::abs(time - course.last)) course.stretch = *next;
    course.last = time;
  }
  move(packet, course.stretch.offset);
}

int DemuxerReader::seekBytes(int64_t position) {
  position_ = position;
  return av_seek_frame(context_, -1, position, AVSEEK_FLAG_BYTE);
}

int DemuxerReader::seekBackward(int64_t time) {
  forget();
  learn();
  if (!map_) return av_seek_frame(context_, -1, time, AVSEEK_FLAG_BACKWARD);
  const auto place = map_->placeBefore(av_rescale_q(time, kMicroseconds, JumpFinder::kTicks));
  return seekBytes(place.value_or(0));
}

int DemuxerReader::rewind() {
  forget();
  return seekBytes(0);
}

}  // namespace kestrel
