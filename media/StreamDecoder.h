#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "media/Deinterlacer.h"
#include "media/PictureFilter.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// The decoder of a container stream and its decoded frames with their times.
///
/// The context exists as soon as there is a stream, so that it can be queried; it is opened and
/// closed under the process-wide codec lock.
class StreamDecoder {
 public:
  /// Creates an unopened context for a stream and discards the old one; null only discards.
  /// `isTransport`: the container stamps only some packets (MPEG-TS and -PS), so a missing time
  /// stamp says nothing about the others.
  void setStream(AVStream* stream, bool isTransport);

  AVCodecContext* context() const { return context_.get(); }

  /// Extra data to use instead of the container's, from the next `open` on.
  void setExtradata(std::vector<uint8_t> bytes, int size);

  /// What becomes of pictures from the next one on.
  void setTreatment(const PictureTreatment& treatment);

  bool open();
  bool isOpen() const;
  void close();

  /// Discards what the decoder holds, waiting frames, and frames that still come out of earlier
  /// packets.
  void flush();

  /// True if the decoder must see the stream's first packet to decode later ones and has not seen
  /// it: some encoders' 4:4:4 pictures are decoded correctly only if the encoder is known, and only
  /// the first packet names it.
  bool needsFirstPacket() const;
  /// Feeds the first packet to the decoder and discards the result.
  void showFirstPacket(const AVPacket& packet);

  /// Feeds a packet and collects all frames that come out. Errors are counted, except for the first
  /// packet after a flush if a seek may have landed within a frame. A threaded decoder reports
  /// errors some packets late.
  void send(const AVPacket& packet);

  /// Signals the end of the input, once.
  void sendEnd();

  /// Removes and returns the oldest frame; null if none is ready. A picture is ready when the next
  /// one or the end of the input is known, because it lasts until then. Its `pts` is the best
  /// estimate of its time.
  FramePtr take();

  int64_t errors() const { return errors_; }

  /// The number of pictures of which the decoder has made parts up, for those that are damaged.
  int64_t mended() const { return mended_; }

  /// True if frames are missing only because the decoder holds some back for threading and
  /// reordering: it holds packets, but no more than that requires. A decoder that holds more cannot
  /// decode them.
  bool isFilling() const;

 private:
  void makeContext();
  void submit(const AVPacket* packet);
  void collect(FramePtr frame);
  bool isStale(const AVFrame& frame);
  void addPicture(FramePtr picture);
  void dateBackwards(int64_t end);
  void queue(FramePtr picture);
  void treat(FramePtr picture);
  void finishTreatment();
  void denoise(std::vector<FramePtr> pictures);
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
  bool hasOnlyDecodingTimes_ = false;  // according to the first packet after a seek
  int64_t nextTime_ = AV_NOPTS_VALUE;  // end of the last picture
  int64_t lastTime_ = AV_NOPTS_VALUE;  // start of the last picture
  int64_t firstTime_ = 0;              // decoding time of the first packet since a seek
  std::vector<FramePtr> undated_;      // pictures that wait for a time
  PictureTreatment treatment_;
  std::optional<Deinterlacer> deinterlacer_;
  std::optional<PictureFilter> denoiser_;
  bool keepsPictures_ = false;  // the decoder returns pictures from before a flush
  bool ended_ = false;
  int64_t sent_ = 0;      // packets since the last flush
  int64_t received_ = 0;  // frames since the last flush
  int64_t mark_ = 1;      // changes with each flush; carried by the frames of packets sent since
  bool hasSeenFirst_ = false;  // the stream's first packet
  bool mayBeCut_ = false;      // the first packet, until a frame or an error came
  int64_t errors_ = 0;
  int64_t mended_ = 0;
};

}  // namespace kestrel
