#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "media/Deinterlacer.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// The decoder of one container stream, and the frames that wait, with their times.
///
/// The context exists as soon as there is a stream, so that its facts can be asked, and is opened
/// and closed under the process's codec lock.
class StreamDecoder {
 public:
  /// Forgets the old stream and makes an unopened context for the new one; null makes none.
  /// `isTransport`: the container dates some packets only (MPEG-TS and -PS), so that a date that is
  /// missing tells nothing of the others.
  void setStream(AVStream* stream, bool isTransport);

  AVCodecContext* context() const { return context_.get(); }

  /// Extra data that replaces the container's from the next open on.
  void setExtradata(std::vector<uint8_t> bytes, int size);

  /// What becomes of interlaced pictures from the next one on.
  void setDeinterlacing(Deinterlacing mode);

  bool open();
  bool isOpen() const;
  void close();

  /// Drops what the decoder holds and what waits, and whatever may still come of the packets that
  /// were sent before.
  void flush();

  /// Whether the decoder has to have seen the stream's first packet to decode later ones, and has
  /// not: some encoders' 4:4:4 pictures are only read right by who knows the encoder, and that is
  /// named in the first packet alone.
  bool needsFirstPacket() const;
  /// Shows the decoder the first packet, and drops what comes of it.
  void showFirstPacket(const AVPacket& packet);

  /// Feeds a packet and collects every frame that comes out. A refused packet is counted, but not
  /// the first after a flush where a seek may land within a frame. With threads that is found out
  /// some packets later.
  void send(const AVPacket& packet);

  /// Feeds the end of the input, once.
  void sendEnd();

  /// Takes the oldest frame; null when none waits. A picture waits until the next one is there, or
  /// the input's end, because it lasts until then. Its `pts` is its best known time.
  FramePtr take();

  int64_t errors() const { return errors_; }

  /// Whether frames are missing only because the decoder keeps some back, for its threads and for
  /// the order of display: it holds packets, and no more than that takes. A decoder that holds more
  /// makes nothing of them.
  bool isFilling() const;

 private:
  void makeContext();
  void submit(const AVPacket* packet);
  void collect(FramePtr frame);
  bool isStale(const AVFrame& frame);
  void addPicture(FramePtr picture);
  void dateBackwards(int64_t end);
  void queue(FramePtr picture);
  void setTime(AVFrame& picture);
  int64_t ownDuration(const AVFrame& picture) const;
  void setDuration(AVFrame& picture);
  void restart();

  AVStream* stream_ = nullptr;
  bool isTransport_ = false;
  CodecContextPtr context_;
  std::vector<uint8_t> extradata_;
  int extradataSize_ = 0;
  std::deque<FramePtr> frames_;
  bool isFirstPacket_ = true;
  bool hasOnlyDecodingTimes_ = false;  // as the first packet after a seek shows
  int64_t nextTime_ = AV_NOPTS_VALUE;  // where the last picture ended
  int64_t lastTime_ = AV_NOPTS_VALUE;  // where it began
  int64_t firstTime_ = 0;              // when the first packet since a seek is decoded
  std::vector<FramePtr> undated_;      // pictures that wait for a time
  Deinterlacing deinterlacing_ = Deinterlacing::kOff;
  std::optional<Deinterlacer> deinterlacer_;
  bool keepsPictures_ = false;  // beyond a flush
  bool ended_ = false;
  int64_t sent_ = 0;      // packets since the last flush
  int64_t received_ = 0;  // frames since then
  int64_t mark_ = 1;      // a number for each flush, which the frames of packets since then carry
  bool hasSeenFirst_ = false;  // the stream's first packet
  bool mayBeCut_ = false;      // the first packet, if nothing was made of any yet
  int64_t errors_ = 0;
};

}  // namespace kestrel
