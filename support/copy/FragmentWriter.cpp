#include "support/copy/FragmentWriter.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "support/FFmpegCompat.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace kestrel {

namespace {

constexpr int kBufferSize = 1 << 16;
constexpr size_t kBoxHeader = 8;  // size and name

#if LIBAVFORMAT_VERSION_MAJOR >= 61
using Written = const uint8_t*;
#else
using Written = uint8_t*;
#endif

int keep(void* bytes, Written data, int size) {
  auto& kept = *static_cast<std::vector<uint8_t>*>(bytes);
  kept.insert(kept.end(), data, data + size);
  return size;
}

/// How many bytes at the beginning are boxes of the head.
size_t headSize(std::span<const uint8_t> bytes) {
  size_t place = 0;
  while (bytes.size() - place >= kBoxHeader) {
    const std::string_view name(reinterpret_cast<const char*>(&bytes[place + 4]), 4);
    const size_t size = AV_RB32(&bytes[place]);
    if ((name != "ftyp" && name != "moov") || size < kBoxHeader || size > bytes.size() - place)
      break;
    place += size;
  }
  return place;
}

}  // namespace

FragmentWriter::FragmentWriter(int64_t length, FragmentTaker take)
    : grid_(length), take_(std::move(take)) {}

FragmentWriter::~FragmentWriter() {
  if (container_) container_->pb = nullptr;
}

std::map<std::string, std::string> FragmentWriter::options() {
  // An edit list hides what an encoder's delay has put before time 0. It is in the head, which
  // waits for the first fragment.
  return {{"movflags", "+frag_custom+delay_moov+default_base_moof+cmaf+skip_trailer"},
          {"use_editlist", "1"}};
}

int FragmentWriter::open(AVFormatContext& container) {
  auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
  if (!buffer) return AVERROR(ENOMEM);
  memory_.reset(avio_alloc_context(buffer, kBufferSize, 1, &bytes_, nullptr, &keep, nullptr));
  if (!memory_) {
    av_free(buffer);
    return AVERROR(ENOMEM);
  }
  container_ = &container;
  container.pb = memory_.get();
  return 0;
}

int64_t FragmentWriter::startOf(const AVPacket& packet) const {
  const int64_t time = packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts;
  return av_rescale_q(time, container_->streams[0]->time_base, kMicroseconds);
}

int64_t FragmentWriter::endOf(const AVPacket& packet) const {
  return startOf(packet) + packetDuration(packet, *container_->streams[0]);
}

bool FragmentWriter::isDue(const AVPacket& packet) {
  const int64_t start = startOf(packet);
  return (packet.flags & AV_PKT_FLAG_KEY) != 0 && grid_.begins(start, endOf(packet) - start);
}

int FragmentWriter::write(AVPacket& packet) {
  PacketPtr next = makePacket();
  if (!next) return AVERROR(ENOMEM);
  av_packet_move_ref(next.get(), &packet);
  next->stream_index = 0;
  const bool isFirst = !held_;
  // What the stream's encoder brings along is heard before time 0, and hidden.
  if (isFirst) start_ = std::max<int64_t>(startOf(*next), 0);
  if (!isFirst && next->dts > held_->dts) held_->duration = next->dts - held_->dts;
  int result = isFirst ? 0 : writeHeld();
  const bool isDue = this->isDue(*next);
  if (result >= 0 && !isFirst && isDue) {
    const int64_t start = startOf(*next);
    result = flush(start);
    start_ = start;
  }
  held_ = std::move(next);
  return result;
}

int FragmentWriter::writeHeld() {
  end_ = std::max(end_, endOf(*held_));
  return av_write_frame(container_, held_.get());
}

int FragmentWriter::finish() {
  const int result = held_ ? writeHeld() : 0;
  held_.reset();
  return result < 0 ? result : flush(end_);
}

/// The first flush may write the head alone.
int FragmentWriter::flush(int64_t end) {
  for (int turn = 0; turn < 2; ++turn) {
    const int result = av_write_frame(container_, nullptr);
    if (result < 0) return result;
    avio_flush(memory_.get());
    const bool hadHead = hasHead_;
    const int taken = takeBytes(end);
    if (taken != 0 || hadHead) return std::min(taken, 0);
  }
  return 0;
}

/// Above 0 where a fragment was among them.
int FragmentWriter::takeBytes(int64_t end) {
  const size_t head = hasHead_ ? 0 : headSize(bytes_);
  const std::span<const uint8_t> all(bytes_);
  bool isTaken = true;
  if (head > 0) {
    isTaken = take_({.bytes = all.first(head), .isHead = true});
    hasHead_ = true;
  }
  const auto fragment = all.subspan(head);
  if (isTaken && !fragment.empty())
    isTaken = take_({.bytes = fragment, .start = start_, .duration = end - start_});
  const bool hasFragment = !fragment.empty();
  bytes_.clear();
  if (!isTaken) return AVERROR(EIO);
  return hasFragment ? 1 : 0;
}

}  // namespace kestrel
